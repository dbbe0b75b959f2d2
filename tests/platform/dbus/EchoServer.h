// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <thread>

#include "platform/dbus/FrameReader.h"

namespace hoist::dbus {

// A connection reduced to the least that real programs need, blocking and unbounded, made of the
// parts under test alone.

// Writes the message whole.
void sendWhole(int socket, const OutgoingMessage& message);
// Waits for the next message; nothing when the peer has closed. Throws ProtocolError.
std::optional<Message> receiveWhole(int socket, FrameReader& reader);

// Listens on a socket file in a folder of its own, for one client after the other, in a thread.
// Answers a.b.Echo with the arguments, Hello and Ping as D-Bus has them, anything else with
// UnknownMethod. Keeps the frames that it got.
class EchoServer {
 public:
  EchoServer();
  ~EchoServer();

  std::string path() const { return folder_ + "/socket"; }
  std::string address() const { return "unix:path=" + path(); }
  // What went wrong so far, and what has come; to be asked after stop().
  const std::string& complaint() const { return complaint_; }
  const std::vector<Bytes>& frames() const { return frames_; }
  void stop();

 private:
  void run();
  void serve(int socket);
  OutgoingMessage answerTo(Message& call);

  std::string folder_;
  FileDescriptor listener_;
  std::string complaint_;
  std::vector<Bytes> frames_;
  std::thread thread_;
};

}  // namespace hoist::dbus
