// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>

namespace hoist::platform {

// Who a process is, by the kernel's word.
struct ProcessIdentity {
  uid_t realUser = 0;
  uid_t effectiveUser = 0;
  uid_t savedUser = 0;
  uid_t fileSystemUser = 0;
  // The capabilities that it has or could make use of.
  std::uint64_t permittedCapabilities = 0;
  // Whether its user may look into it. A process that was given more than its user has, or that
  // keeps a secret and said so (prctl PR_SET_DUMPABLE), is root's to look into.
  bool isOpenToItsUser = false;

  // Nothing if there is no such process. The number must be known to be the process's as long as
  // that matters: better is the form that takes a descriptor of its folder in /proc.
  static std::optional<ProcessIdentity> ofProcess(pid_t process);
  static std::optional<ProcessIdentity> ofProcessFolder(int folder);

  // Whether the process can do nothing that the user could not, and hides nothing from the user.
  bool isWholly(uid_t user) const;
  // Whether root started it set-user-ID to this user, as a helper is launched. Which of the two it
  // is at the moment does not matter.
  bool isRootsOnBehalfOf(uid_t user) const;
};

}  // namespace hoist::platform
