// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Three tables and the look-ups in them. A rule about the classes of an interface belongs to one
// protocol and reaches every protocol that descends from it: customising climbs from the command's
// protocol to CommandMessaging and applies each level's rule on the way.

#include "connection/CommandInfo.h"

#include <algorithm>
#include <array>

#include "connection/protocols/CaptureCommandMessaging.h"
#include "connection/protocols/CombineCommandMessaging.h"
#include "connection/protocols/CompactCommandMessaging.h"
#include "connection/protocols/CorrectionCommandMessaging.h"
#include "connection/protocols/CreateRepositoryCommandMessaging.h"
#include "connection/protocols/DeleteItemCommandMessaging.h"
#include "connection/protocols/DumpCommandMessaging.h"
#include "connection/protocols/EncryptCommandMessaging.h"
#include "connection/protocols/InstallCommandMessaging.h"
#include "connection/protocols/MergeCommandMessaging.h"
#include "connection/protocols/RecallCommandMessaging.h"
#include "connection/protocols/RepairCommandMessaging.h"
#include "connection/protocols/RestoreCommandMessaging.h"
#include "logging/LogLineIdentifier.h"

namespace hoist {
namespace {

using ProtocolFunction = const xpc::Protocol& (*)();

struct Command {
  std::string_view name;
  std::string_view className;
  ProtocolFunction protocol;
};

// In this order: look-ups take the first match. "delete" removes a layer, "erase" items.
constexpr std::array kCommands{
    Command{"install", "InstallCommand", installCommandMessagingProtocol},
    Command{"create", "CreateRepositoryCommand", createRepositoryCommandMessagingProtocol},
    Command{"capture", "CaptureCommand", captureCommandMessagingProtocol},
    Command{"restore", "RestoreCommand", restoreCommandMessagingProtocol},
    Command{"recall", "RecallCommand", recallCommandMessagingProtocol},
    Command{"merge", "MergeCommand", mergeCommandMessagingProtocol},
    Command{"combine", "CombineCommand", combineCommandMessagingProtocol},
    Command{"delete", "DeleteLayerCommand", repositoryCommandMessagingProtocol},
    Command{"erase", "DeleteItemCommand", deleteItemCommandMessagingProtocol},
    Command{"compact", "CompactCommand", compactCommandMessagingProtocol},
    Command{"verify", "VerifyCommand", repositoryCommandMessagingProtocol},
    Command{"encrypt", "EncryptCommand", encryptCommandMessagingProtocol},
    Command{"correction", "CorrectionCommand", correctionCommandMessagingProtocol},
    Command{"reindex", "ReindexCommand", repositoryCommandMessagingProtocol},
    Command{"repair", "RepairCommand", repairCommandMessagingProtocol},
    Command{"dump", "DumpCommand", dumpCommandMessagingProtocol},
};

struct HumanReadableName {
  std::string_view commandName;
  std::string_view text;
};

// "open" is no command of the helper, but people meet it. That "erase" reads "Delete" and
// "correction" reads "Inflate" is meant so.
constexpr std::array kHumanReadableNames{
    HumanReadableName{"install", "Install"},    HumanReadableName{"open", "Open"},
    HumanReadableName{"create", "Create"},      HumanReadableName{"capture", "Capture"},
    HumanReadableName{"restore", "Restore"},    HumanReadableName{"recall", "Recall"},
    HumanReadableName{"merge", "Merge"},        HumanReadableName{"combine", "Combine"},
    HumanReadableName{"delete", "Delete"},      HumanReadableName{"erase", "Delete"},
    HumanReadableName{"compact", "Compact"},    HumanReadableName{"verify", "Verify"},
    HumanReadableName{"reindex", "Reindex"},    HumanReadableName{"repair", "Repair"},
    HumanReadableName{"dump", "Dump"},          HumanReadableName{"encrypt", "Encrypt"},
    HumanReadableName{"correction", "Inflate"},
};

constexpr std::array<std::string_view, 4> kPrivilegedCommands{"install", "capture", "recall",
                                                              "restore"};

const Command* findCommand(std::string_view Command::*column, std::string_view text) {
  auto found = std::ranges::find(kCommands, text, column);
  return found == kCommands.end() ? nullptr : &*found;
}

// ----- The classes of an interface ---------------------------------------------------------------

bool isLoaded(std::string_view className) {
  return propertyListClasses().contains(className) || ClassRegistry::shared().contains(className);
}

void customiseInstall(xpc::Interface& interface) {
  // Whoever is linked with this has the class; this makes its name known.
  LogLineIdentifier::registerClasses();
  AllowedClasses classes;
  for (const char* name : {"InstallComponent", "ActionPowerRequest", "LogLineIdentifier",
                           "NSDictionary", "NSArray", "NSString", "NSNumber"}) {
    if (isLoaded(name)) classes.insert(name);
  }
  interface.setClasses(std::move(classes), "setInstallParameters:", 0, false);
}

// A protocol of the command family, the one to continue with, and its own rule if it has any.
struct Level {
  ProtocolFunction protocol;
  ProtocolFunction parent;
  void (*customise)(xpc::Interface&) = nullptr;
};

constexpr std::array kLevels{
    Level{installCommandMessagingProtocol, commandMessagingProtocol, customiseInstall},
    Level{restoreCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{recallCommandMessagingProtocol, restoreCommandMessagingProtocol},
    Level{repositoryCommandMessagingProtocol, commandMessagingProtocol},
    Level{createRepositoryCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{captureCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{mergeCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{combineCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{deleteItemCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{compactCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{repairCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{dumpCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{encryptCommandMessagingProtocol, repositoryCommandMessagingProtocol},
    Level{correctionCommandMessagingProtocol, repositoryCommandMessagingProtocol},
};

// Ends at CommandMessaging, which has no level of its own.
void customise(xpc::Interface& interface, const xpc::Protocol& protocol) {
  auto level = std::ranges::find_if(
      kLevels, [&](const Level& candidate) { return &candidate.protocol() == &protocol; });
  if (level == kLevels.end()) return;
  if (level->customise) level->customise(interface);
  customise(interface, level->parent());
}

}  // namespace

std::optional<std::string> CommandInfo::classNameForCommandName(std::string_view commandName) {
  const auto* command = findCommand(&Command::name, commandName);
  if (!command) return std::nullopt;
  return std::string(command->className);
}

std::optional<ClassInfo> CommandInfo::classForCommandName(std::string_view commandName) {
  const auto* command = findCommand(&Command::name, commandName);
  if (!command) return std::nullopt;
  return ClassRegistry::shared().find(command->className);
}

const xpc::Protocol& CommandInfo::protocolForName(std::string_view commandName) {
  const auto* command = findCommand(&Command::name, commandName);
  return command ? command->protocol() : commandMessagingProtocol();
}

Ref<xpc::Interface> CommandInfo::interfaceForName(std::string_view commandName) {
  const auto& protocol = protocolForName(commandName);
  auto interface = xpc::Interface::interfaceWithProtocol(protocol);
  customise(*interface, protocol);
  return interface;
}

std::string CommandInfo::humanReadableNameForCommandName(std::string_view commandName) {
  auto found = std::ranges::find(kHumanReadableNames, commandName, &HumanReadableName::commandName);
  return std::string(found == kHumanReadableNames.end() ? "Command" : found->text);
}

bool CommandInfo::commandNeedsPrivileges(std::string_view commandName) {
  return std::ranges::find(kPrivilegedCommands, commandName) != kPrivilegedCommands.end();
}

std::optional<std::string> CommandInfo::commandName() const {
  const auto* command = findCommand(&Command::className, className());
  if (!command) return std::nullopt;
  return std::string(command->name);
}

}  // namespace hoist
