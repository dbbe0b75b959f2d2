// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "EchoServer.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "CopyValues.h"
#include "platform/SystemCall.h"
#include "platform/dbus/Guid.h"
#include "platform/dbus/Names.h"
#include "platform/dbus/Sasl.h"
#include "platform/dbus/SocketIO.h"

namespace hoist::dbus {

namespace {

std::string_view asText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

void sendText(int socket, std::string_view text) {
  OutgoingMessage message{Bytes(text.begin(), text.end()), {}};
  sendWhole(socket, message);
}

// Answers false if the peer went away or failed. The bytes behind the exchange are put into the
// reader.
bool authenticate(int socket, FrameReader& reader) {
  SaslServer sasl(geteuid(), makeGuid());
  for (;;) {
    Bytes space(4096);
    Received received = receive(socket, space);
    if (received.status != IOStatus::kDone) return false;
    auto bytes = std::span(space).first(received.size);
    SaslStep step = sasl.receive(asText(bytes));
    sendText(socket, step.reply);
    if (step.state == SaslState::kFailed) throw ProtocolError(std::string(sasl.failure()));
    if (step.state == SaslState::kNeedMore) {
      if (!received.descriptors.empty()) throw ProtocolError("descriptors before authentication");
      continue;
    }
    reader.append(bytes.subspan(step.consumed), std::move(received.descriptors));
    return true;
  }
}

}  // namespace

void sendWhole(int socket, const OutgoingMessage& message) {
  std::size_t offset = 0;
  while (offset < message.bytes.size()) {
    Sent sent = send(socket, message, offset);
    if (sent.status != IOStatus::kDone) throw SystemCallError(sent.error, "sendmsg", "");
    offset += sent.size;
  }
}

std::optional<Message> receiveWhole(int socket, FrameReader& reader) {
  for (;;) {
    if (auto message = reader.next()) return message;
    Received received = receive(socket, reader.space());
    if (received.status == IOStatus::kFailed && received.error == EMSGSIZE) {
      throw ProtocolError("too many descriptors at once");
    }
    if (received.status != IOStatus::kDone) return std::nullopt;
    reader.received(received.size, std::move(received.descriptors));
  }
}

EchoServer::EchoServer() {
  folder_ = std::filesystem::temp_directory_path() / "hoist-dbus.XXXXXX";
  if (!mkdtemp(folder_.data())) throwSystemCallError("mkdtemp", folder_);
  listener_.reset(
      systemCall("socket", [] { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path().c_str(), sizeof address.sun_path - 1);
  const auto* generic = reinterpret_cast<const sockaddr*>(&address);
  systemCall("bind", [&] { return bind(listener_.get(), generic, sizeof address); });
  systemCall("listen", [&] { return listen(listener_.get(), 8); });
  thread_ = std::thread([this] { run(); });
}

EchoServer::~EchoServer() {
  stop();
  std::filesystem::remove_all(folder_);
}

void EchoServer::stop() {
  if (!thread_.joinable()) return;
  shutdown(listener_.get(), SHUT_RDWR);
  thread_.join();
}

void EchoServer::run() {
  for (;;) {
    FileDescriptor client(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!client) return;
    try {
      serve(client.get());
    } catch (const std::exception& error) {
      complaint_ += std::string(error.what()) + "\n";
    }
  }
}

void EchoServer::serve(int socket) {
  FrameReader reader({.messageSize = std::size_t{16} << 20});
  if (!authenticate(socket, reader)) return;
  while (auto message = receiveWhole(socket, reader)) {
    auto frame = message->frame();
    frames_.emplace_back(frame.begin(), frame.end());
    if (message->type() != MessageType::kMethodCall) continue;
    OutgoingMessage answer = answerTo(*message);
    if (message->replyExpected()) sendWhole(socket, answer);
  }
}

OutgoingMessage EchoServer::answerTo(Message& call) {
  if (call.member() == "Echo") {
    MessageWriter writer(methodReturn(call, call.signature()));
    MessageReader reader(call);
    copyValues(reader, writer);
    return writer.finish();
  }
  if (call.member() == "Hello" && call.interface() == names::kBus) {
    MessageWriter writer(methodReturn(call, "s"));
    writer.appendString(":1.1");
    return writer.finish();
  }
  if (call.member() == "Ping" && call.interface() == names::kPeer) {
    return MessageWriter(methodReturn(call)).finish();
  }
  return makeError(call.serial(), errors::kUnknownMethod,
                   "no method " + std::string(call.member()));
}

}  // namespace hoist::dbus
