// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include <stdexcept>

namespace hoist {

// The calling thread is an ordinary user while this lives; only for tests that run as root. The
// raw call changes this thread alone.
class AsUser {
 public:
  explicit AsUser(uid_t user) { become(user); }
  ~AsUser() { become(0); }
  AsUser(const AsUser&) = delete;
  AsUser& operator=(const AsUser&) = delete;

 private:
  static void become(uid_t user) {
    constexpr uid_t kUnchanged = static_cast<uid_t>(-1);
    if (::syscall(SYS_setresuid, kUnchanged, user, kUnchanged) != 0)
      throw std::runtime_error("cannot change the user");
  }
};

}  // namespace hoist
