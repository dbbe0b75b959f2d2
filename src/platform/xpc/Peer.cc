// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Peer.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "platform/SystemCall.h"
#include "platform/dbus/Names.h"

// Of Linux 6.5, newer than the C library's headers.
#ifndef SO_PEERPIDFD
#define SO_PEERPIDFD 77
#endif

namespace hoist::xpc {
namespace {

// What the process runs, or nothing when that cannot be known.
std::string executableOf(pid_t process) {
  char target[1024];
  auto link = fmt::format("/proc/{}/exe", process);
  auto size = ::readlink(link.c_str(), target, sizeof target);
  if (size <= 0) return {};
  return dbus::mendedText({target, static_cast<std::size_t>(size)});
}

}  // namespace

Peer Peer::ofSocket(int socket) {
  ucred credentials;
  socklen_t size = sizeof credentials;
  systemCall("getsockopt",
             [&] { return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size); });
  return {credentials.uid, credentials.gid, credentials.pid};
}

FileDescriptor Peer::processDescriptorOfSocket(int socket) {
  int descriptor = -1;
  socklen_t size = sizeof descriptor;
  if (::getsockopt(socket, SOL_SOCKET, SO_PEERPIDFD, &descriptor, &size) < 0) return {};
  return FileDescriptor(descriptor);
}

bool Peer::isRunning(int socket) {
  auto process = processDescriptorOfSocket(socket);
  if (!process) return errno == ENOPROTOOPT;
  pollfd end{process.get(), POLLIN, 0};
  return retryInterrupted([&] { return ::poll(&end, 1, 0); }) == 0;
}

std::string Peer::description() const {
  auto text = fmt::format("user {}, process {}", user, process);
  auto executable = executableOf(process);
  return executable.empty() ? text : text + " (" + executable + ")";
}

}  // namespace hoist::xpc
