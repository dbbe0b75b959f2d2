// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// The tool is started in three ways: by root, by an ordinary user for a process of its own, and by
// the daemon with real user the client's and effective user root. In all of them it writes what the
// real user may write and, from the moment it is attached, is nothing more than the real user. Root
// itself becomes nobody, because uid 0 without capabilities still owns half the system's files.
//
// A traced thread stays traced when its tracer loses its rights, and open descriptors of /proc keep
// working: nothing later needs them.
#include "sample/Rights.h"

#include <fmt/format.h>
#include <grp.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>

#include "platform/SystemCall.h"
#include "sample/Refusal.h"

namespace hoist::sample {
namespace {

// The kernel's own overflow identity (/proc/sys/kernel/overflowuid): owns nothing.
constexpr uid_t kNobody = 65534;

constexpr rlim_t kMiB = 1024 * 1024;
// Room for the symbols of the largest programs known (a browser's are some hundred MiB); picked.
[[maybe_unused]] constexpr rlim_t kMemoryLimit = 1024 * kMiB;
constexpr rlim_t kFileSizeLimit = 256 * kMiB;
// What reading symbols may take beyond half of the sampling time.
constexpr rlim_t kProcessorSecondsForSymbols = 60;

bool isSetUserID() {
  return ::getuid() != ::geteuid();
}

// Lowers both limits; a limit that is lower already stays.
void lowerLimit(__rlimit_resource resource, rlim_t soft, rlim_t hard) {
  rlimit limit;
  if (::getrlimit(resource, &limit) != 0) return;
  limit.rlim_max = std::min(limit.rlim_max, hard);
  limit.rlim_cur = std::min({limit.rlim_cur, soft, limit.rlim_max});
  ::setrlimit(resource, &limit);
}

void raiseDescriptorLimit() {
  rlimit limit;
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

void becomeUser(uid_t user, gid_t group, const std::vector<gid_t>& groups) {
  systemCall("setgroups", [&] { return ::setgroups(groups.size(), groups.data()); });
  systemCall("setresgid", [&] { return ::setresgid(group, group, group); });
  systemCall("setresuid", [&] { return ::setresuid(user, user, user); });
}

void leaveRoot() {
  if (const platform::UserIdentity user = realUser(); user.user != 0) {
    becomeUser(user.user, user.group, user.groups);
    return;
  }
  // Inside a user namespace there may be no nobody; then losing the capabilities must do.
  try {
    becomeUser(kNobody, kNobody, {});
  } catch (const SystemCallError& error) {
    if (error.number() != EINVAL && error.number() != EPERM) throw;
  }
}

void clearCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
  systemCall("capset", [&] { return ::syscall(SYS_capset, &header, none); });
}

}  // namespace

platform::UserIdentity realUser() {
  return platform::UserIdentity::ofUser(::getuid());
}

RealUsersFileRights::RealUsersFileRights() {
  if (isSetUserID()) rights_.emplace(realUser());
}

void dropRights() {
  // Once: the C library changes users for all threads together and ends the process when one of
  // them is refused, as a thread without capabilities would be.
  static std::once_flag& left = *new std::once_flag;
  std::call_once(left, [] {
    if (::geteuid() == 0) leaveRoot();
    uid_t user = ::getuid();
    systemCall("setresuid", [&] { return ::setresuid(user, user, user); });
  });
  clearCapabilities();
  systemCall("prctl", [] { return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0); });
  if (::setresuid(static_cast<uid_t>(-1), 0, static_cast<uid_t>(-1)) == 0 && ::getuid() != 0) {
    throw Refusal("the rights of root could not be given up");
  }
}

void limitResources(std::chrono::milliseconds duration) {
  raiseDescriptorLimit();
  lowerLimit(RLIMIT_CORE, 0, 0);
  lowerLimit(RLIMIT_FSIZE, kFileSizeLimit, kFileSizeLimit);
  auto seconds = static_cast<rlim_t>(duration.count() / 2000) + kProcessorSecondsForSymbols;
  // Past the soft limit comes SIGXCPU, which the watchdog answers; past the hard one the end.
  lowerLimit(RLIMIT_CPU, seconds, seconds + 5);
  // A tracer that runs with real-time priority (Tracer) and does not stop to wait has gone wrong.
  lowerLimit(RLIMIT_RTTIME, 500'000, 1'000'000);
#ifndef HOIST_SANITIZED  // a sanitizer's shadow memory is terabytes of address space
  lowerLimit(RLIMIT_AS, kMemoryLimit, kMemoryLimit);
#endif
}

}  // namespace hoist::sample
