// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Endpoint.h"

#include <poll.h>
#include <sys/socket.h>

#include "platform/SystemCall.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/SocketFacts.h"
#include "values/Coder.h"

namespace hoist::xpc {
namespace {

// How often a sender that finds the listener's queue full looks whether it was cancelled, in
// milliseconds. Picked.
constexpr int kCancelPoll = 100;

}  // namespace

Endpoint Endpoint::fromDescriptor(FileDescriptor descriptor) {
  if (!isUnixSocket(descriptor.get(), SOCK_SEQPACKET)) {
    throw DecodeError("the descriptor is no listener's endpoint");
  }
  return Endpoint(std::move(descriptor));
}

FileDescriptor Endpoint::connect(const std::atomic<bool>* cancelled) const {
  int ends[2];
  systemCall("socketpair",
             [&] { return ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends); });
  FileDescriptor mine(ends[0]);
  dbus::OutgoingMessage request;
  request.bytes = {kConnectRequest};
  request.descriptors.emplace_back(ends[1]);
  for (;;) {
    auto sent = dbus::send(descriptor(), request, 0, MSG_DONTWAIT);
    if (sent.status == dbus::IOStatus::kDone) return mine;
    if (sent.status != dbus::IOStatus::kWouldBlock)
      throw SystemCallError(sent.error, "sendmsg", {});
    pollfd full{descriptor(), POLLOUT, 0};
    systemCall("poll", [&] { return ::poll(&full, 1, kCancelPoll); });
    if (cancelled && *cancelled) throw SystemCallError(ECANCELED, "sendmsg", {});
  }
}

}  // namespace hoist::xpc
