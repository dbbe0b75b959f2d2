// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/ProgressBar.h"

#include <gtest/gtest.h>

namespace hoist::ctl {
namespace {

TEST(ProgressText, GrowsWithTheTime) {
  EXPECT_EQ(progressText(0, 10, 10), "[          ] 0.0 s of 10.0 s");
  EXPECT_EQ(progressText(0.99, 10, 10), "[          ] 1.0 s of 10.0 s");
  EXPECT_EQ(progressText(5, 10, 10), "[#####     ] 5.0 s of 10.0 s");
  EXPECT_EQ(progressText(10, 10, 10), "[##########] 10.0 s of 10.0 s");
}

TEST(ProgressText, IsNeverMoreThanFull) {
  EXPECT_EQ(progressText(25, 10, 4), "[####] 10.0 s of 10.0 s");
}

}  // namespace
}  // namespace hoist::ctl
