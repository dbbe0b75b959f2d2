// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/DateFormatter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <vector>

namespace hoist {
namespace {

// 2024-03-05 13:07:09.123999999 UTC
constexpr Date kDate(1709644029, 123'999'999);

class DateFormatterTest : public testing::Test {
 protected:
  ~DateFormatterTest() override { ::unsetenv("TZ"); }
  static void setZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
};

TEST_F(DateFormatterTest, WritesTheLocalTimeWithItsOffset) {
  DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS Z");
  setZone("CET-1");
  EXPECT_EQ(formatter.stringFromDate(kDate), "2024-03-05 14:07:09.123 +0100");
  setZone("XXX5:30");
  EXPECT_EQ(DateFormatter("yyyy-MM-dd HH:mm:ss.SSS Z").stringFromDate(kDate),
            "2024-03-05 07:37:09.123 -0530");
}

TEST_F(DateFormatterTest, CutsMilliseconds) {
  setZone("UTC");
  DateFormatter formatter("ss.SSS");
  EXPECT_EQ(formatter.stringFromDate(Date(9, 0)), "09.000");
  EXPECT_EQ(formatter.stringFromDate(Date(9, 999'999'999)), "09.999");
  EXPECT_EQ(formatter.stringFromDate(Date(9, 1'000'000)), "09.001");
  EXPECT_EQ(formatter.stringFromDate(Date(-1, 500'000'000)), "59.500");
}

TEST_F(DateFormatterTest, FollowsTheSeconds) {
  setZone("UTC");
  DateFormatter formatter("HH:mm:ss");
  EXPECT_EQ(formatter.stringFromDate(Date(59)), "00:00:59");
  EXPECT_EQ(formatter.stringFromDate(Date(60)), "00:01:00");
  EXPECT_EQ(formatter.stringFromDate(Date(59)), "00:00:59");
}

TEST_F(DateFormatterTest, FollowsTheClockChange) {
  setZone("CET-1CEST,M3.5.0,M10.5.0/3");
  DateFormatter formatter("HH:mm Z");
  EXPECT_EQ(formatter.stringFromDate(Date(1711846799)), "01:59 +0100");
  EXPECT_EQ(formatter.stringFromDate(Date(1711846800)), "03:00 +0200");
}

TEST_F(DateFormatterTest, WritesWhatIsNoLetterAsItStands) {
  setZone("UTC");
  EXPECT_EQ(DateFormatter("%yyyy%%/MM").stringFromDate(kDate), "%2024%%/03");
  EXPECT_EQ(DateFormatter("").stringFromDate(kDate), "");
  std::string text = "at ";
  DateFormatter("HH").appendDate(kDate, text);
  EXPECT_EQ(text, "at 13");
}

TEST_F(DateFormatterTest, WritesInstantsBeyondTheCalendarAsSeconds) {
  EXPECT_EQ(DateFormatter("yyyy").stringFromDate(Date(1'000'000'000'000)), "1000000000000");
}

TEST(DateFormatter, RefusesFieldsItDoesNotKnow) {
  for (auto pattern : {"yy", "QQQ", "SSS.SSS", "SS", "d 'o'"}) {
    EXPECT_THROW(DateFormatter formatter(pattern), std::invalid_argument) << pattern;
  }
}

TEST_F(DateFormatterTest, IsSafeFromManyThreads) {
  setZone("UTC");
  DateFormatter formatter("ss");
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < 4; ++thread) {
    threads.emplace_back([&, thread] {
      for (int second = 0; second < 1000; ++second) {
        int expected = (second + thread) % 60;
        EXPECT_EQ(std::stoi(formatter.stringFromDate(Date(expected))), expected);
      }
    });
  }
}

}  // namespace
}  // namespace hoist
