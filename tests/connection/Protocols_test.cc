// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The protocols as other programs rely on them: names, order, types on the wire.

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

#include "connection/protocols/CaptureCommandMessaging.h"
#include "connection/protocols/CombineCommandMessaging.h"
#include "connection/protocols/CommandMessaging.h"
#include "connection/protocols/CompactCommandMessaging.h"
#include "connection/protocols/CorrectionCommandMessaging.h"
#include "connection/protocols/CreateRepositoryCommandMessaging.h"
#include "connection/protocols/DeleteItemCommandMessaging.h"
#include "connection/protocols/DumpCommandMessaging.h"
#include "connection/protocols/EncryptCommandMessaging.h"
#include "connection/protocols/InstallCommandMessaging.h"
#include "connection/protocols/KLComponentInstalling.h"
#include "connection/protocols/KLComponentMessaging.h"
#include "connection/protocols/KLComponentServing.h"
#include "connection/protocols/KLHelperCoupling.h"
#include "connection/protocols/MergeCommandMessaging.h"
#include "connection/protocols/RecallCommandMessaging.h"
#include "connection/protocols/RepairCommandMessaging.h"
#include "connection/protocols/RepositoryCommandMessaging.h"
#include "connection/protocols/RestoreCommandMessaging.h"
#include "connection/protocols/TesselHoisting.h"

