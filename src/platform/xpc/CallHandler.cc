// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/CallHandler.h"

#include <fmt/format.h>

#include "platform/Trouble.h"
#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"
#include "platform/dbus/Names.h"
#include "platform/xpc/Introspection.h"
#include "platform/xpc/OperationRefused.h"
#include "platform/xpc/StandardCalls.h"

namespace hoist::xpc {
namespace {

constexpr std::string_view kObjectPath = "/";

// A call that is refused with an error reply of this name.
struct Refusal {
  std::string_view error;
  std::string text;
};

// Of a call without an interface.
Refusal unknown(const dbus::Message& call) {
  if (call.path() == kObjectPath || call.path() == dbus::names::kBusPath) {
    return {dbus::errors::kUnknownMethod,
            fmt::format("there is no operation {} here", call.member())};
  }
  return {dbus::errors::kUnknownObject, fmt::format("there is no object {} here", call.path())};
}

// The peer that waits for the values of a reply.
class RemoteReply final : public ReplyTarget {
 public:
  RemoteReply(Ref<const CallHandler::SendAnswer> sendAnswer, std::size_t maximumSize,
              bool takesDescriptors, const dbus::Message& call, const Method& method)
      : sendAnswer_(std::move(sendAnswer)),
        maximumSize_(maximumSize),
        takesDescriptors_(takesDescriptors),
        expected_(call.replyExpected()),
        serial_(call.serial()),
        method_(method) {}

  void answer(const std::function<void(ArgumentWriter&)>& writeValues) override {
    if (!expected_) return;
    (*sendAnswer_)(encode(writeValues));
  }

 private:
  dbus::OutgoingMessage encode(const std::function<void(ArgumentWriter&)>& writeValues) const {
    dbus::Header header;
    header.type = dbus::MessageType::kMethodReturn;
    header.flags = dbus::kNoReplyExpected;
    header.replySerial = serial_;
    header.signature = method_.resultSignature;
    try {
      dbus::MessageWriter message(header, maximumSize_);
      ArgumentWriter writer(message);
      writeValues(writer);
      auto answer = message.finish();
      if (takesDescriptors_ || answer.descriptors.empty()) return answer;
      return dbus::makeError(serial_, dbus::errors::kNotSupported,
                             "the answer holds descriptors, which were not agreed on");
    } catch (const std::exception& exception) {
      auto text =
          fmt::format("the reply of {} could not be sent: {}", method_.selector, exception.what());
      platform::reportTrouble(platform::Severity::Failure, text);
      return dbus::makeError(serial_, dbus::errors::kFailed, text);
    }
  }

