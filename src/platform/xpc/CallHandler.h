// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "platform/Mutex.h"
#include "platform/dbus/Message.h"
#include "platform/xpc/Interface.h"

namespace hoist::xpc {

// Answers the calls of one connection: those of the exported object, which stands at the path "/",
// and those that every D-Bus object has. handle() belongs to the connection's thread, the rest may
// be used from any.
class CallHandler {
 public:
  // Sends an answer, from any thread; kept by replies that outlive the connection.
  using SendAnswer = std::function<void(dbus::OutgoingMessage)>;

  struct Caller {
    std::string uniqueName;  // what Hello answers
    uid_t user;
    bool takesDescriptors;  // it has agreed to get some
    // Told of every call that is refused, with the reason.
    std::function<void(std::string_view)> reportRefusal;
  };
  // serviceName: this side's, or empty. maximumSize: bytes of an answer.
  CallHandler(SendAnswer sendAnswer, Caller caller, std::string serviceName,
              std::size_t maximumSize);

  void setInterface(Ref<Interface> interface);
  Ref<Interface> interface() const;
  void setObject(Ref<Exportable> object);
  Ref<Exportable> object() const;

  // Answers the call, or calls the operation that will. Whatever the operation throws is reported.
  void handle(dbus::Message call);

 private:
  struct Export {
    Ref<Interface> interface;
    Ref<Exportable> object;
  };

  Export exported() const;
  const Method* findMethod(const dbus::Message& call, const Export& exported) const;
  bool answerStandard(dbus::Message& call, const Export& exported);
  void invoke(dbus::Message& call, const Export& exported, const Method& method);
  void refuse(const dbus::Message& call, std::string_view error, const std::string& text) const;
  void answerEmpty(const dbus::Message& call) const;

  const Ref<const SendAnswer> sendAnswer_;
  const Caller caller_;
  const std::string serviceName_;
  const std::size_t maximumSize_;
  mutable SpinLock lock_;
  Export export_ GUARDED_BY(lock_);
};

}  // namespace hoist::xpc
