// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Job.h"
#include "connection/protocols/CommandMessaging.h"
#include "helper/HelperTool.h"
#include "values/Object.h"

namespace hoist::example {

// Whether the example has a command of that name: it has the product's sixteen.
bool isKnownCommand(std::string_view name);

// A command as its client sees it: it keeps what it is told, answers what it is and how it stands,
// and does a pretend job when it is run. The flag "seconds=N" says how long the job takes. Safe
// from any thread.
class ExampleCommand final : public Object, public CommandMessaging {
 public:
  explicit ExampleCommand(const HelperInvocation& invocation);

  bool isRunning() const { return job_->state().running; }
  // Calls the function when the job, which runs, has ended.
  void callWhenEnded(std::function<void()> function) { job_->run(std::move(function)); }

  void barrierWithCompletion(xpc::Reply<> completion) override { completion(); }
  void queryComponentVersionWithReply(xpc::Reply<std::string> reply) override;
  void queryBuildNumberWithReply(xpc::Reply<std::uint32_t> reply) override;

  void querySupportsProperty(std::string property, xpc::Reply<bool> reply) override;
  void queryNameWithReply(xpc::Reply<std::string> reply) override;
  void queryHumanReadableNameWithReply(xpc::Reply<std::string> reply) override;
  void setActionUUID(std::optional<std::string> uuid) override;
  void queryActionUUIDWithReply(xpc::Reply<std::optional<std::string>> reply) override;
  void setCustomDescription(std::optional<std::string> description) override;
  void queryCustomDescriptionWithReply(xpc::Reply<std::optional<std::string>> reply) override;
  void queryDisplayDescriptionWithReply(xpc::Reply<std::optional<std::string>> reply) override;
  void queryProcessIdentifierWithReply(xpc::Reply<std::string> reply) override;
  void setPrologScriptPath(std::optional<std::string> path) override;
  void setEpilogScriptPath(std::optional<std::string> path) override;
  void setScriptsNeedUI(bool need) override;
  void addListenerToPublishedService(std::string serviceName) override;
  void removeListenerWithIdentifier(std::string identifier) override;
  void setMonitorAutoconnect(bool autoconnect) override;
  void queryRunStateWithReply(xpc::Reply<bool, bool, bool> reply) override;
  void queryIsRunningWithReply(xpc::Reply<bool> reply) override;
  void queryIsFinishedWithReply(xpc::Reply<bool> reply) override;
  void queryIsHeldWithReply(xpc::Reply<bool> reply) override;
  void holdWithReason(std::optional<std::string> reason) override;
  void releaseHold() override;
  void run() override;
  void runWithReply(xpc::Reply<std::optional<Data>> reply) override;
  void queryExecutionExceptionDataWithReply(xpc::Reply<std::optional<Data>> reply) override;
  void cancelFrom(std::int32_t source) override;
  void queryCanCancelWithReply(xpc::Reply<bool> reply) override;
  void pauseFor(double seconds) override;
  void resume() override;
  void queryIsPausedWithReply(xpc::Reply<bool> reply) override;
  void queryCanPauseWithReply(xpc::Reply<bool> reply) override;
  void queryIsPrivilegedWithReply(xpc::Reply<bool> reply) override;
  void setRootCommandLogRecordClassification(std::int32_t classification) override;
  void redirectLogPathToFile(std::optional<FileDescriptor> file) override;
  void setPerilousMode(bool perilous) override;

  std::string className() const override { return "ExampleCommand"; }

 private:
  std::optional<Data> exceptionData() const;
  void set(const char* property, std::optional<std::string> value);
  std::optional<std::string> get(const char* property) const;

  const std::string name_;
  const Ref<Job> job_;
  mutable Mutex mutex_;
  std::map<std::string, std::string, std::less<>> properties_ GUARDED_BY(mutex_);
  std::set<std::string, std::less<>> listeners_ GUARDED_BY(mutex_);
};

}  // namespace hoist::example
