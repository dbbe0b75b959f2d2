// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <optional>

#include "platform/UserIdentity.h"

namespace hoist::sample {

// The user that stands behind this process: its real user. Started by a daemon (real user a client,
// effective user root), that is the client.
platform::UserIdentity realUser();

// While one lives, the calling thread reaches files with the real user's rights only. Without
// effect where real and effective user are one. Throws SystemCallError when the identity cannot be
// taken.
class RealUsersFileRights {
 public:
  RealUsersFileRights();

 private:
  std::optional<platform::UsersFileRights> rights_;
};

// Gives up, for good, everything that only attaching needed: a root process becomes the real user,
// or nobody when that is root too, with no capability and no way back. Its first call changes the
// user of all threads of the process; what the kernel keeps per thread it changes for the calling
// one, so every thread calls it. Throws Refusal when the kernel does not let go.
void dropRights();

// Ceilings on memory, processor time, file size, core files and children for the whole process. The
// duration is that of the sampling.
void limitResources(std::chrono::milliseconds duration);

}  // namespace hoist::sample
