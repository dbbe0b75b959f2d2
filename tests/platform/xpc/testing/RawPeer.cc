// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/testing/RawPeer.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <exception>
#include <stdexcept>
#include <thread>

#include "platform/SystemCall.h"
#include "platform/dbus/SocketIO.h"

namespace hoist::xpc {
namespace {

constexpr int kPatience = 60'000;  // milliseconds

FileDescriptor connectTo(const std::string& path) {
  FileDescriptor socket(
      systemCall("socket", [] { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  systemCall(
      "connect",
      [&] {
        return ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address);
      },
      path);
  return socket;
}

}  // namespace

RawPeer::RawPeer(const std::string& path) : RawPeer(connectTo(path)) {}

RawPeer RawPeer::asUser(uid_t user, const std::string& path) {
  FileDescriptor socket;
  std::exception_ptr failure;
  // The raw call changes the user of its thread alone.
  std::thread([&] {
    try {
      systemCall("setresuid", [&] { return ::syscall(SYS_setresuid, user, user, user); });
      socket = connectTo(path);
    } catch (...) {
      failure = std::current_exception();
    }
  }).join();
  if (failure) std::rethrow_exception(failure);
  return RawPeer(std::move(socket));
}

bool RawPeer::send(std::string_view bytes, const std::vector<int>& descriptors) {
  dbus::OutgoingMessage message;
  message.bytes.assign(bytes.begin(), bytes.end());
  for (int descriptor : descriptors) {
    message.descriptors.push_back(FileDescriptor::duplicate(descriptor));
  }
  return send(message);
}

bool RawPeer::send(const dbus::OutgoingMessage& message) {
  for (std::size_t sent = 0; sent < message.bytes.size();) {
    auto step = dbus::send(socket(), message, sent);
    if (step.status != dbus::IOStatus::kDone) return false;
    sent += step.size;
  }
  return true;
}

bool RawPeer::isTaken() const {
  int waiting = 0;
  systemCall("ioctl", [&] { return ::ioctl(socket(), SIOCOUTQ, &waiting); });
  return waiting == 0;
}

bool RawPeer::waitForInput() {
  pollfd input{socket(), POLLIN, 0};
  if (::poll(&input, 1, kPatience) == 0) throw std::runtime_error("the other side stays silent");
  return true;
}

std::optional<std::string> RawPeer::readLine() {
  for (;;) {
    auto end = text_.find("\r\n");
    if (end != std::string::npos) {
      auto line = text_.substr(0, end);
      text_.erase(0, end + 2);
      return line;
    }
    waitForInput();
    // One by one: what follows the authentication are messages.
    char byte;
    if (::recv(socket(), &byte, 1, 0) <= 0) return std::nullopt;
    text_ += byte;
  }
}

std::optional<dbus::Message> RawPeer::readMessage() {
  for (;;) {
    if (auto message = reader_.next()) return message;
    waitForInput();
    auto got = dbus::receive(socket(), reader_.space(), 253);
    if (got.status != dbus::IOStatus::kDone) return std::nullopt;
    reader_.received(got.size, std::move(got.descriptors));
  }
}

std::size_t RawPeer::readToEnd() {
  std::vector<char> buffer(1 << 16);
  std::size_t total = 0;
  for (;;) {
    waitForInput();
    auto got = ::recv(socket(), buffer.data(), buffer.size(), 0);
    if (got <= 0) return total;
    total += static_cast<std::size_t>(got);
  }
}

bool RawPeer::isClosed() {
  readToEnd();
  return true;
}

RawPeer& RawPeer::authenticate() {
  send(kExchange);
  for (const char* expected : {"DATA", "OK ", "AGREE_UNIX_FD"}) {
    auto line = readLine();
    if (!line || !line->starts_with(expected)) {
      throw std::runtime_error("authentication: " + line.value_or("the end") + " for " + expected);
    }
  }
  return *this;
}

dbus::OutgoingMessage rawCall(const RawCall& call, std::uint32_t serial) {
  return rawCall(call, serial, [](dbus::MessageWriter&) {});
}

dbus::OutgoingMessage rawBarrier(std::uint32_t serial) {
  return rawCall({.interface = "com.kelvo.Greeting", .member = "barrierWithCompletion_"}, serial);
}

std::string_view textOf(const dbus::OutgoingMessage& message) {
  return {reinterpret_cast<const char*>(message.bytes.data()), message.bytes.size()};
}

}  // namespace hoist::xpc
