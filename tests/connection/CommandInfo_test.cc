// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/CommandInfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "connection/protocols/InstallCommandMessaging.h"
#include "connection/protocols/RestoreCommandMessaging.h"

namespace hoist {
namespace {

using testing::ElementsAre;

struct Row {
  std::string command;
  std::string className;
  std::string protocol;
  std::string humanReadableName;
  bool needsPrivileges;
};

const std::vector<Row> kRows{
    {"install", "InstallCommand", "InstallCommandMessaging", "Install", true},
    {"create", "CreateRepositoryCommand", "CreateRepositoryCommandMessaging", "Create", false},
    {"capture", "CaptureCommand", "CaptureCommandMessaging", "Capture", true},
    {"restore", "RestoreCommand", "RestoreCommandMessaging", "Restore", true},
    {"recall", "RecallCommand", "RecallCommandMessaging", "Recall", true},
    {"merge", "MergeCommand", "MergeCommandMessaging", "Merge", false},
    {"combine", "CombineCommand", "CombineCommandMessaging", "Combine", false},
    {"delete", "DeleteLayerCommand", "RepositoryCommandMessaging", "Delete", false},
    {"erase", "DeleteItemCommand", "DeleteItemCommandMessaging", "Delete", false},
    {"compact", "CompactCommand", "CompactCommandMessaging", "Compact", false},
    {"verify", "VerifyCommand", "RepositoryCommandMessaging", "Verify", false},
    {"encrypt", "EncryptCommand", "EncryptCommandMessaging", "Encrypt", false},
    {"correction", "CorrectionCommand", "CorrectionCommandMessaging", "Inflate", false},
    {"reindex", "ReindexCommand", "RepositoryCommandMessaging", "Reindex", false},
    {"repair", "RepairCommand", "RepairCommandMessaging", "Repair", false},
    {"dump", "DumpCommand", "DumpCommandMessaging", "Dump", false},
};

class SomeCommand final : public CommandInfo {
 public:
  explicit SomeCommand(std::string className) : className_(std::move(className)) {}
  std::string className() const override { return className_; }

 private:
  const std::string className_;
};

TEST(CommandInfo, KnowsEveryCommandOfTheHelper) {
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.command);
    EXPECT_EQ(CommandInfo::classNameForCommandName(row.command), row.className);
    EXPECT_EQ(CommandInfo::protocolForName(row.command).name(), row.protocol);
    EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(row.command), row.humanReadableName);
    EXPECT_EQ(CommandInfo::commandNeedsPrivileges(row.command), row.needsPrivileges);
    EXPECT_EQ(&CommandInfo::interfaceForName(row.command)->protocol(),
              &CommandInfo::protocolForName(row.command));
    EXPECT_EQ(SomeCommand(row.className).commandName(), row.command);
  }
}

TEST(CommandInfo, HasNoClassAndThePlainProtocolForAnyOtherName) {
  for (const char* name : {"open", "", "Install", "install ", "InstallCommand"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(CommandInfo::classNameForCommandName(name), std::nullopt);
    EXPECT_FALSE(CommandInfo::classForCommandName(name));
    EXPECT_EQ(&CommandInfo::protocolForName(name), &commandMessagingProtocol());
    EXPECT_EQ(&CommandInfo::interfaceForName(name)->protocol(), &commandMessagingProtocol());
    EXPECT_FALSE(CommandInfo::commandNeedsPrivileges(name));
  }
}

TEST(CommandInfo, NamesForPeopleAreLookedUpWithCase) {
  EXPECT_EQ(CommandInfo::humanReadableNameForCommandName("erase"), "Delete");
  EXPECT_EQ(CommandInfo::humanReadableNameForCommandName("correction"), "Inflate");
  EXPECT_EQ(CommandInfo::humanReadableNameForCommandName("open"), "Open");
  EXPECT_EQ(CommandInfo::humanReadableNameForCommandName("Install"), "Command");
  EXPECT_EQ(CommandInfo::humanReadableNameForCommandName(""), "Command");
}

TEST(CommandInfo, HasNoCommandNameForAClassThatIsNotListed) {
  EXPECT_EQ(SomeCommand("DumpCommand").commandName(), "dump");
  EXPECT_EQ(SomeCommand("OpenCommand").commandName(), std::nullopt);
  EXPECT_EQ(SomeCommand("dump").commandName(), std::nullopt);
}

TEST(CommandInfo, AnswersTheClassOfACommandOnlyIfTheProgramHasIt) {
  EXPECT_FALSE(CommandInfo::classForCommandName("dump"));
  ClassRegistry::shared().add(
      {.name = "DumpCommand", .create = [] { return make<SomeCommand>("DumpCommand"); }});
  auto found = CommandInfo::classForCommandName("dump");
  ClassRegistry::shared().remove("DumpCommand");
  ASSERT_TRUE(found);
  EXPECT_EQ(found->name, "DumpCommand");
}

const xpc::Method& setInstallParameters() {
  return *installCommandMessagingProtocol().methodWithSelector("setInstallParameters:");
}

TEST(CommandInfo, AdmitsOnlyExistingClassesInTheInstallParameters) {
  auto interface = CommandInfo::interfaceForName("install");
  EXPECT_THAT(interface->classes(setInstallParameters(), 0, false),
              ElementsAre("LogLineIdentifier", "NSArray", "NSDictionary", "NSNumber", "NSString"));
}

TEST(CommandInfo, AdmitsTheComponentsOfAnInstallationWhereTheyExist) {
  for (const char* name : {"InstallComponent", "ActionPowerRequest"})
    ClassRegistry::shared().add({.name = name});
  auto interface = CommandInfo::interfaceForName("install");
  for (const char* name : {"InstallComponent", "ActionPowerRequest"})
    ClassRegistry::shared().remove(name);
  EXPECT_THAT(interface->classes(setInstallParameters(), 0, false),
              ElementsAre("ActionPowerRequest", "InstallComponent", "LogLineIdentifier", "NSArray",
                          "NSDictionary", "NSNumber", "NSString"));
}

TEST(CommandInfo, LeavesTheOtherInterfacesAsTheirProtocolsDeclareThem) {
  for (const auto& row : kRows) {
    if (row.command == "install") continue;
    SCOPED_TRACE(row.command);
    const auto& protocol = CommandInfo::protocolForName(row.command);
    auto customised = CommandInfo::interfaceForName(row.command);
    auto plain = xpc::Interface::interfaceWithProtocol(protocol);
    for (const auto* one : protocol.closure()) {
      for (const auto& method : one->methods()) {
        for (unsigned index = 0; index < method.arguments.size(); ++index)
          EXPECT_EQ(customised->classes(method, index, false),
                    plain->classes(method, index, false));
        for (unsigned index = 0; index < method.results.size(); ++index)
          EXPECT_EQ(customised->classes(method, index, true), plain->classes(method, index, true));
      }
    }
  }
}

}  // namespace
}  // namespace hoist
