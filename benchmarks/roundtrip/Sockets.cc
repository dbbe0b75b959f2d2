// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "roundtrip/Sockets.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <stdexcept>

#include "platform/SystemCall.h"
#include "support/PeerProcess.h"

namespace hoist::bench {
namespace {

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw std::length_error("socket path too long");
  std::copy(path.begin(), path.end(), address.sun_path);
  return address;
}

FileDescriptor streamSocket() {
  return FileDescriptor(
      systemCall("socket", [] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }));
}

}  // namespace

FileDescriptor connectedSocket(const std::string& path) {
  FileDescriptor client = streamSocket();
  const sockaddr_un address = addressOf(path);
  systemCall("connect", [&] {
    return ::connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  });
  return client;
}

FileDescriptor firstConnection(const std::string& path) {
  FileDescriptor listener = streamSocket();
  const sockaddr_un address = addressOf(path);
  systemCall("bind", [&] {
    return ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  });
  systemCall("listen", [&] { return ::listen(listener.get(), 8); });
  PeerProcess::sayReady();
  return FileDescriptor(systemCall(
      "accept4", [&] { return ::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC); }));
}

}  // namespace hoist::bench
