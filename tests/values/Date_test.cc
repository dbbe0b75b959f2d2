// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Date.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace hoist {
namespace {

constexpr auto kLatest = std::numeric_limits<std::int64_t>::max();
constexpr auto kEarliest = std::numeric_limits<std::int64_t>::min();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

static_assert(Date(1, 1'500'000'000).seconds() == 2, "usable at compile time");

TEST(Date, NormalisesItsNanoseconds) {
  EXPECT_EQ(Date(1, 1'500'000'000), Date(2, 500'000'000));
  EXPECT_EQ(Date(1, -1), Date(0, 999'999'999));
  EXPECT_EQ(Date(0, -1'000'000'000), Date(-1));
  EXPECT_EQ(Date(-1, -1'500'000'000), Date(-3, 500'000'000));
  EXPECT_EQ(Date(0, kLatest), Date(9'223'372'036, 854'775'807));
  EXPECT_EQ(Date(0, kEarliest), Date(-9'223'372'037, 145'224'192));
}

TEST(Date, SaturatesAtTheEndsOfItsRange) {
  EXPECT_EQ(Date(kLatest, 999'999'999).nanoseconds(), 999'999'999);
  EXPECT_EQ(Date(kLatest, 1'000'000'000), Date(kLatest));
  EXPECT_EQ(Date(kEarliest, -1), Date(kEarliest));
  EXPECT_EQ(Date(kEarliest, 5).nanoseconds(), 5);
}

TEST(Date, IsMadeFromSeconds) {
  EXPECT_EQ(Date::fromSeconds(0), Date());
  EXPECT_EQ(Date::fromSeconds(1.5), Date(1, 500'000'000));
  EXPECT_EQ(Date::fromSeconds(-1.5), Date(-2, 500'000'000));
  EXPECT_EQ(Date::fromSeconds(-1e-9), Date(-1, 999'999'999));
  EXPECT_EQ(Date::fromSeconds(0.9999999999), Date(1));
  EXPECT_EQ(Date::fromSeconds(-1e-12), Date(0));
}

TEST(Date, IsMadeFromSecondsThatNoDateHas) {
  EXPECT_EQ(Date::fromSeconds(1e19), Date(kLatest));
  EXPECT_EQ(Date::fromSeconds(-1e19), Date(kEarliest));
  EXPECT_EQ(Date::fromSeconds(9223372036854775808.0), Date(kLatest));
  EXPECT_EQ(Date::fromSeconds(-9223372036854775808.0), Date(kEarliest));
  EXPECT_EQ(Date::fromSeconds(kInfinity), Date(kLatest));
  EXPECT_EQ(Date::fromSeconds(-kInfinity), Date(kEarliest));
  EXPECT_EQ(Date::fromSeconds(kNaN), Date());
}

TEST(Date, IsATimeSpecAndBack) {
  timespec time{-5, 123'456'789};
  Date date = Date::fromTimeSpec(time);
  EXPECT_EQ(date.seconds(), -5);
  EXPECT_EQ(date.nanoseconds(), 123'456'789);
  EXPECT_EQ(date.timeSpec().tv_sec, -5);
  EXPECT_EQ(date.timeSpec().tv_nsec, 123'456'789);
  EXPECT_DOUBLE_EQ(Date(1, 250'000'000).secondsSince1970(), 1.25);
}

TEST(Date, TellsTheSecondsBetweenTwo) {
  EXPECT_EQ(Date(5).secondsSince(Date(3)), 2.0);
  EXPECT_EQ(Date(3).secondsSince(Date(5, 500'000'000)), -2.5);
  EXPECT_DOUBLE_EQ(Date(1'700'000'000, 1).secondsSince(Date(1'700'000'000)), 1e-9);
  EXPECT_DOUBLE_EQ(Date(kLatest).secondsSince(Date(kEarliest)), std::ldexp(1.0, 64));
  EXPECT_DOUBLE_EQ(Date(kEarliest).secondsSince(Date(kLatest)), -std::ldexp(1.0, 64));
}

TEST(Date, MovesBySeconds) {
  EXPECT_EQ(Date(5).plusSeconds(1.25), Date(6, 250'000'000));
  EXPECT_EQ(Date(5, 750'000'000).plusSeconds(0.5), Date(6, 250'000'000));
  EXPECT_EQ(Date(5).plusSeconds(-5.5), Date(-1, 500'000'000));
  EXPECT_EQ(Date(5).plusSeconds(kNaN), Date(5));
}

TEST(Date, SaturatesWhenItMovesTooFar) {
  EXPECT_EQ(Date(kLatest).plusSeconds(1), Date(kLatest));
  EXPECT_EQ(Date(kLatest, 999'999'999).plusSeconds(1e-9), Date(kLatest));
  EXPECT_EQ(Date(kEarliest).plusSeconds(-1), Date(kEarliest));
  EXPECT_EQ(Date(-5).plusSeconds(kInfinity), Date(kLatest));
  EXPECT_EQ(Date(5).plusSeconds(-kInfinity), Date(kEarliest));
  EXPECT_EQ(Date(kEarliest).plusSeconds(std::ldexp(1.0, 63)), Date(0));
}

TEST(Date, IsOrderedByTime) {
  EXPECT_LT(Date(-1, 999'999'999), Date(0));
  EXPECT_LT(Date(0, 1), Date(0, 2));
  EXPECT_GT(Date(1), Date(0, 999'999'999));
}

TEST(Date, DescribesItselfInUTC) {
  EXPECT_EQ(Date(1'709'644'029, 999'999'999).description(), "2024-03-05 13:07:09 +0000");
  EXPECT_EQ(Date(0).description(), "1970-01-01 00:00:00 +0000");
  EXPECT_EQ(Date(-1).description(), "1969-12-31 23:59:59 +0000");
  EXPECT_EQ(Date(-62'135'596'800).description(), "0001-01-01 00:00:00 +0000");
}

TEST(Date, DescribesInstantsBeyondEveryCalendar) {
  EXPECT_EQ(Date(kLatest).description(), "9223372036854775807 s +0000");
  EXPECT_EQ(Date(kEarliest).description(), "-9223372036854775808 s +0000");
}

}  // namespace
}  // namespace hoist