namespace hoist {
namespace {

struct Operation {
  std::string selector;
  std::string arguments;
  std::string results;
  bool hasReply;
  bool optional;
  friend bool operator==(const Operation&, const Operation&) = default;
  friend void PrintTo(const Operation& operation, std::ostream* out) {
    *out << operation.selector << " (" << operation.arguments << ") -> (" << operation.results
         << ")" << (operation.hasReply ? " reply" : "") << (operation.optional ? " optional" : "");
  }
};

struct Declaration {
  const xpc::Protocol& (*protocol)();
  std::string name;
  std::vector<std::string> adopts;
  std::vector<Operation> operations;
};

const std::vector<Declaration>& declarations() {
  static const auto& table = *new std::vector<Declaration>{
      {klComponentMessagingProtocol,
       "KLComponentMessaging",
       {},
       {{"barrierWithCompletion:", "", "", true, false}}},
      {klComponentInstallingProtocol,
       "KLComponentInstalling",
       {},
       {{"queryComponentVersionWithReply:", "", "s", true, false},
        {"queryBuildNumberWithReply:", "", "u", true, false},
        {"didInstallComponent", "", "", false, true},
        {"willUninstallComponent", "", "", false, true}}},
      {klComponentServingProtocol,
       "KLComponentServing",
       {"KLComponentMessaging", "KLComponentInstalling"},
       {}},
      {klHelperCouplingProtocol,
       "KLHelperCoupling",
       {},
       {{"connectWithEndpoint:forCommandID:withReply:", "hs", "", true, false}}},
      {tesselHoistingProtocol,
       "TesselHoisting",
       {"KLComponentServing", "KLHelperCoupling"},
       {{"launchPrivilegedHelper:commandName:flags:reply:", "ssas", "asah", true, false},
        {"createBootApplicationSupportPathForUser", "", "", false, false},
        {"asyncSample:report:withReply:", "aias", "b", true, false}}},
      {commandMessagingProtocol,
       "CommandMessaging",
       {"KLComponentServing"},
       {{"querySupportsProperty:withReply:", "s", "b", true, false},
        {"queryNameWithReply:", "", "s", true, false},
        {"queryHumanReadableNameWithReply:", "", "s", true, false},
        {"setActionUUID:", "as", "", false, false},
        {"queryActionUUIDWithReply:", "", "as", true, false},
        {"setCustomDescription:", "as", "", false, false},
        {"queryCustomDescriptionWithReply:", "", "as", true, false},
        {"queryDisplayDescriptionWithReply:", "", "as", true, false},
        {"queryProcessIdentifierWithReply:", "", "s", true, false},
        {"setPrologScriptPath:", "as", "", false, false},
        {"setEpilogScriptPath:", "as", "", false, false},
        {"setScriptsNeedUI:", "b", "", false, false},
        {"addListenerToPublishedService:", "s", "", false, false},
        {"removeListenerWithIdentifier:", "s", "", false, false},
        {"setMonitorAutoconnect:", "b", "", false, false},
        {"queryRunStateWithReply:", "", "bbb", true, false},
        {"queryIsRunningWithReply:", "", "b", true, false},
        {"queryIsFinishedWithReply:", "", "b", true, false},
        {"queryIsHeldWithReply:", "", "b", true, false},
        {"holdWithReason:", "as", "", false, false},
        {"releaseHold", "", "", false, false},
        {"run", "", "", false, false},
        {"runWithReply:", "", "aay", true, false},
        {"queryExecutionExceptionDataWithReply:", "", "aay", true, false},
        {"cancelFrom:", "i", "", false, false},
        {"queryCanCancelWithReply:", "", "b", true, false},
        {"pauseFor:", "d", "", false, false},
        {"resume", "", "", false, false},
        {"queryIsPausedWithReply:", "", "b", true, false},
        {"queryCanPauseWithReply:", "", "b", true, false},
        {"queryIsPrivilegedWithReply:", "", "b", true, false},
        {"setRootCommandLogRecordClassification:", "i", "", false, false},
        {"redirectLogPathToFile:", "ah", "", false, false},
        {"setPerilousMode:", "b", "", false, false}}},
      {installCommandMessagingProtocol,
       "InstallCommandMessaging",
       {"CommandMessaging"},
       {{"setInstallParameters:", "a{sv}", "", false, false}}},
      {repositoryCommandMessagingProtocol,
       "RepositoryCommandMessaging",
       {"CommandMessaging"},
       {{"setRepositoryRef:", "a(sa{sv})", "", false, false},
        {"queryRepositoryRefWithReply:", "", "a(sa{sv})", true, false},
        {"setLayerPicker:", "a(sa{sv})", "", false, false},
        {"setAlternateKeyFilePath:", "as", "", false, false},
        {"queryAlternateKeyFilePathWithReply:", "", "as", true, false},
        {"setPassword:", "as", "", false, false}}},
      {createRepositoryCommandMessagingProtocol,
       "CreateRepositoryCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"setSettings:", "a{sv}", "", false, false}}},
      {captureCommandMessagingProtocol,
       "CaptureCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"addTargetPath:", "(sa{sv})", "", false, false},
        {"setIgnoreHistory:", "b", "", false, false},
        {"setDeferDeDup:", "b", "", false, false},
        {"setDisableSnapshots:", "b", "", false, false}}},
      {restoreCommandMessagingProtocol,
       "RestoreCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"addNodeIdentifiedBy:", "(sa{sv})", "", false, false},
        {"setRestoreVolume:", "a(sa{sv})", "", false, false},
        {"setIncludeDeleted:", "b", "", false, false},
        {"setOwnershipEdict:", "i", "", false, false}}},
      {recallCommandMessagingProtocol,
       "RecallCommandMessaging",
       {"RestoreCommandMessaging"},
       {{"setRecallPath:", "as", "", false, false}}},
      {mergeCommandMessagingProtocol,
       "MergeCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"setRetainDeletedItemsDate:", "ad", "", false, false}}},
      {combineCommandMessagingProtocol,
       "CombineCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"addNodeIdentifiedBy:", "(sa{sv})", "", false, false}}},
      {deleteItemCommandMessagingProtocol,
       "DeleteItemCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"addNodeIdentifiedBy:", "(sa{sv})", "", false, false}}},
      {compactCommandMessagingProtocol,
       "CompactCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"queryMinimumFreeRatioWithReply:", "", "d", true, false},
        {"setMinimumFreeRatio:", "d", "", false, false}}},
      {repairCommandMessagingProtocol,
       "RepairCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"setRecoveryRepositoryPath:", "as", "", false, false},
        {"setUseAutoRepair:", "b", "", false, false},
        {"setRecoverLostFiles:", "b", "", false, false},
        {"setRecoverCorruptFiles:", "b", "", false, false},
        {"setStripData:", "b", "", false, false},
        {"setCorrectionMode:", "i", "", false, false}}},
      {dumpCommandMessagingProtocol,
       "DumpCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"setSubcommand:", "i", "", false, false},
        {"setDumpFlags:inSet:", "qx", "", false, false},
        {"clearDumpFlags:inSet:", "qx", "", false, false},
        {"listNodeIdentifiedBy:", "(sa{sv})", "", false, false},
        {"setIncludeDeleted:", "b", "", false, false},
        {"setColumnFormat:", "as", "", false, false},
        {"setDateStyle:timeStyle:", "tt", "", false, false},
        {"setSizeStyle:", "i", "", false, false},
        {"setOutputFile:", "as", "", false, false},
        {"setOutputFileHandle:", "ah", "", false, false}}},
      {encryptCommandMessagingProtocol,
       "EncryptCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"setSubcommand:", "i", "", false, false},
        {"querySubcommandithReply:", "", "i", true, false},
        {"queryHumanReadableEncryptVerbReply:", "", "s", true, false},
        {"setPassphrase:", "as", "", false, false}}},
      {correctionCommandMessagingProtocol,
       "CorrectionCommandMessaging",
       {"RepositoryCommandMessaging"},
       {{"queryVersionWithReply:", "", "t", true, false},
        {"setVersion:", "t", "", false, false},
        {"queryConfigurationIndexWithReply:", "", "t", true, false},
        {"setConfigurationIndex:", "t", "", false, false}}},
  };
  return table;
}

