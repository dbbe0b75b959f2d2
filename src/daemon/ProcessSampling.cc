// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The hoist is root, its clients are not: it does nothing with a process or a file that the client
// could not do itself. The tool runs with the client as its real user, and opens the report with
// that user's rights; the widening of the report's mode is done with that user's file-system
// identity, which is a thread's own, so that a path that is swapped meanwhile can hit nothing that
// the user could not.

#include "daemon/ProcessSampling.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>

#include "daemon/HelperRegistry.h"
#include "exceptions/KLException.h"
#include "filesystem/PXFileInfo.h"
#include "logging/Logger.h"
#include "platform/ChildTask.h"
#include "platform/Dispatch.h"
#include "platform/ProcessIdentity.h"
#include "platform/SystemCall.h"
#include "platform/UserIdentity.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/OperationRefused.h"

namespace hoist {
namespace {

constexpr const char* kBlockName =
    "__44-[TesselHoister asyncSample:report:withReply:]_block_invoke";

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

void logSecurity(const char* reason, pid_t process, const std::string& report) {
  auto exception = KLException::exceptionWithName("Security", reason);
  exception.setStrPath(Value(report)).setDecimalDetail(process, "Process");
  Logger::logException(exception);
}

// The tool opens the report with the user's rights and refuses the same; asked beforehand, so that
// the log has a reason.
bool mayBeReport(const std::string& path, const platform::UserIdentity& user) {
  platform::UsersFileRights rights(user);
  struct stat status;
  if (::lstat(path.c_str(), &status) == 0) {
    return S_ISREG(status.st_mode) && ::faccessat(AT_FDCWD, path.c_str(), W_OK, AT_EACCESS) == 0;
  }
  if (errno != ENOENT) return false;
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  return ::faccessat(AT_FDCWD, folder.c_str(), W_OK | X_OK, AT_EACCESS) == 0;
}

void widenReport(const std::string& report, const platform::UserIdentity& user) {
  // Outlives the rights: its release may begin a thread, which would inherit them.
  Ref<PXFileInfo> info;
  platform::UsersFileRights rights(user);
  info = PXFileInfo::infoForPath(report);
  if (!info || !info->isRegularFile()) return;
  info->setAccess(static_cast<std::uint16_t>(info->access() | kReportWriteBits));
  info->setModifiedAttributes();
}

void runJob(const SampleRequest& request, std::size_t index) {
  pid_t process = request.processes[index];
  const std::string& report = request.reports[index];
  if (!mayBeSampled(process, request.user)) {
    return logSecurity("process must not be sampled for its client", process, report);
  }
  const auto user = platform::UserIdentity::ofUser(request.user);
  if (!mayBeReport(report, user)) {
    return logSecurity("report must not be written by its client", process, report);
  }
  auto tool = ChildTask::launch({.launchPath = request.tool,
                                 .arguments = {std::to_string(process), "-file", report},
                                 .environment = {{}},
                                 .realUser = request.user});
  tool->waitUntilExit();
  widenReport(report, user);
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
      } catch (const std::exception& error) {
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
  const auto identity = platform::ProcessIdentity::ofProcess(process);
  return identity && identity->isWholly(user);
}

void sampleProcesses(SampleRequest request, const xpc::Reply<bool>& reply) {
  checkRequest(request);
  // What is kept while the tools run is not more than they need.
  request.reports.resize(request.processes.size());
  request.reports.shrink_to_fit();
  auto shared = make<const SampleRequest>(std::move(request));
  dispatch::globalQueue().async([shared, reply] { sampleAndReply(shared, reply); });
}

}  // namespace hoist
