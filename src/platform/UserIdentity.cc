// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// The kernel keeps user, group and groups for each thread; it is the C library that changes them in
// all threads at once. The identity for files has calls of its own that do not; for the groups the
// system call itself is made.
#include "platform/UserIdentity.h"

#include <grp.h>
#include <pwd.h>
#include <sys/fsuid.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "platform/SystemCall.h"

namespace hoist::platform {
namespace {

// The kernel's overflow group (/proc/sys/kernel/overflowgid): owns nothing.
constexpr gid_t kNobodysGroup = 65534;
constexpr std::size_t kLongestEntry = 1024 * 1024;

void setGroupsOfThread(const std::vector<gid_t>& groups) {
  systemCall("setgroups", [&] { return ::syscall(SYS_setgroups, groups.size(), groups.data()); });
}

std::vector<gid_t> groupsOfThread() {
  const int count = systemCall("getgroups", [] { return ::getgroups(0, nullptr); });
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  systemCall("getgroups", [&] { return ::getgroups(count, groups.data()); });
  return groups;
}

// setfsuid and setfsgid answer the identity that was in force before, never a failure; asked for an
// impossible one they change nothing.
uid_t fileUser() {
  return static_cast<uid_t>(::setfsuid(static_cast<uid_t>(-1)));
}
gid_t fileGroup() {
  return static_cast<gid_t>(::setfsgid(static_cast<gid_t>(-1)));
}

}  // namespace

UserIdentity UserIdentity::ofUser(uid_t user) {
  UserIdentity identity{user, kNobodysGroup, {}};
  std::vector<char> buffer(16 * 1024);
  passwd entry;
  passwd* found = nullptr;
  while (::getpwuid_r(user, &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
         buffer.size() < kLongestEntry) {
    buffer.resize(buffer.size() * 2);
  }
  if (found == nullptr) return identity;
  identity.group = entry.pw_gid;
  int count = 64;
  do {
    identity.groups.resize(static_cast<std::size_t>(count));
  } while (::getgrouplist(entry.pw_name, entry.pw_gid, identity.groups.data(), &count) < 0);
  identity.groups.resize(static_cast<std::size_t>(count));
  return identity;
}

UserIdentity UserIdentity::ofThread() {
  return {fileUser(), fileGroup(), groupsOfThread()};
}

UsersFileRights::UsersFileRights(const UserIdentity& user)
    : groups_(groupsOfThread()), group_(fileGroup()), user_(fileUser()) {
  setGroupsOfThread(user.groups);
  ::setfsgid(user.group);
  ::setfsuid(user.user);
  if (fileUser() == user.user && fileGroup() == user.group) return;
  restore();
  errno = EPERM;
  throwSystemCallError("setfsuid");
}

UsersFileRights::~UsersFileRights() {
  restore();
}

void UsersFileRights::restore() noexcept {
  ::setfsuid(user_);
  ::setfsgid(group_);
  ::syscall(SYS_setgroups, groups_.size(), groups_.data());
}

}  // namespace hoist::platform
