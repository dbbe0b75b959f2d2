// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/xpc/Interface.h"
#include "values/ClassRegistry.h"
#include "values/Object.h"

namespace hoist {

// The one place that knows the helper tool's commands: which class implements each, through which
// protocol it is driven, what it is called for people and whether it must run as root. For the
// client application and the helper tool; the daemon does not consult it.
//
// Class operations over fixed tables, safe to use from any thread. Names are compared exactly, with
// case. A command object derives from it to learn its own name.
class CommandInfo : public Object {
 public:
  // Nothing for an unknown name.
  static std::optional<std::string> classNameForCommandName(std::string_view commandName);
  // What the class registry knows of that class; nothing when the name is unknown or the program
  // has no such class.
  static std::optional<ClassInfo> classForCommandName(std::string_view commandName);
  // CommandMessaging for an unknown name.
  static const xpc::Protocol& protocolForName(std::string_view commandName);
  // A new interface with that protocol and the classes that its arguments may carry, those left out
  // that this program does not have.
  static Ref<xpc::Interface> interfaceForName(std::string_view commandName);
  // "Command" for an unknown name.
  static std::string humanReadableNameForCommandName(std::string_view commandName);
  static bool commandNeedsPrivileges(std::string_view commandName);

  // The command that the receiver's class implements; nothing for a class that is not listed.
  std::optional<std::string> commandName() const;
};

}  // namespace hoist
