// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <vector>

namespace hoist::platform {

// A user with the groups that the user database gives it.
struct UserIdentity {
  uid_t user = 0;
  gid_t group = 0;
  std::vector<gid_t> groups;

  // A user without an entry in the database is in nobody's group and in no other.
  static UserIdentity ofUser(uid_t user);
  // Whose rights to files the calling thread has.
  static UserIdentity ofThread();

  friend bool operator==(const UserIdentity&, const UserIdentity&) = default;
};

// While one lives, the calling thread, and no other, reaches files with the user's rights and
// nothing more: a path that is swapped meanwhile can hit nothing that the user could not. A thread
// that is begun meanwhile inherits them for good: begin none. Only root can make one. Throws
// SystemCallError when the identity cannot be taken.
class UsersFileRights {
 public:
  explicit UsersFileRights(const UserIdentity& user);
  ~UsersFileRights();
  UsersFileRights(const UsersFileRights&) = delete;
  UsersFileRights& operator=(const UsersFileRights&) = delete;

 private:
  void restore() noexcept;

  std::vector<gid_t> groups_;
  gid_t group_;
  uid_t user_;
};

}  // namespace hoist::platform
