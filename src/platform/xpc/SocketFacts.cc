// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/SocketFacts.h"

#include <sys/socket.h>

namespace hoist::xpc {
namespace {

// The option's value, or -1 for what is no socket.
int option(int descriptor, int name) {
  int value = -1;
  socklen_t size = sizeof value;
  return ::getsockopt(descriptor, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

}  // namespace

bool isUnixSocket(int descriptor, int type) {
  return option(descriptor, SO_DOMAIN) == AF_UNIX && option(descriptor, SO_TYPE) == type &&
         option(descriptor, SO_ACCEPTCONN) == 0;
}

bool isConnectedStream(int descriptor) {
  sockaddr_storage address;
  socklen_t size = sizeof address;
  return isUnixSocket(descriptor, SOCK_STREAM) &&
         ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&address), &size) == 0;
}

bool isListeningStream(int descriptor) {
  return option(descriptor, SO_DOMAIN) == AF_UNIX && option(descriptor, SO_TYPE) == SOCK_STREAM &&
         option(descriptor, SO_ACCEPTCONN) == 1;
}

}  // namespace hoist::xpc
