// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"

namespace hoist::xpc {

// What the standard operations tell of a connection.
struct ConnectionFacts {
  std::string uniqueName;   // the peer's, as Hello answers it
  std::string serviceName;  // this side's; empty for none
  uid_t peerUser;
  std::function<std::string()> introspect;
};

// Answers the operations that every D-Bus object has: Ping and GetMachineId of Peer at any path,
// Introspect at "/", and at "/org/freedesktop/DBus" those that client libraries ask of a bus, with
// what is true of this connection. Nothing for another call; the error for one that belongs to one
// of these interfaces and is none of these. Throws dbus::TypeError for wrong arguments.
std::optional<dbus::OutgoingMessage> answerStandardCall(dbus::Message& call,
                                                        const ConnectionFacts& facts);

}  // namespace hoist::xpc
