// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/StandardCalls.h"

#include <fmt/format.h>
#include <unistd.h>

#include "platform/dbus/Guid.h"
#include "platform/dbus/Names.h"

namespace hoist::xpc {
namespace {

using dbus::OutgoingMessage;

void requireSignature(const dbus::Message& call, std::string_view signature) {
  if (call.signature() == signature) return;
  throw dbus::TypeError(
      fmt::format("{} takes ({}), not ({})", call.member(), signature, call.signature()));
}

OutgoingMessage emptyAnswer(const dbus::Message& call) {
  return dbus::MessageWriter(dbus::methodReturn(call)).finish();
}

OutgoingMessage textAnswer(const dbus::Message& call, std::string_view text) {
  dbus::MessageWriter writer(dbus::methodReturn(call, "s"));
  writer.appendString(text);
  return writer.finish();
}

OutgoingMessage error(const dbus::Message& call, std::string_view name, std::string_view text) {
  return dbus::makeError(call.serial(), name, text);
}

// Who a name stands for on this connection.
enum class Owner { kPeer, kThisSide, kNobody };
Owner ownerOf(std::string_view name, const ConnectionFacts& facts) {
  if (name == facts.uniqueName) return Owner::kPeer;
  if (name == dbus::names::kBus || (!name.empty() && name == facts.serviceName))
    return Owner::kThisSide;
  return Owner::kNobody;
}

OutgoingMessage answerNameCall(dbus::Message& call, const ConnectionFacts& facts) {
  requireSignature(call, "s");
  dbus::MessageReader reader(call);
  std::string_view name = reader.readString();
  Owner owner = ownerOf(name, facts);
  if (call.member() == "NameHasOwner") {
    dbus::MessageWriter writer(dbus::methodReturn(call, "b"));
    writer.appendBoolean(owner != Owner::kNobody);
    return writer.finish();
  }
  if (owner == Owner::kNobody) {
    return error(call, dbus::errors::kNameHasNoOwner, fmt::format("nobody here is '{}'", name));
  }
  if (call.member() == "GetNameOwner") return textAnswer(call, name);
  dbus::MessageWriter writer(dbus::methodReturn(call, "u"));
  writer.appendUInt32(owner == Owner::kPeer ? facts.peerUser : ::geteuid());
  return writer.finish();
}

std::optional<OutgoingMessage> answerBusCall(dbus::Message& call, const ConnectionFacts& facts) {
  auto member = call.member();
  if (member == "Hello") {
    requireSignature(call, "");
    return textAnswer(call, facts.uniqueName);
  }
  if (member == "AddMatch" || member == "RemoveMatch") {
    requireSignature(call, "s");
    return emptyAnswer(call);
  }
  if (member == "GetNameOwner" || member == "NameHasOwner" || member == "GetConnectionUnixUser") {
    return answerNameCall(call, facts);
  }
  return std::nullopt;
}

std::optional<OutgoingMessage> answerPeerCall(const dbus::Message& call) {
  if (call.member() == "Ping") {
    requireSignature(call, "");
    return emptyAnswer(call);
  }
  if (call.member() == "GetMachineId") {
    requireSignature(call, "");
    return textAnswer(call, dbus::machineId());
  }
  return std::nullopt;
}

std::optional<OutgoingMessage> answerIntrospectableCall(const dbus::Message& call,
                                                        const ConnectionFacts& facts) {
  if (call.member() != "Introspect") return std::nullopt;
  requireSignature(call, "");
  return textAnswer(call, facts.introspect());
}

}  // namespace

std::optional<OutgoingMessage> answerStandardCall(dbus::Message& call,
                                                  const ConnectionFacts& facts) {
  auto interface = call.interface();
  std::optional<OutgoingMessage> answer;
  if (interface.empty()) {
    if (call.path() == dbus::names::kBusPath) answer = answerBusCall(call, facts);
    if (!answer) answer = answerPeerCall(call);
    if (!answer && call.path() == "/") answer = answerIntrospectableCall(call, facts);
    return answer;
  }
  bool isPeer = interface == dbus::names::kPeer;
  bool isIntrospectable = interface == dbus::names::kIntrospectable && call.path() == "/";
  bool isBus = interface == dbus::names::kBus && call.path() == dbus::names::kBusPath;
  if (!isPeer && !isIntrospectable && !isBus) return std::nullopt;
  if (isPeer) answer = answerPeerCall(call);
  if (isIntrospectable) answer = answerIntrospectableCall(call, facts);
  if (isBus) answer = answerBusCall(call, facts);
  if (answer) return answer;
  return error(call, dbus::errors::kUnknownMethod,
               fmt::format("{} has no operation {} here", interface, call.member()));
}

}  // namespace hoist::xpc
