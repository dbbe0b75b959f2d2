// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/ProcessStatus.h"

#include <gtest/gtest.h>

namespace hoist::sample {
namespace {

constexpr char kRest[] =
    " S 1 2 3 4 5 4194560 7 8 9 10 11 12 13 14 15 16 17 18 123456789 20 21 22\n";

TEST(ProcessStatus, IsReadFromTheKernelsLine) {
  auto status = parseProcessStatus(std::string("42 (bash)") + kRest);
  ASSERT_TRUE(status);
  EXPECT_EQ(status->name, "bash");
  EXPECT_EQ(status->state, 'S');
  EXPECT_EQ(status->parent, 1);
  EXPECT_EQ(status->flags, 4194560u);
  EXPECT_EQ(status->startTicks, 123456789u);
  EXPECT_TRUE(status->isAsleep());
  EXPECT_FALSE(status->isZombie());
  EXPECT_FALSE(status->isKernelThread());
}

TEST(ProcessStatus, IsNotMisledByANameThatLooksLikeTheRestOfTheLine) {
  for (const char* name : {"a) R 1 (", ")", "(", ") Z 0 0 0 0 0 0", "", "\n", "x y"}) {
    auto status = parseProcessStatus("42 (" + std::string(name) + ")" + kRest);
    ASSERT_TRUE(status) << name;
    EXPECT_EQ(status->name, name);
    EXPECT_EQ(status->state, 'S');
    EXPECT_EQ(status->startTicks, 123456789u);
  }
}

TEST(ProcessStatus, KnowsZombiesAndKernelThreads) {
  EXPECT_TRUE(parseProcessStatus("2 (x) Z 1 1 1 0 -1 4 0 0 0 0 0 0 0 0 0 0 1 0 5 0")->isZombie());
  EXPECT_TRUE(parseProcessStatus("2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0 0 0 0 20 0 1 0 9 0 0")
                  ->isKernelThread());
}

TEST(ProcessStatus, RefusesWhatIsNoSuchLine) {
  const std::string whole = std::string("42 (bash)") + kRest;
  for (const char* line : {"", "42", "42 (bash", "42 )bash(", "42 (bash) ", "42 (bash) SS 1 2"}) {
    EXPECT_FALSE(parseProcessStatus(line)) << line;
  }
  EXPECT_FALSE(
      parseProcessStatus("42 (bash) S 1 2 3 4 5 x 7 8 9 10 11 12 13 14 15 16 17 18 19 20"));
}

}  // namespace
}  // namespace hoist::sample
