// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "ExampleCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <string_view>

#include "exceptions/ExceptionTransport.h"
#include "logging/Logger.h"
#include "values/product.h"

namespace hoist::example {
namespace {

constexpr std::string_view kSecondsFlag = "seconds=";
constexpr double kLongestPause = 365.0 * 24 * 3600;

std::chrono::nanoseconds nanoseconds(double seconds) {
  if (!(seconds > 0)) return {};
  return std::chrono::nanoseconds(std::llround(std::min(seconds, kLongestPause) * 1e9));
}

std::chrono::nanoseconds jobLength(const std::vector<std::string>& flags) {
  for (const std::string& flag : flags) {
    if (flag.starts_with(kSecondsFlag))
      return nanoseconds(std::strtod(flag.c_str() + kSecondsFlag.size(), nullptr));
  }
  return std::chrono::seconds(1);
}

// As when there is no room for what is copied.
[[noreturn]] void failAsOnAFullDisk() {
  KLException::exceptionWithName("IO", "cannot copy item")
      .setPOSIXErr(ENOSPC, "copy_file_range")
      .setCPath("/backup/volume.img")
      .setLength(std::int64_t{1} << 30)
      .setCause(Value(Dictionary{{"Free", 4096}, {"Device", "/dev/sdz1"}}))
      .setExplanation("There is no room left on the backup volume.")
      .raise();
}

}  // namespace

void ExampleCommand::prepare(const std::vector<std::string>& flags) {
  bool fails = std::ranges::find(flags, "fail") != flags.end();
  auto weak = std::weak_ptr(std::static_pointer_cast<ExampleCommand>(shared_from_this()));
  job_ = std::make_shared<Job>(jobLength(flags), [weak, fails] {
    if (fails) failAsOnAFullDisk();
    if (auto self = weak.lock()) self->produce();
  });
}

void ExampleCommand::queryComponentVersionWithReply(xpc::Reply<std::string> reply) {
  reply(std::string(product::kHelperVersion));
}

void ExampleCommand::queryBuildNumberWithReply(xpc::Reply<std::uint32_t> reply) {
  reply(product::kBuildNumber);
}

// Every property that the command's protocol can set.
void ExampleCommand::querySupportsProperty(std::string property, xpc::Reply<bool> reply) {
  std::string name = property;
  if (!name.empty()) name[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(name[0])));
  const auto& protocol = protocolForName(commandName().value_or(""));
  reply(protocol.methodWithSelector("set" + name + ":") ||
        protocol.methodWithSelector("add" + name + ":"));
}

void ExampleCommand::queryNameWithReply(xpc::Reply<std::string> reply) {
  reply(commandName().value_or(""));
}

void ExampleCommand::queryHumanReadableNameWithReply(xpc::Reply<std::string> reply) {
  reply(humanReadableName());
}

void ExampleCommand::setActionUUID(std::optional<std::string> uuid) {
  set("actionUUID", std::move(uuid));
}

void ExampleCommand::queryActionUUIDWithReply(xpc::Reply<std::optional<std::string>> reply) {
  reply(getString("actionUUID"));
}

void ExampleCommand::setCustomDescription(std::optional<std::string> description) {
  set("customDescription", std::move(description));
}

void ExampleCommand::queryCustomDescriptionWithReply(xpc::Reply<std::optional<std::string>> reply) {
  reply(getString("customDescription"));
}

// While the job runs, with how far it has come.
void ExampleCommand::queryDisplayDescriptionWithReply(
    xpc::Reply<std::optional<std::string>> reply) {
  std::string text = getString("customDescription").value_or(humanReadableName());
  auto state = job_->state();
  if (state.running) text = fmt::format("{}, {:.0f} %", text, std::floor(state.progress * 100));
  reply(text);
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
  set("scriptsNeedUI", need);
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
  set("monitorAutoconnect", autoconnect);
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
  set("rootCommandLogRecordClassification", classification);
}

void ExampleCommand::redirectLogPathToFile(std::optional<FileDescriptor> file) {
  // The console logger writes to the standard error.
  if (file) ::dup3(file->get(), STDERR_FILENO, 0);
}

void ExampleCommand::setPerilousMode(bool perilous) {
  set("perilousMode", perilous);
}

std::optional<Data> ExampleCommand::exceptionData() const {
  auto exception = job_->exception();
  return exception ? std::optional(dataForException(*exception)) : std::nullopt;
}

std::string ExampleCommand::humanReadableName() const {
  return humanReadableNameForCommandName(commandName().value_or(""));
}

void ExampleCommand::set(const char* property, std::optional<Value> value) {
  Logger::log(classification::Details, fmt::format("{} = {}", property, describe(value)));
  keep(property, std::move(value));
}

void ExampleCommand::add(const char* property, Value value) {
  Logger::log(classification::Details, fmt::format("{} + {}", property, value.description()));
  MutexLock lock(mutex_);
  auto& kept = properties_[property];
  Array values = kept.array() ? *kept.array() : Array();
  values.push_back(std::move(value));
  kept = Value(std::move(values));
}

void ExampleCommand::setSecret(const char* property, std::optional<std::string> value) {
  Logger::log(classification::Details, fmt::format("{} is {}", property, value ? "set" : "unset"));
  keep(property, value ? std::optional<Value>(*value) : std::nullopt);
}

void ExampleCommand::keep(const char* property, std::optional<Value> value) {
  MutexLock lock(mutex_);
  if (value) {
    properties_.insert_or_assign(property, std::move(*value));
  } else {
    properties_.erase(property);
  }
}

std::optional<Value> ExampleCommand::get(const char* property) const {
  MutexLock lock(mutex_);
  auto found = properties_.find(property);
  return found == properties_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> ExampleCommand::getString(const char* property) const {
  auto value = get(property);
  return value && value->isString() ? std::optional(*value->string()) : std::nullopt;
}

Dictionary ExampleCommand::properties() const {
  MutexLock lock(mutex_);
  return properties_;
}

}  // namespace hoist::example