class Protocols : public testing::TestWithParam<Declaration> {};

TEST_P(Protocols, AreDeclaredAsOthersRelyOnThem) {
  const xpc::Protocol& protocol = GetParam().protocol();
  EXPECT_EQ(protocol.name(), GetParam().name);
  EXPECT_EQ(protocol.interfaceName(), "com.kelvo." + GetParam().name);
  std::vector<std::string> adopts;
  for (const xpc::Protocol* adopted : protocol.adopted()) adopts.push_back(adopted->name());
  EXPECT_EQ(adopts, GetParam().adopts);
  std::vector<Operation> operations;
  for (const xpc::Method& method : protocol.methods()) {
    operations.push_back({method.selector, method.argumentSignature, method.resultSignature,
                          method.hasReply, method.optional});
    std::string member = method.selector;
    for (char& c : member) c = c == ':' ? '_' : c;
    EXPECT_EQ(method.member, member);
  }
  EXPECT_EQ(operations, GetParam().operations);
}

INSTANTIATE_TEST_SUITE_P(Table, Protocols, testing::ValuesIn(declarations()),
                         [](const auto& info) { return info.param.name; });

TEST(RecallCommand, AnswersEveryOperationOfTheProtocolsAboveIt) {
  const xpc::Protocol& recall = recallCommandMessagingProtocol();
  for (const xpc::Protocol* above :
       {&restoreCommandMessagingProtocol(), &repositoryCommandMessagingProtocol(),
        &commandMessagingProtocol(), &klComponentServingProtocol()}) {
    EXPECT_TRUE(recall.conformsTo(*above));
    for (const xpc::Protocol* each : above->closure()) {
      for (const xpc::Method& method : each->methods())
        EXPECT_TRUE(recall.methodWithSelector(method.selector));
    }
  }
}

TEST(SharedSelectors, AreDeclaredSeparatelyWithOneSignature) {
  auto signature = [](const xpc::Protocol& protocol, const char* member) {
    const xpc::Method* own = protocol.ownMethodWithMember(member);
    return own ? own->argumentSignature : "none";
  };
  EXPECT_EQ(signature(restoreCommandMessagingProtocol(), "addNodeIdentifiedBy_"), "(sa{sv})");
  EXPECT_EQ(signature(combineCommandMessagingProtocol(), "addNodeIdentifiedBy_"), "(sa{sv})");
  EXPECT_EQ(signature(deleteItemCommandMessagingProtocol(), "addNodeIdentifiedBy_"), "(sa{sv})");
  EXPECT_EQ(signature(restoreCommandMessagingProtocol(), "setIncludeDeleted_"), "b");
  EXPECT_EQ(signature(dumpCommandMessagingProtocol(), "setIncludeDeleted_"), "b");
  EXPECT_EQ(signature(dumpCommandMessagingProtocol(), "setSubcommand_"), "i");
  EXPECT_EQ(signature(encryptCommandMessagingProtocol(), "setSubcommand_"), "i");
}

TEST(EncryptCommand, KeepsTheSpellingsThatClientsRelyOn) {
  EXPECT_TRUE(encryptCommandMessagingProtocol().methodWithMember("querySubcommandithReply_"));
  EXPECT_TRUE(
      encryptCommandMessagingProtocol().methodWithMember("queryHumanReadableEncryptVerbReply_"));
  EXPECT_FALSE(encryptCommandMessagingProtocol().methodWithMember("querySubcommandWithReply_"));
}

TEST(CodedArguments, NameTheirClasses) {
  auto className = [](const xpc::Protocol& protocol, const char* selector) {
    return protocol.methodWithSelector(selector)->arguments.at(0).className;
  };
  EXPECT_EQ(className(captureCommandMessagingProtocol(), "addTargetPath:"), "PXPath");
  EXPECT_EQ(className(restoreCommandMessagingProtocol(), "setRestoreVolume:"), "PXVolumeInfo");
  EXPECT_EQ(className(restoreCommandMessagingProtocol(), "addNodeIdentifiedBy:"),
            "FullyQualifiedIdentifier");
  EXPECT_EQ(className(repositoryCommandMessagingProtocol(), "setRepositoryRef:"),
            "RepositoryReference");
  EXPECT_EQ(className(repositoryCommandMessagingProtocol(), "setLayerPicker:"), "LayerPicker");
}

}  // namespace
}  // namespace hoist
