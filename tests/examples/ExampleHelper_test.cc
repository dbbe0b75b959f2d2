// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Every protocol of the command family, through a connection, against the example helper.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

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
#include "examples/ServedCommand.h"
#include "exceptions/ExceptionTransport.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "helper/HelperValues.h"
#include "logging/LogLineIdentifier.h"
#include "platform/ConditionLock.h"

namespace hoist {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::vector<std::string> kCommands{
    "install", "create",  "capture", "restore", "recall",     "merge",   "combine", "delete",
    "erase",   "compact", "verify",  "encrypt", "correction", "reindex", "repair",  "dump"};

class ExampleHelper : public testing::Test {
 protected:
  static void SetUpTestSuite() { example::registerClasses(); }
  static Ref<Object> node(const std::string& identifier) {
    return make<example::HelperValue>("FullyQualifiedIdentifier", "identifier", identifier);
  }
};

// ----- The catalogue -----------------------------------------------------------------------------

TEST_F(ExampleHelper, HasEveryCommandOfTheCatalogueAndNoOther) {
  for (const auto& name : kCommands) {
    auto command = example::makeCommand(name, {});
    ASSERT_TRUE(command) << name;
    EXPECT_EQ(command->commandName(), name);
  }
  for (const char* name : {"open", "", "Install"}) EXPECT_FALSE(example::makeCommand(name, {}));
}

TEST_F(ExampleHelper, ShowsGdbusEveryOperationOfEveryCommand) {
  for (const auto& name : kCommands) {
    SCOPED_TRACE(name);
    ServedCommand served(name);
    std::string xml = served.gdbus("introspect", "--xml");
    for (const auto* protocol : CommandInfo::protocolForName(name).closure()) {
      EXPECT_THAT(xml, HasSubstr("<interface name=\"" + protocol->interfaceName() + "\""));
      for (const auto& method : protocol->methods()) {
        if (method.optional) continue;
        EXPECT_THAT(xml, HasSubstr("<method name=\"" + method.member + "\""));
        for (const auto& argument : method.arguments)
          EXPECT_THAT(xml, HasSubstr("<arg type=\"" + argument.signature + "\" name=\"" +
                                     argument.name + "\" direction=\"in\""));
        for (const auto& result : method.results)
          EXPECT_THAT(xml, HasSubstr("<arg type=\"" + result.signature + "\" name=\"" +
                                     result.name + "\" direction=\"out\""));
      }
    }
  }
}

TEST_F(ExampleHelper, IsCalledByGdbus) {
  ServedCommand served("recall");
  EXPECT_EQ(served.gdbus("call",
                         "--method com.kelvo.RecallCommandMessaging.setRecallPath_ "
                         "\"['/home/x']\""),
            "()\n");
  EXPECT_EQ(served.told("recallPath"), Value("/home/x"));
  EXPECT_EQ(served.gdbus("call", "--method com.kelvo.CommandMessaging.queryNameWithReply_"),
            "('recall',)\n");
}

// ----- What every command answers ----------------------------------------------------------------

TEST_F(ExampleHelper, AnswersWhatItIs) {
  ServedCommand served("correction");
  using C = CommandMessaging;
  EXPECT_EQ((served.ask<&C::queryNameWithReply, std::string>()), "correction");
  EXPECT_EQ((served.ask<&C::queryHumanReadableNameWithReply, std::string>()), "Inflate");
  EXPECT_EQ((served.ask<&C::queryProcessIdentifierWithReply, std::string>()),
            std::to_string(::getpid()));
  EXPECT_EQ((served.ask<&C::queryIsPrivilegedWithReply, bool>()), ::getuid() == 0);
  EXPECT_EQ((served.ask<&KLComponentInstalling::queryComponentVersionWithReply, std::string>()),
            "Helper-2.2.5.12");
  EXPECT_TRUE((served.ask<&C::querySupportsProperty, bool>(std::string("configurationIndex"))));
  EXPECT_TRUE((served.ask<&C::querySupportsProperty, bool>(std::string("password"))));
  EXPECT_FALSE((served.ask<&C::querySupportsProperty, bool>(std::string("recallPath"))));
  EXPECT_FALSE((served.ask<&C::querySupportsProperty, bool>(std::string())));
}

TEST_F(ExampleHelper, KeepsWhatEveryCommandIsTold) {
  ServedCommand served("verify");
  using C = CommandMessaging;
  using Text = std::optional<std::string>;
  served.tell<&C::setActionUUID>("7-7");
  EXPECT_EQ((served.ask<&C::queryActionUUIDWithReply, Text>()), "7-7");
  served.tell<&C::setCustomDescription>("Nightly");
  EXPECT_EQ((served.ask<&C::queryCustomDescriptionWithReply, Text>()), "Nightly");
  EXPECT_EQ((served.ask<&C::queryDisplayDescriptionWithReply, Text>()), "Nightly");
  served.tell<&C::setCustomDescription>(std::nullopt);
  EXPECT_EQ((served.ask<&C::queryCustomDescriptionWithReply, Text>()), std::nullopt);
  EXPECT_EQ((served.ask<&C::queryDisplayDescriptionWithReply, Text>()), "Verify");
  served.tell<&C::setPrologScriptPath>("/before");
  served.tell<&C::setEpilogScriptPath>("/after");
  served.tell<&C::setScriptsNeedUI>(true);
  served.tell<&C::addListenerToPublishedService>("com.kelvo.listener");
  served.tell<&C::removeListenerWithIdentifier>("com.kelvo.listener");
  served.tell<&C::setMonitorAutoconnect>(true);
  served.tell<&C::setRootCommandLogRecordClassification>(-3);
  served.tell<&C::redirectLogPathToFile>(std::nullopt);
  served.tell<&C::setPerilousMode>(true);
  EXPECT_EQ(served.told("prologScriptPath"), Value("/before"));
  EXPECT_EQ(served.told("epilogScriptPath"), Value("/after"));
  EXPECT_EQ(served.told("scriptsNeedUI"), Value(true));
  EXPECT_EQ(served.told("monitorAutoconnect"), Value(true));
  EXPECT_EQ(served.told("rootCommandLogRecordClassification"), Value(-3));
  EXPECT_EQ(served.told("perilousMode"), Value(true));
}

// ----- The job -----------------------------------------------------------------------------------

// The answer of runWithReply:, which comes when the job has ended.
struct Ending {
  ConditionLock ended;
  std::optional<Data> data;
};
Ref<Ending> startRunning(ServedCommand& served) {
  auto ending = make<Ending>();
  served.tell<&CommandMessaging::runWithReply>([ending](std::optional<Data> data) {
    ending->data = std::move(data);
    ending->ended.messageReplied();
  });
  return ending;
}

TEST_F(ExampleHelper, RunsItsJobToTheEnd) {
  ServedCommand served("merge", {"seconds=0"});
  EXPECT_FALSE((served.ask<&CommandMessaging::queryIsFinishedWithReply, bool>()));
  auto ending = startRunning(served);
  ending->ended.waitForMessageReply();
  EXPECT_EQ(ending->data, std::nullopt);
  EXPECT_TRUE((served.ask<&CommandMessaging::queryIsFinishedWithReply, bool>()));
  EXPECT_FALSE((served.ask<&CommandMessaging::queryCanCancelWithReply, bool>()));
  EXPECT_FALSE((served.ask<&CommandMessaging::queryCanPauseWithReply, bool>()));
  EXPECT_EQ(
      (served.ask<&CommandMessaging::queryExecutionExceptionDataWithReply, std::optional<Data>>()),
      std::nullopt);
}

TEST_F(ExampleHelper, HoldsPausesAndCancelsItsJob) {
  ServedCommand served("restore", {"seconds=3600"});
  using C = CommandMessaging;
  served.tell<&C::holdWithReason>("not yet");
  EXPECT_EQ(served.told("holdReason"), Value("not yet"));
  auto ending = startRunning(served);
  EXPECT_TRUE((served.ask<&C::queryIsRunningWithReply, bool>()));
  EXPECT_TRUE((served.ask<&C::queryIsHeldWithReply, bool>()));
  served.tell<&C::releaseHold>();
  EXPECT_FALSE((served.ask<&C::queryIsHeldWithReply, bool>()));
  EXPECT_TRUE((served.ask<&C::queryCanPauseWithReply, bool>()));
  served.tell<&C::pauseFor>(600.0);
  EXPECT_TRUE((served.ask<&C::queryIsPausedWithReply, bool>()));
  served.tell<&C::resume>();
  EXPECT_FALSE((served.ask<&C::queryIsPausedWithReply, bool>()));
  auto state = make<std::vector<bool>>();
  served.tell<&C::queryRunStateWithReply>([state](bool running, bool finished, bool held) {
    *state = {running, finished, held};
  });
  EXPECT_EQ(*state, (std::vector<bool>{true, false, false}));
  EXPECT_EQ((served.ask<&C::queryDisplayDescriptionWithReply, std::optional<std::string>>()),
            "Restore, 0 %");
  EXPECT_TRUE((served.ask<&C::queryCanCancelWithReply, bool>()));
  served.tell<&C::cancelFrom>(2);
  ending->ended.waitForMessageReply();
  auto exception = exceptionFromData(ending->data);
  ASSERT_TRUE(exception);
  EXPECT_EQ(exception->name(), "Cancel");
}

TEST_F(ExampleHelper, ReportsItsExceptionInTheTransportForm) {
  ServedCommand served("capture", {"seconds=0", "fail"});
  auto ending = startRunning(served);
  ending->ended.waitForMessageReply();
  auto exception = exceptionFromData(ending->data);
  ASSERT_TRUE(exception);
  EXPECT_EQ(exception->name(), "IO");
  EXPECT_EQ(exception->reason(), "cannot copy item");
  EXPECT_EQ(exception->userInfo().at("POSIXErr"), Value(ENOSPC));
  EXPECT_EQ(exceptionFromData((served.ask<&CommandMessaging::queryExecutionExceptionDataWithReply,
                                          std::optional<Data>>()))
                ->name(),
            "IO");
}

TEST_F(ExampleHelper, WritesItsDumpToTheFileThatItWasGiven) {
  TemporaryFolder folder;
  std::string path = folder.write("dump", "");
  ServedCommand served("dump", {"seconds=0"});
  using D = DumpCommandMessaging;
  served.tell<&D::setSubcommand>(2);
  served.tell<&D::setDumpFlags>(std::uint16_t{0x8001}, std::int64_t{-5});
  served.tell<&D::clearDumpFlags>(std::uint16_t{1}, std::int64_t{-5});
  served.tell<&D::listNodeIdentifiedBy>(node("a/b"));
  served.tell<&D::setIncludeDeleted>(true);
  served.tell<&D::setColumnFormat>(std::vector<std::string>{"name", "size"});
  served.tell<&D::setDateStyle>(std::uint64_t{1}, std::uint64_t{2});
  served.tell<&D::setSizeStyle>(3);
  served.tell<&D::setOutputFile>("/dump");
  served.tell<&D::setPassword>("secret");
  FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  served.client->performSynchronousBlock([&](const xpc::Proxy& proxy) {
    proxy.send<&D::setOutputFileHandle>(std::optional<FileDescriptor>(std::move(file)));
  });
  startRunning(served)->ended.waitForMessageReply();
  std::ifstream dump(path);
  EXPECT_EQ((std::string{std::istreambuf_iterator<char>(dump), {}}),
            "columnFormat = (name, size)\ndateStyle = 1\ndumpFlags.-5 = 32768\n"
            "includeDeleted = 1\nnodeIdentifiedBy = (a/b)\noutputFile = /dump\nsizeStyle = 3\n"
            "subcommand = 2\ntimeStyle = 2\n");
}

// ----- What single commands are told -------------------------------------------------------------

TEST_F(ExampleHelper, TakesARepositoryAndItsSecrets) {
  ServedCommand served("reindex");
  using R = RepositoryCommandMessaging;
  EXPECT_EQ((served.ask<&R::queryRepositoryRefWithReply, std::optional<Ref<Object>>>()),
            std::nullopt);
  served.tell<&R::setRepositoryRef>(
      Ref<Object>(make<example::HelperValue>("RepositoryReference", "path", "/backup")));
  auto reference = served.ask<&R::queryRepositoryRefWithReply, std::optional<Ref<Object>>>();
  ASSERT_TRUE(reference);
  EXPECT_EQ((*reference)->className(), "RepositoryReference");
  EXPECT_EQ((*reference)->description(), "/backup");
  served.tell<&R::setLayerPicker>(
      Ref<Object>(make<example::HelperValue>("LayerPicker", "layer", "3")));
  served.tell<&R::setAlternateKeyFilePath>("/key");
  EXPECT_EQ((served.ask<&R::queryAlternateKeyFilePathWithReply, std::optional<std::string>>()),
            "/key");
  served.tell<&R::setPassword>("secret");
  EXPECT_EQ(served.told("layerPicker").description(), "3");
  EXPECT_EQ(served.told("password"), Value("secret"));
}

TEST_F(ExampleHelper, TakesWhatToCreateCaptureAndMerge) {
  ServedCommand create("create");
  create.tell<&CreateRepositoryCommandMessaging::setSettings>(Dictionary{{"size", 5}});
  EXPECT_EQ(create.told("settings"), Value(Dictionary{{"size", 5}}));

  ServedCommand capture("capture");
  using C = CaptureCommandMessaging;
  capture.tell<&C::addTargetPath>(PXPath::pathWithPath("/home"));
  capture.tell<&C::addTargetPath>(PXPath::pathWithPath("/etc"));
  capture.tell<&C::setIgnoreHistory>(true);
  capture.tell<&C::setDeferDeDup>(true);
  capture.tell<&C::setDisableSnapshots>(false);
  ASSERT_TRUE(capture.told("targetPath").array());
  EXPECT_EQ(capture.told("targetPath").array()->size(), 2u);
  EXPECT_TRUE((*capture.told("targetPath").array())[1].objectAs<PXPath>());
  EXPECT_EQ(capture.told("ignoreHistory"), Value(true));
  EXPECT_EQ(capture.told("deferDeDup"), Value(true));
  EXPECT_EQ(capture.told("disableSnapshots"), Value(false));

  ServedCommand merge("merge");
  using M = MergeCommandMessaging;
  merge.tell<&M::setRetainDeletedItemsDate>(Date::fromSeconds(1709644029));
  EXPECT_EQ(merge.told("retainDeletedItemsDate"), Value(Date::fromSeconds(1709644029)));
  merge.tell<&M::setRetainDeletedItemsDate>(std::nullopt);
  EXPECT_EQ(merge.told("retainDeletedItemsDate"), Value());
}

// A recall is a restoration, which is a command on a repository.
TEST_F(ExampleHelper, TakesWhatToRestoreAlsoWhenItIsARecall) {
  for (const char* name : {"restore", "recall"}) {
    ServedCommand served(name);
    using R = RestoreCommandMessaging;
    served.tell<&R::addNodeIdentifiedBy>(node("a"));
    served.tell<&R::setRestoreVolume>(Ref<Object>(PXVolumeInfo::volumeInfoForPath("/")));
    served.tell<&R::setIncludeDeleted>(true);
    served.tell<&R::setOwnershipEdict>(-2);
    served.tell<&R::setPassword>("secret");
    EXPECT_EQ((served.ask<&CommandMessaging::queryNameWithReply, std::string>()), name);
    EXPECT_TRUE(served.told("restoreVolume").objectAs<PXVolumeInfo>());
    EXPECT_EQ(served.told("nodeIdentifiedBy").description(), "(a)");
    EXPECT_EQ(served.told("ownershipEdict"), Value(-2));
  }
  ServedCommand recall("recall");
  recall.tell<&RecallCommandMessaging::setRecallPath>("/x");
  EXPECT_EQ(recall.told("recallPath"), Value("/x"));
}

TEST_F(ExampleHelper, TakesTheItemsToCombineAndToErase) {
  ServedCommand combine("combine");
  combine.tell<&CombineCommandMessaging::addNodeIdentifiedBy>(node("a"));
  combine.tell<&CombineCommandMessaging::addNodeIdentifiedBy>(node("b"));
  EXPECT_EQ(combine.told("nodeIdentifiedBy").description(), "(a, b)");
  ServedCommand erase("erase");
  erase.tell<&DeleteItemCommandMessaging::addNodeIdentifiedBy>(node("c"));
  EXPECT_EQ(erase.told("nodeIdentifiedBy").description(), "(c)");
}

TEST_F(ExampleHelper, TakesWhatToCompactRepairAndCorrect) {
  ServedCommand compact("compact");
  compact.tell<&CompactCommandMessaging::setMinimumFreeRatio>(0.25);
  EXPECT_EQ((compact.ask<&CompactCommandMessaging::queryMinimumFreeRatioWithReply, double>()),
            0.25);

  ServedCommand repair("repair");
  using R = RepairCommandMessaging;
  repair.tell<&R::setRecoveryRepositoryPath>("/r");
  repair.tell<&R::setUseAutoRepair>(true);
  repair.tell<&R::setRecoverLostFiles>(true);
  repair.tell<&R::setRecoverCorruptFiles>(true);
  repair.tell<&R::setStripData>(true);
  repair.tell<&R::setCorrectionMode>(4);
  for (const char* property :
       {"useAutoRepair", "recoverLostFiles", "recoverCorruptFiles", "stripData"})
    EXPECT_EQ(repair.told(property), Value(true)) << property;
  EXPECT_EQ(repair.told("recoveryRepositoryPath"), Value("/r"));
  EXPECT_EQ(repair.told("correctionMode"), Value(4));

  ServedCommand correction("correction");
  using C = CorrectionCommandMessaging;
  correction.tell<&C::setVersion>(~std::uint64_t{0});
  EXPECT_EQ((correction.ask<&C::queryVersionWithReply, std::uint64_t>()), ~std::uint64_t{0});
  correction.tell<&C::setConfigurationIndex>(std::uint64_t{9});
  EXPECT_EQ((correction.ask<&C::queryConfigurationIndexWithReply, std::uint64_t>()), 9u);
}

TEST_F(ExampleHelper, TakesHowToEncrypt) {
  ServedCommand served("encrypt");
  using E = EncryptCommandMessaging;
  EXPECT_EQ((served.ask<&E::queryHumanReadableEncryptVerbReply, std::string>()), "Encrypt");
  served.tell<&E::setSubcommand>(1);
  EXPECT_EQ((served.ask<&E::querySubcommandithReply, std::int32_t>()), 1);
  EXPECT_EQ((served.ask<&E::queryHumanReadableEncryptVerbReply, std::string>()), "Decrypt");
  served.tell<&E::setPassphrase>("secret");
  EXPECT_EQ(served.told("passphrase"), Value("secret"));
}

// ----- The parameters of an installation ---------------------------------------------------------

TEST_F(ExampleHelper, TakesInstallParametersWithIdentifiersAtAnyDepth) {
  ServedCommand served("install");
  auto identifier = LogLineIdentifier::logLineIdentifierFromString("7.12.3");
  Dictionary parameters{
      {"line", identifier},
      {"parts",
       Array{Dictionary{{"line", identifier}, {"size", 5}},
             Ref<Object>(make<example::HelperValue>("InstallComponent", "name", "helper"))}}};
  served.tell<&InstallCommandMessaging::setInstallParameters>(parameters);
  Value told = served.told("installParameters");
  ASSERT_TRUE(told.dictionary());
  EXPECT_EQ(told.dictionary()->at("line").description(), "7.12.3");
  const auto* parts = told.dictionary()->at("parts").array();
  ASSERT_TRUE(parts && parts->size() == 2);
  EXPECT_TRUE((*parts)[0].dictionary()->at("line").objectAs<LogLineIdentifier>());
  EXPECT_EQ((*parts)[1].className(), "InstallComponent");
}

TEST_F(ExampleHelper, RefusesOtherClassesInTheInstallParametersAtAnyDepth) {
  ServedCommand served("install");
  const std::string call = "--method com.kelvo.InstallCommandMessaging.setInstallParameters_ ";
  for (const char* parameters :
       {// Classes that exist, of values and of objects.
        R"("{'a': <b'data'>}")", R"("{'a': <('NSDate', {'seconds': <1.5>})>}")",
        R"("{'a': <('NSNull', @a{sv} {})>}")", R"("{'a': <('PXPath', {'path': <'/etc'>})>}")",
        R"("{'a': <('NSError', {'NSDomain': <'x'>})>}")",
        // One that does not.
        R"("{'a': <('Nonsense', @a{sv} {})>}")",
        // Deep inside, also of an object that is allowed.
        R"("{'a': <{'b': <[<{'c': <('PXPath', {'path': <'/etc'>})>}>]>}>}")",
        R"("{'a': <('LogLineIdentifier', {'parent': <('PXPath', {'path': <'/etc'>})>})>}")"}) {
    EXPECT_THAT(served.gdbus("call", call + parameters),
                HasSubstr("org.freedesktop.DBus.Error.InvalidArgs"))
        << parameters;
    EXPECT_EQ(served.told("installParameters"), Value()) << parameters;
  }
  // The same caller is served on.
  EXPECT_EQ(served.gdbus("call", call + R"("{'a': <{'b': <[<int64 1>, <'x'>, <true>]>}>}")"),
            "()\n");
  EXPECT_EQ(served.told("installParameters"),
            Value(Dictionary{{"a", Dictionary{{"b", Array{1, "x", true}}}}}));
}

TEST_F(ExampleHelper, RefusesAnObjectOfAnotherClassThanItsArguments) {
  ServedCommand served("capture");
  for (const char* object :
       {"\"('NSError', {'NSDomain': <'x'>})\"",
        "\"('FullyQualifiedIdentifier', {'identifier': <'x'>})\"", "\"('PXPath', @a{sv} {})\""}) {
    EXPECT_THAT(
        served.gdbus(
            "call",
            std::string("--method com.kelvo.CaptureCommandMessaging.addTargetPath_ ") + object),
        HasSubstr("org.freedesktop.DBus.Error.InvalidArgs"))
        << object;
  }
  EXPECT_EQ(served.told("targetPath"), Value());
}

}  // namespace
}  // namespace hoist
