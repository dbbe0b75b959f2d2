// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/dbus/FrameReader.h"
#include "platform/dbus/MessageWriter.h"

namespace hoist::xpc {

// A client that owns its bytes: it can be as impolite as a test wants. Every wait ends after a
// minute with an exception. One thread at a time.
class RawPeer {
 public:
  // Connects to the socket's path.
  explicit RawPeer(const std::string& path);
  explicit RawPeer(FileDescriptor socket) : socket_(std::move(socket)) {}
  // Connects as another user.
  static RawPeer asUser(uid_t user, const std::string& path);

  int socket() const { return socket_.get(); }
  void close() { socket_.reset(); }

  // Blocks while the socket is full. Answers false when the other side has closed.
  bool send(std::string_view bytes, const std::vector<int>& descriptors = {});
  bool send(const dbus::OutgoingMessage& message);

  // Whether the other side has received all that was sent.
  bool isTaken() const;

  // One line of the authentication, without its end. Nothing at the end of the connection.
  std::optional<std::string> readLine();
  // The next message. Nothing at the end of the connection.
  std::optional<dbus::Message> readMessage();
  // Reads until the other side closes; answers how many bytes came.
  std::size_t readToEnd();
  // Whether the other side has closed; waits for it.
  bool isClosed();

  // The usual exchange, and the server's answers to it read.
  RawPeer& authenticate();
  static constexpr std::string_view kExchange{
      "\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n", 48};

 private:
  bool waitForInput();

  FileDescriptor socket_;
  std::string text_;
  dbus::FrameReader reader_{{dbus::kMaximumMessageSize, 253}};
};

// A call of the test service, its signature and values written by the function.
struct RawCall {
  std::string path = "/";
  std::string interface = "com.kelvo.Talking";
  std::string member;
  std::string signature;
  std::string sender;
  std::uint8_t flags = 0;
};
template <class Write>
dbus::OutgoingMessage rawCall(const RawCall& call, std::uint32_t serial, Write write) {
  auto header =
      dbus::methodCall(call.path, call.interface, call.member, call.signature, call.flags);
  header.sender = call.sender;
  dbus::MessageWriter writer(header);
  write(writer);
  return writer.finish(serial);
}
dbus::OutgoingMessage rawCall(const RawCall& call, std::uint32_t serial = 1);
// barrierWithCompletion:
dbus::OutgoingMessage rawBarrier(std::uint32_t serial = 1);
std::string_view textOf(const dbus::OutgoingMessage& message);

}  // namespace hoist::xpc
