// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "preferences/RelativeDate.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/Calendar.h"
#include "platform/Clock.h"
#include "support/TimeZone.h"

namespace hoist {
namespace {

class RelativeDate : public testing::Test {
 protected:
  static Date local(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour = 0,
                    std::int64_t minute = 0, std::int64_t second = 0) {
    return Calendar::dateFromComponents({year, month, day, hour, minute, second});
  }
  static Date withFraction(Date date) { return Date(date.seconds(), 654'321'000); }

  TimeZone zone_{"CET-1CEST,M3.5.0,M10.5.0/3"};
  Date now_ = withFraction(local(2024, 3, 5, 14, 37, 52));
  TestClock clock_{now_};
};

TEST_F(RelativeDate, StartOfTodayIsThisDaysMidnight) {
  EXPECT_EQ(startOfToday(), local(2024, 3, 5));
}

TEST_F(RelativeDate, StartOfTodayFollowsTheClockIntoTheNextDay) {
  clock_.setDate(local(2024, 3, 5, 23, 59, 59));
  EXPECT_EQ(startOfToday(), local(2024, 3, 5));
  clock_.advance(std::chrono::seconds(1));
  EXPECT_EQ(startOfToday(), local(2024, 3, 6));
}

TEST_F(RelativeDate, TodayWithHourIsThatTimeOfThisDay) {
  EXPECT_EQ(todayWithHour(9, 15), local(2024, 3, 5, 9, 15));
}

TEST_F(RelativeDate, StartOfEraIsTheFirstDayOfTheYearOne) {
  EXPECT_EQ(startOfEra(now_), local(1, 1, 1));
  EXPECT_EQ(startOfEra(local(1, 1, 1)), local(1, 1, 1));
}

TEST_F(RelativeDate, StartOfTheEraBeforeOursIsTheFirstDayOf1BC) {
  EXPECT_EQ(startOfEra(local(-43, 3, 15)), local(0, 1, 1));
  EXPECT_EQ(startOfEra(local(0, 12, 31, 23, 59, 59)), local(0, 1, 1));
}

TEST_F(RelativeDate, StartOfYearIsTheFirstOfJanuaryOfAnyDateInIt) {
  for (int month = 1; month <= 12; ++month) {
    EXPECT_EQ(startOfYear(withFraction(local(2024, month, 28, 23, 59, 59))), local(2024, 1, 1));
  }
  EXPECT_EQ(startOfYear(local(2024, 1, 1)), local(2024, 1, 1));
  EXPECT_EQ(startOfYear(local(1931, 7, 1)), local(1931, 1, 1));
  EXPECT_EQ(startOfYear(local(-43, 3, 15)), local(-43, 1, 1));
}

TEST_F(RelativeDate, StartOfMonthIsItsFirstMidnightOnTheOtherSideOfAClockChange) {
  EXPECT_EQ(startOfMonth(local(2024, 3, 31, 12)), local(2024, 3, 1));
  EXPECT_EQ(startOfMonth(local(2024, 12, 31, 23, 59, 59)), local(2024, 12, 1));
}

TEST_F(RelativeDate, StartOfDayIsItsMidnight) {
  EXPECT_EQ(startOfDay(now_), local(2024, 3, 5));
  EXPECT_EQ(startOfDay(local(2024, 3, 31, 12)), local(2024, 3, 31));
}

TEST_F(RelativeDate, DateWithHourSetsBothAndDropsTheRest) {
  EXPECT_EQ(dateWithHour(now_, 9, 5), local(2024, 3, 5, 9, 5));
  EXPECT_EQ(dateWithHour(now_, 0, 0), local(2024, 3, 5));
}

TEST_F(RelativeDate, DateWithHourKeepsWhatIsMinusOne) {
  EXPECT_EQ(dateWithHour(now_, kKeepDateUnit, 0), local(2024, 3, 5, 14, 0));
  EXPECT_EQ(dateWithHour(now_, 9, kKeepDateUnit), local(2024, 3, 5, 9, 37));
  EXPECT_EQ(dateWithHour(now_, -1, -1), local(2024, 3, 5, 14, 37));
}

TEST_F(RelativeDate, DateWithHourCountsOnBeyondTheDay) {
  EXPECT_EQ(dateWithHour(now_, 25, 0), local(2024, 3, 6, 1));
  EXPECT_EQ(dateWithHour(now_, 10, 61), local(2024, 3, 5, 11, 1));
}

TEST_F(RelativeDate, DateWithHourMovesASkippedTimeForward) {
  EXPECT_EQ(dateWithHour(local(2024, 3, 31), 2, 30), local(2024, 3, 31, 3, 30));
}

TEST_F(RelativeDate, NextHourIsTodayWhileTheTimeIsAhead) {
  EXPECT_EQ(nextHour(now_, 15, 0), local(2024, 3, 5, 15));
}

TEST_F(RelativeDate, NextHourIsTomorrowWhenTheTimeHasPassed) {
  EXPECT_EQ(nextHour(now_, 14, 37), local(2024, 3, 6, 14, 37));
  EXPECT_EQ(nextHour(now_, 9, 0), local(2024, 3, 6, 9));
}

TEST_F(RelativeDate, NextHourIsTodayWhenItIsExactlyNow) {
  clock_.setDate(local(2024, 3, 5, 15));
  EXPECT_EQ(nextHour(Clock::now(), 15, 0), local(2024, 3, 5, 15));
}

TEST_F(RelativeDate, NextHourOfAnOlderDateIsOneDayAfterThatDateOnly) {
  EXPECT_EQ(nextHour(local(2020, 2, 28), 12, 0), local(2020, 2, 29, 12));
}

TEST_F(RelativeDate, NextHourKeepsTheTimeOfDayOverAClockChange) {
  clock_.setDate(local(2024, 3, 30, 13));
  EXPECT_EQ(nextHour(Clock::now(), 12, 0), local(2024, 3, 31, 12));
}

TEST_F(RelativeDate, OneDayAfterTheEndOfAMonthIsTheFirstOfTheNext) {
  EXPECT_EQ(dateOffsetBy(local(2024, 2, 29, 23, 30), 1, OffsetScale::Days),
            local(2024, 3, 1, 23, 30));
  EXPECT_EQ(dateOffsetBy(local(2024, 12, 31, 23, 30), 1, OffsetScale{2}),
            local(2025, 1, 1, 23, 30));
}

TEST_F(RelativeDate, ThreeWeeksReversedAreTwentyOneDaysBack) {
  EXPECT_EQ(dateOffsetBy(now_, 3, true, OffsetScale::Weeks),
            withFraction(local(2024, 2, 13, 14, 37, 52)));
}

TEST_F(RelativeDate, EachScaleAddsItsUnit) {
  Date date = local(2024, 1, 31, 12);
  EXPECT_EQ(dateOffsetBy(date, 5, OffsetScale{0}), local(2024, 1, 31, 12, 5));
  EXPECT_EQ(dateOffsetBy(date, 5, OffsetScale{1}), local(2024, 1, 31, 17));
  EXPECT_EQ(dateOffsetBy(date, 5, OffsetScale{2}), local(2024, 2, 5, 12));
  EXPECT_EQ(dateOffsetBy(date, 5, OffsetScale{3}), local(2024, 3, 6, 12));
  EXPECT_EQ(dateOffsetBy(date, 5, OffsetScale{4}), local(2024, 6, 30, 12));
  EXPECT_EQ(dateOffsetBy(date, 5, OffsetScale{5}), local(2029, 1, 31, 12));
}

TEST_F(RelativeDate, AnUnknownScaleAddsNothing) {
  EXPECT_EQ(dateOffsetBy(now_, 5, OffsetScale{6}), now_);
  EXPECT_EQ(dateOffsetBy(now_, 5, true, OffsetScale{0xFFFFFFFF}), now_);
}

TEST_F(RelativeDate, AnOffsetOfZeroIsTheDateItself) {
  // In the doubled hour a detour through the calendar would land on the first of the two.
  Date second = Date(local(2024, 10, 27, 2, 30).seconds() + 3'600);
  EXPECT_EQ(dateOffsetBy(second, 0, OffsetScale::Days), second);
}

TEST_F(RelativeDate, ANegativeOffsetReversedGoesForward) {
  EXPECT_EQ(dateOffsetBy(now_, -2, true, OffsetScale::Days),
            dateOffsetBy(now_, 2, OffsetScale::Days));
}

TEST_F(RelativeDate, TheGreatestOffsetsSaturate) {
  auto lowest = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(dateOffsetBy(now_, lowest, true, OffsetScale::Years).seconds(),
            std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(dateOffsetBy(now_, lowest, OffsetScale::Years).seconds(), lowest);
}

TEST_F(RelativeDate, OnlyAnEarlierDateIsInThePast) {
  EXPECT_FALSE(inThePast(now_));
  EXPECT_TRUE(inThePast(Date(now_.seconds(), now_.nanoseconds() - 1)));
  EXPECT_FALSE(inThePast(Date(now_.seconds() + 1)));
}

}  // namespace
}  // namespace hoist
