// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <string>

#include "platform/FileDescriptor.h"

namespace hoist::xpc {

// The process at the other end of a socket, by the kernel's word: whoever made the socket's
// connection, with its effective user and group at that moment.
struct Peer {
  uid_t user = static_cast<uid_t>(-1);
  gid_t group = static_cast<gid_t>(-1);
  pid_t process = 0;

  // Throws SystemCallError.
  static Peer ofSocket(int socket);
  // A process descriptor of the peer, which no reuse of its number can turn into another process;
  // empty where the kernel has none (before 6.5, with errno ENOPROTOOPT) or the process is gone.
  static FileDescriptor processDescriptorOfSocket(int socket);
  // Whether the process that made the socket's connection still runs, so that its number is not
  // another's by now. True where the kernel has no process descriptors of peers.
  static bool isRunning(int socket);

  // "user 1000, process 4711 (/usr/bin/example)"; the executable as it is called now, if it can be
  // known.
  std::string description() const;
};

}  // namespace hoist::xpc
