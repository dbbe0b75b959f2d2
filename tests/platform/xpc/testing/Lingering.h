// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "platform/FileDescriptor.h"
#include "platform/SystemCall.h"
#include "platform/xpc/testing/RawPeer.h"

namespace hoist::xpc {

// A TCP socket whose last owner waits an hour in close(2): until the other end takes what was sent,
// or goes.
class Lingering {
 public:
  Lingering() {
    sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}};
    socklen_t size = sizeof address;
    auto* where = reinterpret_cast<sockaddr*>(&address);
    FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sending_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    systemCall("bind", [&] { return ::bind(listener.get(), where, size); });
    systemCall("listen", [&] { return ::listen(listener.get(), 1); });
    systemCall("getsockname", [&] { return ::getsockname(listener.get(), where, &size); });
    systemCall("connect", [&] { return ::connect(sending_.get(), where, size); });
    receiving_.reset(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    std::string data(1 << 16, 'x');
    while (::send(sending_.get(), data.data(), data.size(), MSG_DONTWAIT) > 0) continue;
    linger hour{1, 3600};
    ::setsockopt(sending_.get(), SOL_SOCKET, SO_LINGER, &hour, sizeof hour);
  }
  // Passes it on for good, with some bytes; answers whether the kernel let it pass.
  bool passTo(RawPeer& peer, std::string_view bytes) {
    bool sent = peer.send(bytes, {sending_.get()});
    // Elsewhere, for the case that the other side has closed it already.
    if (sent) closing_ = std::jthread([own = std::move(sending_)]() mutable { own.reset(); });
    return sent;
  }
  // Ends all waiting.
  ~Lingering() {
    linger off{};
    ::setsockopt(sending_.get(), SOL_SOCKET, SO_LINGER, &off, sizeof off);
    receiving_.reset();
  }

 private:
  FileDescriptor sending_;
  FileDescriptor receiving_;
  std::jthread closing_;
};

}  // namespace hoist::xpc
