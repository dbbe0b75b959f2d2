// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The hoist is root, its clients are not: it does nothing with a process or a file that the client
// could not do itself. The tool runs with the client as its real user, and opens the report with
// that user's rights; the widening of the report's mode is done with that user's file-system
// identity, which is a thread's own, so that a path that is swapped meanwhile can hit nothing that
// the user could not.

#include "daemon/ProcessSampling.h"

#include <fmt/format.h>
#include <sys/fsuid.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include "daemon/HelperRegistry.h"
#include "exceptions/KLException.h"
#include "filesystem/PXFileInfo.h"
#include "logging/Logger.h"
#include "platform/ChildTask.h"
#include "platform/Dispatch.h"
#include "platform/SystemCall.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/OperationRefused.h"

namespace hoist {
namespace {

constexpr const char* kBlockName =
    "__44-[TesselHoister asyncSample:report:withReply:]_block_invoke";

// Real, effective, saved and file-system user of a process; empty when there is none.
std::vector<uid_t> usersOfProcess(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::vector<uid_t> users;
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with("Uid:")) continue;
    std::istringstream numbers(line.substr(4));
    for (uid_t user; numbers >> user;) users.push_back(user);
  }
  return users;
}

// The sampling jobs of each user that run.
class JobCounter {
 public:
  static JobCounter& shared() {
    static auto& counter = *new JobCounter;
    return counter;
  }
  bool add(uid_t user, std::size_t jobs) {
    MutexLock lock(mutex_);
    std::size_t& running = jobs_[user];
    if (running + jobs > xpc::kSamplingJobsOfOneUser) return false;
    running += jobs;
    return true;
  }
  void remove(uid_t user) {
    MutexLock lock(mutex_);
    if (--jobs_[user] == 0) jobs_.erase(user);
  }

 private:
  Mutex mutex_;
  std::map<uid_t, std::size_t> jobs_ GUARDED_BY(mutex_);
};

// The thread has the user's rights to files while this lives.
class FileSystemIdentity {
 public:
  explicit FileSystemIdentity(uid_t user) : previous_(static_cast<uid_t>(::setfsuid(user))) {}
  ~FileSystemIdentity() { ::setfsuid(previous_); }
  FileSystemIdentity(const FileSystemIdentity&) = delete;
  FileSystemIdentity& operator=(const FileSystemIdentity&) = delete;

 private:
  uid_t previous_;
};

void logSecurity(const char* reason, pid_t process, const std::string& report) {
  auto exception = KLException::exceptionWithName("Security", reason);
  exception.setStrPath(Value(report)).setDecimalDetail(process, "Process");
  Logger::logException(exception);
}

void widenReport(const std::string& report, uid_t user) {
  FileSystemIdentity identity(user);
  auto info = PXFileInfo::infoForPath(report);
  if (!info || !info->isRegularFile()) return;
  info->setAccess(static_cast<std::uint16_t>(info->access() | kReportWriteBits));
  info->setModifiedAttributes();
}

void runJob(const SampleRequest& request, std::size_t index) {
  pid_t process = request.processes[index];
  const std::string& report = request.reports[index];
  if (!mayBeSampled(process, request.user)) {
    logSecurity("process must not be sampled for its client", process, report);
    return;
  }
  auto tool = ChildTask::launch({.launchPath = request.tool,
                                 .arguments = {std::to_string(process), "-file", report},
                                 .environment = {{}},
                                 .realUser = request.user});
  tool->waitUntilExit();
  widenReport(report, request.user);
  Logger::log(classification::Debug, [&] {
    return fmt::format("{} sample of process {} written to {}", kBlockName, process, report);
  });
}

void checkRequest(const SampleRequest& request) {
  std::size_t count = request.processes.size();
  if (request.reports.size() < count)
    throw xpc::OperationRefused("there are fewer reports than processes");
  if (count > xpc::kProcessesInOneSample) {
    throw xpc::OperationRefused(
        fmt::format("at most {} processes in one request", xpc::kProcessesInOneSample));
  }
  if (!JobCounter::shared().add(request.user, count)) {
    throw xpc::OperationRefused(
        fmt::format("at most {} sampling jobs of one user", xpc::kSamplingJobsOfOneUser));
  }
}

void sampleAndReply(const Ref<const SampleRequest>& request, const xpc::Reply<bool>& reply) {
  auto group = make<dispatch::Group>();
  for (std::size_t index = 0; index < request->processes.size(); ++index) {
    group->async(dispatch::globalQueue(), [request, index] {
      try {
        runJob(*request, index);
      } catch (const Exception& exception) {
        Logger::logException(exception);
      } catch (const SystemCallError& error) {
        Logger::log(classification::Failure, error.what());
      }
      JobCounter::shared().remove(request->user);
    });
  }
  bool finished = group->wait(kSamplingLimit);
  if (!finished) {
    Logger::log(classification::Debug, [&] {
      return fmt::format("{} {}", kBlockName, "Timed out waiting for processes to finish sampling");
    });
  }
  reply(finished);
}

}  // namespace

bool mayBeSampled(pid_t process, uid_t user) {
  if (user == 0) return true;
  if (HelperRegistry::shared().isHelperOf(process, user)) return true;
  auto users = usersOfProcess(process);
  if (users.empty() || std::ranges::any_of(users, [&](uid_t each) { return each != user; }))
    return false;
  // The kernel shows a process that its user must not look into as root's.
  struct stat folder;
  std::string path = "/proc/" + std::to_string(process);
  return ::stat(path.c_str(), &folder) == 0 && folder.st_uid == user;
}

void sampleProcesses(SampleRequest request, const xpc::Reply<bool>& reply) {
  checkRequest(request);
  auto shared = make<const SampleRequest>(std::move(request));
  dispatch::globalQueue().async([shared, reply] { sampleAndReply(shared, reply); });
}

}  // namespace hoist
