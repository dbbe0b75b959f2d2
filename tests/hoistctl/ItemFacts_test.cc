// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/ItemFacts.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/TimeZone.h"

namespace hoist::ctl {
namespace {

constexpr time_t kFarthest = std::numeric_limits<time_t>::max();

TEST(Times, AreThoseOfTheCalendarAsFarAsItReaches) {
  TimeZone zone("UTC");
  EXPECT_EQ(exactTime({1'000'000'000, 1}), "2001-09-09T01:46:40.000000001Z");
  EXPECT_EQ(localTime({-1, 0}), "1969-12-31 23:59");
  EXPECT_EQ(exactTime({kFarthest, 7}), "@9223372036854775807.000000007");
  EXPECT_EQ(localTime({kFarthest, 7}), "@9223372036854775807");
}

}  // namespace
}  // namespace hoist::ctl
