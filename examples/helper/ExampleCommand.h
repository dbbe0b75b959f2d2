// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Job.h"
#include "connection/CommandInfo.h"
#include "connection/protocols/CommandMessaging.h"
#include "values/Value.h"

namespace hoist::example {

// A command as its client sees it: it keeps what it is told, says so in its log, answers what it is
// and how it stands, and does a pretend job when it is run. What distinguishes one command from
// another stands in its subclasses. Safe from any thread.
//
// Two flags change the job: "seconds=N" is how long it takes, "fail" makes it end with an exception
// as from a full disk.
class ExampleCommand : public CommandInfo, public virtual CommandMessaging {
 public:
  // Called once, before the command is served.
  void prepare(const std::vector<std::string>& flags);

  bool isRunning() const { return job_->state().running; }
  // Everything that it was told and that it keeps.
  Dictionary properties() const;
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

 protected:
  // What the job produces when its time is over; the job ends with the exception that it throws. On
  // a thread of its own.
  virtual void produce() {}

  void set(const char* property, std::optional<Value> value);
  // Adds to the array that the property is.
  void add(const char* property, Value value);
  // Keeps the value out of the log.
  void setSecret(const char* property, std::optional<std::string> value);
  std::optional<Value> get(const char* property) const;
  std::optional<std::string> getString(const char* property) const;

 private:
  std::string humanReadableName() const;
  std::optional<Data> exceptionData() const;
  void keep(const char* property, std::optional<Value> value);

  Ref<Job> job_;  // never replaced once the command is served
  mutable Mutex mutex_;
  Dictionary properties_ GUARDED_BY(mutex_);
  std::set<std::string, std::less<>> listeners_ GUARDED_BY(mutex_);
};

}  // namespace hoist::example
