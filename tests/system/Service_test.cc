// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What the running service says of itself.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

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
