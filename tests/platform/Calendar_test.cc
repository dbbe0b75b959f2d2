// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Calendar.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/TimeZone.h"

namespace hoist {
namespace {

using Unit = Calendar::Unit;
constexpr auto kFarthest = std::numeric_limits<std::int64_t>::max();
constexpr auto kEarliest = std::numeric_limits<std::int64_t>::min();

Date local(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour = 0,
           std::int64_t minute = 0, std::int64_t second = 0) {
  return Calendar::dateFromComponents({year, month, day, hour, minute, second});
}

// The zones' rules are written out, so that no test depends on an installed database, but for the
// few that have no rule.
constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr const char* kMidnightSkipped = "XST3XDT,M10.3.0/0,M2.3.0/0";
constexpr const char* kChangeBeforeMidnight = "XST3XDT,M10.3.6/23:30,M2.3.0/0";
constexpr const char* kMidnightDoubled = "XST3XDT,M10.3.0/12,M2.3.0/0:30";

TEST(Calendar, SplitsADateIntoLocalComponents) {
  TimeZone zone(kBerlin);
  DateComponents at = Calendar::componentsOf(Date(1'709'644'029, 999'999'999));
  EXPECT_EQ(at.year, 2024);
  EXPECT_EQ(at.month, 3);
  EXPECT_EQ(at.day, 5);
  EXPECT_EQ(at.hour, 14);
  EXPECT_EQ(at.minute, 7);
  EXPECT_EQ(at.second, 9);
}

TEST(Calendar, SplitsADateBefore1970Downwards) {
  TimeZone zone("UTC");
  DateComponents at = Calendar::componentsOf(Date(-1, 1));
  EXPECT_EQ(at.year, 1969);
  EXPECT_EQ(at.month, 12);
  EXPECT_EQ(at.day, 31);
  EXPECT_EQ(at.hour, 23);
  EXPECT_EQ(at.minute, 59);
  EXPECT_EQ(at.second, 59);
}

TEST(Calendar, KnowsTheYearsBeforeOurEra) {
  TimeZone zone("UTC");
  // Noon of 15 March, 44 BC, in the Gregorian calendar reckoned backwards.
  Date ides = local(-43, 3, 15, 12);
  EXPECT_EQ(ides.seconds(), -63'517'780'800);
  EXPECT_EQ(Calendar::componentsOf(ides).year, -43);
  EXPECT_EQ(local(1, 1, 1).seconds(), -62'135'596'800);
}

TEST(Calendar, IsItsOwnInverseOverFourHundredYears) {
  TimeZone zone("UTC");
  for (std::int64_t day = -800'000; day < 800'000; day += 37) {
    Date date(day * 86'400 + 45'296);
    EXPECT_EQ(Calendar::dateFromComponents(Calendar::componentsOf(date)), date);
  }
}

TEST(Calendar, CountsFieldsOutsideTheirRangeOn) {
  TimeZone zone(kBerlin);
  EXPECT_EQ(local(2024, 3, 5, 25), local(2024, 3, 6, 1));
  EXPECT_EQ(local(2024, 3, 5, 0, 90), local(2024, 3, 5, 1, 30));
  EXPECT_EQ(local(2024, 3, 5, -2), local(2024, 3, 4, 22));
  EXPECT_EQ(local(2024, 13, 1), local(2025, 1, 1));
  EXPECT_EQ(local(2024, 0, 1), local(2023, 12, 1));
  EXPECT_EQ(local(2024, -11, 1), local(2023, 1, 1));
  EXPECT_EQ(local(2023, 2, 29), local(2023, 3, 1));
  EXPECT_EQ(local(2023, 3, 0), local(2023, 2, 28));
}

TEST(Calendar, MovesASkippedTimeForwardByTheGap) {
  TimeZone zone(kBerlin);
  EXPECT_EQ(local(2024, 3, 31, 2, 30), local(2024, 3, 31, 3, 30));
  EXPECT_EQ(local(2024, 3, 31, 2), local(2024, 3, 31, 3));
}

TEST(Calendar, TakesTheFirstOfADoubledTime) {
  TimeZone zone(kBerlin);
  // 2:30 summer time is 0:30 UTC, an hour before 2:30 winter time.
  EXPECT_EQ(local(2024, 10, 27, 2, 30), Date(1'729'989'000));
  EXPECT_EQ(Calendar::secondsFromUTC(local(2024, 10, 27, 2, 30)), 7'200);
  EXPECT_EQ(Calendar::secondsFromUTC(local(2024, 10, 27, 3)), 3'600);
}

TEST(Calendar, KeepsTheRulesOfTheZoneAfter2037) {
  TimeZone zone(kBerlin);
  EXPECT_EQ(Calendar::secondsFromUTC(local(2050, 7, 1)), 7'200);
  EXPECT_EQ(Calendar::secondsFromUTC(local(2050, 1, 1)), 3'600);
}

TEST(Calendar, StartsADayAtMidnight) {
  TimeZone zone(kBerlin);
  EXPECT_EQ(Calendar::startOfDay(local(2024, 3, 5, 23, 59, 59)), local(2024, 3, 5));
  EXPECT_EQ(Calendar::startOfDay(local(2024, 3, 5)), local(2024, 3, 5));
  EXPECT_EQ(Calendar::startOfDay(Date(-1, 5)), local(1970, 1, 1));  // 0:59:59 in Berlin
}

TEST(Calendar, StartsADayWhoseMidnightIsSkippedAtItsFirstInstant) {
  TimeZone zone(kMidnightSkipped);
  Date start = Calendar::startOfDay(local(2024, 10, 20, 15));
  EXPECT_EQ(start, local(2024, 10, 20, 1));
  EXPECT_EQ(Calendar::componentsOf(Date(start.seconds() - 1)).day, 19);
}

TEST(Calendar, StartsADayInsideASkippedHourWhereTheGapEnds) {
  TimeZone zone(kChangeBeforeMidnight);
  Date start = Calendar::startOfDay(local(2024, 10, 20, 15));
  EXPECT_EQ(start, local(2024, 10, 20, 0, 30));
  EXPECT_EQ(Calendar::componentsOf(Date(start.seconds() - 1)).day, 19);
}

TEST(Calendar, StartsADayWhoseMidnightIsDoubledAtTheFirst) {
  TimeZone zone(kMidnightDoubled);
  Date start = Calendar::startOfDay(local(2024, 2, 18, 15));
  EXPECT_EQ(Calendar::secondsFromUTC(start), -7'200);
  EXPECT_EQ(Calendar::startOfDay(Date(start.seconds() + 60)), start);
}

TEST(Calendar, MovesADateOfASkippedDayIntoTheNext) {
  TimeZone zone("Pacific/Apia");
  if (Calendar::secondsFromUTC(Date(1'325'000'000)) == 0) GTEST_SKIP() << "no zone database";
  // The islands crossed the date line: there was no 30 December 2011.
  Date before = local(2011, 12, 29, 10);
  Date after = Calendar::dateByAdding(before, Unit::Day, 1);
  EXPECT_EQ(Calendar::componentsOf(after).day, 31);
  EXPECT_EQ(Calendar::componentsOf(after).hour, 10);
  EXPECT_EQ(Calendar::startOfDay(after), local(2011, 12, 31));
}

TEST(Calendar, AddsHoursAsElapsedTimeAndDaysByTheClock) {
  TimeZone zone(kBerlin);
  Date evening = local(2024, 3, 30, 12);
  EXPECT_EQ(Calendar::dateByAdding(evening, Unit::Hour, 24), local(2024, 3, 31, 13));
  EXPECT_EQ(Calendar::dateByAdding(evening, Unit::Day, 1), local(2024, 3, 31, 12));
  EXPECT_EQ(Calendar::dateByAdding(evening, Unit::Week, -1), local(2024, 3, 23, 12));
}

TEST(Calendar, CutsTheDayToTheLengthOfTheMonth) {
  TimeZone zone(kBerlin);
  EXPECT_EQ(Calendar::dateByAdding(local(2024, 1, 31), Unit::Month, 1), local(2024, 2, 29));
  EXPECT_EQ(Calendar::dateByAdding(local(2024, 3, 31), Unit::Month, -13), local(2023, 2, 28));
  EXPECT_EQ(Calendar::dateByAdding(local(2024, 2, 29), Unit::Year, 1), local(2025, 2, 28));
  EXPECT_EQ(Calendar::dateByAdding(local(2024, 2, 29), Unit::Year, -100), local(1924, 2, 29));
  EXPECT_EQ(Calendar::dateByAdding(local(1, 6, 1), Unit::Year, -1), local(0, 6, 1));
}

TEST(Calendar, KeepsWhatIsBelowASecondWhenAdding) {
  TimeZone zone(kBerlin);
  Date date(1'709'644'029, 123'456'789);
  EXPECT_EQ(Calendar::dateByAdding(date, Unit::Minute, 1), Date(1'709'644'089, 123'456'789));
  EXPECT_EQ(Calendar::dateByAdding(date, Unit::Day, 1).nanoseconds(), 123'456'789);
}

TEST(Calendar, SaturatesAtTheEndsOfTime) {
  TimeZone zone(kBerlin);
  for (Unit unit : {Unit::Minute, Unit::Hour, Unit::Day, Unit::Week, Unit::Month, Unit::Year}) {
    EXPECT_EQ(Calendar::dateByAdding(Date(0), unit, kFarthest).seconds(), kFarthest);
    EXPECT_EQ(Calendar::dateByAdding(Date(0), unit, kEarliest).seconds(), kEarliest);
  }
  EXPECT_EQ(local(kFarthest, kFarthest, kFarthest, kFarthest, kFarthest, kFarthest).seconds(),
            kFarthest);
  EXPECT_EQ(local(kEarliest, kEarliest, kEarliest, kEarliest, kEarliest, kEarliest).seconds(),
            kEarliest);
  EXPECT_LE(Calendar::startOfDay(Date(kFarthest)), Date(kFarthest));
  EXPECT_LE(Calendar::startOfDay(Date(kEarliest)).seconds(), kEarliest + 2 * 86'400);
  EXPECT_GT(Calendar::componentsOf(Date(kFarthest)).year, 290'000'000'000);
  EXPECT_LT(Calendar::componentsOf(Date(kEarliest)).year, -290'000'000'000);
}

TEST(Calendar, SeesAChangeOfTheZone) {
  Date date(1'709'644'029);
  {
    TimeZone zone(kBerlin);
    EXPECT_EQ(Calendar::componentsOf(date).hour, 14);
  }
  TimeZone zone("XXX-5:45");
  EXPECT_EQ(Calendar::componentsOf(date).hour, 18);
  EXPECT_EQ(Calendar::componentsOf(date).minute, 52);
}

}  // namespace
}  // namespace hoist
