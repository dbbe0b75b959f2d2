// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/TesselHoister.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "daemon/TesselHoist.h"
#include "platform/Clock.h"
#include "platform/xpc/OperationRefused.h"
#include "support/RecordingLogger.h"

namespace hoist {
namespace {

const HoistTools kNoTools{.codesign = "/nonexistent/codesign", .sample = "/nonexistent/sample"};

TEST(TesselHoister, IsOneObjectForAllConnectionsOfAUser) {
  TesselHoisterClass hoisters(kNoTools);
  auto first = hoisters.serverObjectForUser(501);
  EXPECT_EQ(hoisters.serverObjectForUser(501), first);
  EXPECT_NE(hoisters.serverObjectForUser(502), first);
  EXPECT_EQ(first->userID(), 501u);
}

TEST(TesselHoister, OfRootIsAnObjectOfItsOwn) {
  TesselHoisterClass hoisters(kNoTools);
  auto user = hoisters.serverObjectForUser(501);
  auto root = hoisters.serverObjectForUser(0);
  EXPECT_NE(root, user);
  EXPECT_EQ(root->userID(), 0u);
}

TEST(TesselHoister, IsMadeOnceWhenManyConnectionsComeAtOnce) {
  TesselHoisterClass hoisters(kNoTools);
  std::vector<Ref<TesselHoister>> objects(16);
  std::vector<std::thread> threads;
  for (auto& object : objects)
    threads.emplace_back([&] { object = hoisters.serverObjectForUser(501); });
  for (auto& thread : threads) thread.join();
  for (const auto& object : objects) EXPECT_EQ(object, objects[0]);
}

TEST(TesselHoister, AnswersItsVersionBuildNumberAndBarrierAtOnce) {
  TesselHoister hoister(501, kNoTools);
  std::string version;
  std::uint32_t build = 0;
  bool passed = false;
  hoister.queryComponentVersionWithReply([&](const std::string& answer) { version = answer; });
  hoister.queryBuildNumberWithReply([&](std::uint32_t answer) { build = answer; });
  hoister.barrierWithCompletion([&] { passed = true; });
  EXPECT_EQ(version, "Hoisting-2.2.5.12");
  EXPECT_EQ(build, 140556u);
  EXPECT_TRUE(passed);
}

TEST(TesselHoister, RepliesNothingWhenTheHelperFailsVerification) {
  TesselHoister hoister(501, kNoTools);
  bool replied = false;
  hoister.launchPrivilegedHelper("/nonexistent/X.app/Contents/Linux/x", "capture", {},
                                 [&](const std::optional<std::string>&,
                                     const std::optional<xpc::Endpoint>&) { replied = true; });
  EXPECT_FALSE(replied);
}

TEST(TesselHoister, LogsThePathOfAHelperThatFailsVerification) {
  LogRecorder log;
  TesselHoister(501, kNoTools).launchPrivilegedHelper("/no/helper", "capture", {}, {});
  auto lines = log.lines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].classification, classification::Failure);
  EXPECT_EQ(lines[0].text, "helper failed validation");
  EXPECT_EQ(lines[1].classification, classification::Details);
  EXPECT_EQ(lines[1].text, "path: /no/helper");
  EXPECT_TRUE(lines[1].line.starts_with(lines[0].line + ".")) << lines[1].line;
}

// Requests that come when the daemon is about to end, whatever becomes of them.
TEST(TesselHoister, KeepsTheDaemonAliveWithALaunchAndWithASample) {
  LogRecorder log;
  // The start of a minute in 2100: the run loop waits for it by the real clock.
  TestClock clock{Date(4'102'444'800)};
  TesselHoist hoist([](int) {});
  TesselHoist::setSharedHoist(&hoist);
  TesselHoister hoister(501, kNoTools);
  // Whether the request moves the deadline, from the main queue.
  auto keepsAlive = [&](const std::function<void()>& request) {
    hoist.scheduleDeadManTimer();
    Date before = hoist.deadManTimer()->fireDate();
    clock.advance(std::chrono::minutes(20));
    request();
    bool isHandled = false;
    RunLoop::main().post([&] { isHandled = true; });
    while (!isHandled) RunLoop::main().runOnce(1'000'000);
    return hoist.deadManTimer()->fireDate().secondsSince(before) == 1200;
  };
  EXPECT_TRUE(keepsAlive([&] { hoister.launchPrivilegedHelper("/no/helper", "capture", {}, {}); }));
  EXPECT_TRUE(keepsAlive([&] {
    auto finished = std::make_shared<std::promise<bool>>();
    hoister.asyncSample({}, {}, [finished](bool answer) { finished->set_value(answer); });
    EXPECT_TRUE(finished->get_future().get());
  }));
  EXPECT_TRUE(
      keepsAlive([&] { EXPECT_THROW(hoister.asyncSample({1}, {}, {}), xpc::OperationRefused); }));
  EXPECT_FALSE(keepsAlive([&] { hoister.barrierWithCompletion([] {}); }));
  TesselHoist::setSharedHoist(nullptr);
}

TEST(TesselHoister, ImplementsNeitherOptionalOperation) {
  TesselHoister hoister(501, kNoTools);
  EXPECT_FALSE(hoister.respondsToSelector("didInstallComponent"));
  EXPECT_FALSE(hoister.respondsToSelector("willUninstallComponent"));
}

}  // namespace
}  // namespace hoist
