// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/BackgroundPriority.h"

#include <linux/ioprio.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace hoist::platform {
namespace {

// On Linux each of these calls means one thread; a process's threads are those that stand in /proc.
std::vector<pid_t> threadsOf(pid_t process) {
  std::vector<pid_t> threads;
  std::error_code failure;
  std::filesystem::directory_iterator folder("/proc/" + std::to_string(process) + "/task", failure);
  for (; !failure && folder != std::filesystem::directory_iterator(); folder.increment(failure)) {
    threads.push_back(static_cast<pid_t>(std::atoi(folder->path().filename().c_str())));
  }
  if (threads.empty()) threads.push_back(process);
  return threads;
}

}  // namespace

int setBackgroundPriority(pid_t process) {
  int failure = 0;
  for (pid_t thread : threadsOf(process)) {
    if (::setpriority(PRIO_PROCESS, static_cast<id_t>(thread), kBackgroundBandPriority) < 0 &&
        failure == 0) {
      failure = errno;
    }
  }
  return failure;
}

void enterIdleClasses(pid_t process) {
  for (pid_t thread : threadsOf(process)) {
    ::syscall(SYS_ioprio_set, IOPRIO_WHO_PROCESS, thread, IOPRIO_PRIO_VALUE(IOPRIO_CLASS_IDLE, 0));
    sched_param none = {};
    ::sched_setscheduler(thread, SCHED_IDLE, &none);
    // It may have been made by a thread that did not have the priority yet.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(thread), kBackgroundBandPriority);
  }
}

}  // namespace hoist::platform
