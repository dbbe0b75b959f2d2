// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "ExampleCommand.h"

#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <string_view>

#include "exceptions/ExceptionTransport.h"
#include "values/product.h"

namespace hoist::example {
namespace {

constexpr std::string_view kSecondsFlag = "seconds=";
constexpr double kLongestPause = 365.0 * 24 * 3600;

std::chrono::nanoseconds nanoseconds(double seconds) {
  if (!(seconds > 0)) return {};
  return std::chrono::nanoseconds(std::llround(std::min(seconds, kLongestPause) * 1e9));
}

std::chrono::nanoseconds jobLength(const HelperInvocation& invocation) {
  for (const std::string& flag : invocation.flags) {
    if (flag.starts_with(kSecondsFlag))
      return nanoseconds(std::strtod(flag.c_str() + kSecondsFlag.size(), nullptr));
  }
  return std::chrono::seconds(1);
}

std::string capitalised(std::string name) {
  if (!name.empty() && name[0] >= 'a' && name[0] <= 'z')
    name[0] = static_cast<char>(name[0] - 'a' + 'A');
  return name;
}

}  // namespace

bool isKnownCommand(std::string_view name) {
  static const auto& names = *new std::set<std::string, std::less<>>{
      "install", "create",  "capture", "restore", "recall",     "merge",   "combine", "delete",
      "erase",   "compact", "verify",  "encrypt", "correction", "reindex", "repair",  "dump"};
  return names.contains(name);
}

ExampleCommand::ExampleCommand(const HelperInvocation& invocation)
    : name_(invocation.commandName), job_(make<Job>(jobLength(invocation))) {}

void ExampleCommand::queryComponentVersionWithReply(xpc::Reply<std::string> reply) {
  reply(std::string(product::kHelperVersion));
}

void ExampleCommand::queryBuildNumberWithReply(xpc::Reply<std::uint32_t> reply) {
  reply(product::kBuildNumber);
}

void ExampleCommand::querySupportsProperty(std::string property, xpc::Reply<bool> reply) {
  static const auto& properties = *new std::set<std::string, std::less<>>{
      "actionUUID",       "customDescription",
      "prologScriptPath", "epilogScriptPath",
      "scriptsNeedUI",    "monitorAutoconnect",
      "perilousMode",     "rootCommandLogRecordClassification"};
  reply(properties.contains(property));
}

void ExampleCommand::queryNameWithReply(xpc::Reply<std::string> reply) {
  reply(name_);
}

void ExampleCommand::queryHumanReadableNameWithReply(xpc::Reply<std::string> reply) {
  reply(capitalised(name_));
}

void ExampleCommand::setActionUUID(std::optional<std::string> uuid) {
  set("actionUUID", std::move(uuid));
}

void ExampleCommand::queryActionUUIDWithReply(xpc::Reply<std::optional<std::string>> reply) {
  reply(get("actionUUID"));
}

void ExampleCommand::setCustomDescription(std::optional<std::string> description) {
  set("customDescription", std::move(description));
}

void ExampleCommand::queryCustomDescriptionWithReply(xpc::Reply<std::optional<std::string>> reply) {
  reply(get("customDescription"));
}

void ExampleCommand::queryDisplayDescriptionWithReply(
    xpc::Reply<std::optional<std::string>> reply) {
  auto custom = get("customDescription");
  reply(custom ? custom : capitalised(name_));
}

void ExampleCommand::queryProcessIdentifierWithReply(xpc::Reply<std::string> reply) {
  reply(std::to_string(::getpid()));
}

void ExampleCommand::setPrologScriptPath(std::optional<std::string> path) {
  set("prologScriptPath", std::move(path));
}
void ExampleCommand::setEpilogScriptPath(std::optional<std::string> path) {
  set("epilogScriptPath", std::move(path));
}
void ExampleCommand::setScriptsNeedUI(bool need) {
  set("scriptsNeedUI", need ? "1" : "0");
}

void ExampleCommand::addListenerToPublishedService(std::string serviceName) {
  MutexLock lock(mutex_);
  listeners_.insert(std::move(serviceName));
}

void ExampleCommand::removeListenerWithIdentifier(std::string identifier) {
  MutexLock lock(mutex_);
  listeners_.erase(identifier);
}

void ExampleCommand::setMonitorAutoconnect(bool autoconnect) {
  set("monitorAutoconnect", autoconnect ? "1" : "0");
}

void ExampleCommand::queryRunStateWithReply(xpc::Reply<bool, bool, bool> reply) {
  auto state = job_->state();
  reply(state.running, state.finished, state.held);
}

void ExampleCommand::queryIsRunningWithReply(xpc::Reply<bool> reply) {
  reply(job_->state().running);
}
void ExampleCommand::queryIsFinishedWithReply(xpc::Reply<bool> reply) {
  reply(job_->state().finished);
}
void ExampleCommand::queryIsHeldWithReply(xpc::Reply<bool> reply) {
  reply(job_->state().held);
}

void ExampleCommand::holdWithReason(std::optional<std::string> reason) {
  set("holdReason", std::move(reason));
  job_->hold();
}

void ExampleCommand::releaseHold() {
  set("holdReason", std::nullopt);
  job_->releaseHold();
}

void ExampleCommand::run() {
  job_->run(nullptr);
}

void ExampleCommand::runWithReply(xpc::Reply<std::optional<Data>> reply) {
  job_->run([this, self = shared_from_this(), reply] { reply(exceptionData()); });
}

void ExampleCommand::queryExecutionExceptionDataWithReply(xpc::Reply<std::optional<Data>> reply) {
  reply(exceptionData());
}

void ExampleCommand::cancelFrom(std::int32_t) {
  job_->cancel();
}

void ExampleCommand::queryCanCancelWithReply(xpc::Reply<bool> reply) {
  reply(!job_->state().finished);
}

void ExampleCommand::pauseFor(double seconds) {
  job_->pauseFor(nanoseconds(seconds));
}
void ExampleCommand::resume() {
  job_->resume();
}
void ExampleCommand::queryIsPausedWithReply(xpc::Reply<bool> reply) {
  reply(job_->state().paused);
}
void ExampleCommand::queryCanPauseWithReply(xpc::Reply<bool> reply) {
  reply(!job_->state().finished);
}

void ExampleCommand::queryIsPrivilegedWithReply(xpc::Reply<bool> reply) {
  reply(::getuid() == 0);
}

void ExampleCommand::setRootCommandLogRecordClassification(std::int32_t classification) {
  set("rootCommandLogRecordClassification", std::to_string(classification));
}

void ExampleCommand::redirectLogPathToFile(std::optional<FileDescriptor> file) {
  // The console logger writes to the standard error.
  if (file) ::dup3(file->get(), STDERR_FILENO, 0);
}

void ExampleCommand::setPerilousMode(bool perilous) {
  set("perilousMode", perilous ? "1" : "0");
}

std::optional<Data> ExampleCommand::exceptionData() const {
  auto exception = job_->exception();
  return exception ? std::optional(dataForException(*exception)) : std::nullopt;
}

void ExampleCommand::set(const char* property, std::optional<std::string> value) {
  MutexLock lock(mutex_);
  if (value) {
    properties_.insert_or_assign(property, std::move(*value));
  } else {
    properties_.erase(property);
  }
}

std::optional<std::string> ExampleCommand::get(const char* property) const {
  MutexLock lock(mutex_);
  auto found = properties_.find(property);
  return found == properties_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace hoist::example