  const Ref<const CallHandler::SendAnswer> sendAnswer_;
  const std::size_t maximumSize_;
  const bool takesDescriptors_;
  const bool expected_;
  const std::uint32_t serial_;
  const Method& method_;
};

}  // namespace

CallHandler::CallHandler(SendAnswer sendAnswer, Caller caller, std::string serviceName,
                         std::size_t maximumSize)
    : sendAnswer_(std::make_shared<const SendAnswer>(std::move(sendAnswer))),
      caller_(std::move(caller)),
      serviceName_(std::move(serviceName)),
      maximumSize_(maximumSize) {}

void CallHandler::setInterface(Ref<Interface> interface) {
  // What is replaced is let go outside of the lock.
  SpinLockHolder lock(lock_);
  export_.interface.swap(interface);
}

Ref<Interface> CallHandler::interface() const {
  return exported().interface;
}

void CallHandler::setObject(Ref<Exportable> object) {
  SpinLockHolder lock(lock_);
  export_.object.swap(object);
}

Ref<Exportable> CallHandler::object() const {
  return exported().object;
}

CallHandler::Export CallHandler::exported() const {
  SpinLockHolder lock(lock_);
  return export_;
}

void CallHandler::handle(dbus::Message call) {
  Export current = exported();
  try {
    bool isNamed = !call.interface().empty();
    if (isNamed && answerStandard(call, current)) return;
    const Method* method = findMethod(call, current);
    if (method) {
      invoke(call, current, *method);
    } else if (!answerStandard(call, current)) {
      throw unknown(call);
    }
  } catch (const Refusal& refusal) {
    refuse(call, refusal.error, refusal.text);
  } catch (const dbus::TypeError& error) {
    refuse(call, dbus::errors::kInvalidArgs, error.what());
  } catch (const DecodeError& error) {
    refuse(call, dbus::errors::kInvalidArgs, error.what());
  }
}

// Nothing for a call without an interface that the exported object does not know either.
const Method* CallHandler::findMethod(const dbus::Message& call, const Export& exported) const {
  bool isNamed = !call.interface().empty();
  if (call.path() != kObjectPath || !exported.interface || !exported.object) {
    if (!isNamed) return nullptr;
    throw Refusal{dbus::errors::kUnknownObject,
                  fmt::format("there is no object {} with {} here", call.path(), call.interface())};
  }
  const Protocol& protocol = exported.interface->protocol();
  const Method* method = nullptr;
  if (!isNamed) {
    method = protocol.methodWithMember(call.member());
  } else if (auto adopted = protocol.protocolWithInterfaceName(call.interface())) {
    method = adopted->ownMethodWithMember(call.member());
  } else {
    throw Refusal{dbus::errors::kUnknownInterface,
                  fmt::format("the object has no interface {}", call.interface())};
  }
  if (method && method->optional && !exported.object->respondsToSelector(method->selector)) {
    method = nullptr;
  }
  if (method || !isNamed) return method;
  throw Refusal{dbus::errors::kUnknownMethod,
                fmt::format("{} has no operation {}", call.interface(), call.member())};
}

bool CallHandler::answerStandard(dbus::Message& call, const Export& exported) {
  auto introspect = [&] {
    return introspectionText(exported.interface ? &exported.interface->protocol() : nullptr,
                             exported.object.get());
  };
  auto answer =
      answerStandardCall(call, {caller_.uniqueName, serviceName_, caller_.user, introspect});
  if (answer && call.replyExpected()) (*sendAnswer_)(std::move(*answer));
  return answer.has_value();
}

void CallHandler::invoke(dbus::Message& call, const Export& exported, const Method& method) {
  if (call.signature() != method.argumentSignature) {
    throw dbus::TypeError(fmt::format("{} takes ({}), not ({})", method.member,
                                      method.argumentSignature, call.signature()));
  }
  dbus::MessageReader message(call);
  ArgumentReader reader(message, *exported.interface, method, false);
  Ref<ReplyTarget> target;
  if (method.hasReply) {
    target = std::make_shared<RemoteReply>(sendAnswer_, maximumSize_, caller_.takesDescriptors,
                                           call, method);
  }
  try {
    method.invoke(*exported.object, reader, target);
  } catch (const OperationRefused& refusal) {
    throw Refusal{dbus::errors::kLimitsExceeded, refusal.what()};
  } catch (const std::exception& exception) {
    // What is thrown before the arguments were read is the message's fault.
    if (!reader.isFinished()) throw;
    platform::reportTrouble(platform::Severity::Failure,
                            fmt::format("{} raised: {}", method.selector, exception.what()));
  } catch (...) {
    platform::reportTrouble(platform::Severity::Failure,
                            method.selector + " raised something that is no exception");
  }
  if (!method.hasReply) answerEmpty(call);
}

void CallHandler::refuse(const dbus::Message& call, std::string_view error,
                         const std::string& text) const {
  // Client libraries ask for more of the standard interfaces than this object has.
  if (!call.interface().starts_with("org.freedesktop.DBus.")) caller_.reportRefusal(text);
  if (call.replyExpected()) (*sendAnswer_)(dbus::makeError(call.serial(), error, text));
}

void CallHandler::answerEmpty(const dbus::Message& call) const {
  if (call.replyExpected()) {
    (*sendAnswer_)(dbus::MessageWriter(dbus::methodReturn(call)).finish());
  }
}

}  // namespace hoist::xpc
