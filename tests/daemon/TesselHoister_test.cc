// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/TesselHoister.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

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

TEST(TesselHoister, ImplementsNeitherOptionalOperation) {
  TesselHoister hoister(501, kNoTools);
  EXPECT_FALSE(hoister.respondsToSelector("didInstallComponent"));
  EXPECT_FALSE(hoister.respondsToSelector("willUninstallComponent"));
}

}  // namespace
}  // namespace hoist
