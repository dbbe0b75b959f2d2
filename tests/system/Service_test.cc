// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What the running service says of itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "connection/protocols/TesselHoisting.h"
#include "platform/xpc/Listener.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

using testing::HasSubstr;

TEST(Service, AnswersItsVersionAndBuildNumberToAnyUser) {
  RunningHoist hoist;
  for (unsigned user : {0u, 20001u}) {
    auto result = hoistctl(user, {"status"});
    ASSERT_EQ(result.status, 0) << result.json;
    EXPECT_EQ(result.json["componentVersion"], "Hoisting-2.2.5.12");
    EXPECT_EQ(result.json["buildNumber"], 140556);
  }
}

TEST(Service, RefusesToStartBesideALiveOne) {
  RunningHoist hoist;
  auto second = runProgram(HOIST_BUILD_DIR "/bin/hoist", {});
  EXPECT_EQ(second.status, 0);
  EXPECT_THAT(second.output, HasSubstr("(Failure) the service cannot be served"));
  EXPECT_EQ(hoistctl(20001, {"status"}).status, 0);
}

TEST(Service, TakesThePlaceOfOneThatWasKilled) {
  { RunningHoist killed; }
  RunningHoist hoist;
  EXPECT_EQ(hoistctl(20001, {"status"}).status, 0);
}

// Its sockets must not get the numbers into which it writes its log.
TEST(Service, StartedWithoutStandardDescriptorsHasThem) {
  Sandbox::shared();
  auto hoist =
      ChildTask::launch({.launchPath = "/bin/sh",
                         .arguments = {"-c", "exec " HOIST_BUILD_DIR "/bin/hoist 0<&- 1>&- 2>&-"}});
  while (hoistctl(20001, {"status"}).status != 0) ASSERT_FALSE(hoist->hasExited());
  for (const char* number : {"0", "1", "2"}) {
    auto link = "/proc/" + std::to_string(hoist->processIdentifier()) + "/fd/" + number;
    EXPECT_EQ(std::filesystem::read_symlink(link), "/dev/null") << number;
  }
  hoist->kill();
  hoist->waitUntilExit();
}

// A service whose texts are meant for the terminal of whoever asks.
class Forger final : public TesselHoisting, public xpc::ListenerDelegate {
 public:
  static constexpr const char* kName = "com.kelvo.forger";
  static constexpr const char* kText = "1\n\033[2J";

 private:
  bool shouldAcceptNewConnection(xpc::Listener&, const Ref<xpc::Connection>& connection) override {
    connection->setExportedInterface(
        xpc::Interface::interfaceWithProtocol(tesselHoistingProtocol()));
    connection->setExportedObject(make<Forger>());
    connection->resume();
    return true;
  }
  void barrierWithCompletion(xpc::Reply<> completion) override { completion(); }
  void queryComponentVersionWithReply(xpc::Reply<std::string> reply) override { reply(kText); }
  void queryBuildNumberWithReply(xpc::Reply<std::uint32_t> reply) override { reply(1); }
  void connectWithEndpoint(xpc::Endpoint, std::string, xpc::Reply<> reply) override { reply(); }
  void launchPrivilegedHelper(
      std::string, std::string, std::vector<std::string>,
      xpc::Reply<std::optional<std::string>, std::optional<xpc::Endpoint>> reply) override {
    reply(kText, std::nullopt);
  }
  void createBootApplicationSupportPathForUser() override {}
  void asyncSample(std::vector<std::int32_t>, std::vector<std::string>,
                   xpc::Reply<bool> reply) override {
    reply(false);
  }
};

TEST(Client, LetsNoServiceWriteToTheTerminalWhatControlsIt) {
  Sandbox::shared();
  auto forger = make<Forger>();
  auto listener = xpc::Listener::initWithMachServiceName(Forger::kName);
  listener->setDelegate(Ref<xpc::ListenerDelegate>(forger));
  listener->resume();
  for (const char* command : {"status", "launch -c capture /bin/true"}) {
    auto output =
        runProgram("/bin/sh",
                   {"-c", std::string("exec " HOIST_BUILD_DIR "/bin/hoistctl --service ") +
                              Forger::kName + " " + command})
            .output;
    EXPECT_THAT(output, HasSubstr("1\\012\\033[2J\n"));
    EXPECT_EQ(output.find('\033'), std::string::npos) << output;
  }
  auto status = hoistctl(0, {std::string("--service=") + Forger::kName, "status"});
  EXPECT_EQ(status.json["componentVersion"], Forger::kText);
  listener->invalidate();
}

// The connection must not get the number into which the output is written.
TEST(Client, FailsWhenItsOutputIsClosed) {
  RunningHoist hoist;
  for (const char* closed : {">&-", "<&- >&-"}) {
    auto result = runProgram(
        "/bin/sh", {"-c", std::string("exec " HOIST_BUILD_DIR "/bin/hoistctl status ") + closed});
    EXPECT_EQ(result.status, 1) << closed;
    EXPECT_EQ(result.output, "hoistctl: the output could not be written\n") << closed;
  }
}

TEST(Client, EndsWithThreeWhenThereIsNoService) {
  Sandbox::shared();
  auto result = hoistctl(20001, {"--service=com.kelvo.nobody", "status"});
  EXPECT_EQ(result.status, 3);
  EXPECT_TRUE(result.json.contains("error"));
}

TEST(Client, EndsWithTwoForACommandLineThatMakesNoSense) {
  EXPECT_EQ(hoistctl(20001, {"levitate"}).status, 2);
  EXPECT_EQ(hoistctl(20001, {"launch"}).status, 2);
  EXPECT_EQ(hoistctl(20001, {"barrier", "-n", "-5"}).status, 2);
}

}  // namespace
}  // namespace hoist
