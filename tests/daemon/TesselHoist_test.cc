// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/TesselHoist.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <time.h>

#include "connection/protocols/TesselHoisting.h"
#include "platform/Clock.h"
#include "platform/Dispatch.h"

namespace hoist {
namespace {

using namespace std::chrono_literals;

// A Tuesday in March, 14:07:00 UTC.
constexpr std::int64_t kMinute = 1'709'647'620;

TEST(PostponedFireDate, IsTheStartOfTheMinutePlusTheIdlePeriodForEverySecond) {
  for (int second = 0; second < 60; ++second) {
    EXPECT_EQ(postponedFireDate(Date(kMinute + second, 999'999'999)), Date(kMinute + 1226))
        << second;
  }
  EXPECT_EQ(postponedFireDate(Date(kMinute + 60)), Date(kMinute + 60 + 1226));
}

TEST(PostponedFireDate, HoldsBeforeTheEpoch) {
  EXPECT_EQ(postponedFireDate(Date(-1)), Date(-60 + 1226));
}

// The minute's start is rebuilt from the local calendar's components by the C library, for every
// minute around both clock changes of a year: except in the repeated hour, where components cannot
// tell the two apart, it is the same.
TEST(PostponedFireDate, AgreesWithTheLocalCalendarOnDaylightSavingDays) {
  ::setenv("TZ", "Europe/Zurich", 1);
  ::tzset();
  for (std::int64_t change : {1'711'846'800LL, 1'729'990'800LL}) {
    for (std::int64_t at = change - 7200; at < change + 7200; at += 59) {
      time_t now = at;
      tm local;
      ::localtime_r(&now, &local);
      local.tm_sec = 0;
      EXPECT_EQ(postponedFireDate(Date(at)), Date(::mktime(&local) + 1226)) << at;
    }
  }
  ::unsetenv("TZ");
  ::tzset();
}

class Lifetime : public testing::Test {
 protected:
  // What the fire date is from the start of the first minute.
  double deadline() { return hoist_.deadManTimer()->fireDate().secondsSince(Date(kMinute)); }

  int exits_ = 0;
  TesselHoist hoist_{[this](int status) {
    EXPECT_EQ(status, 0);
    ++exits_;
  }};
};

TEST_F(Lifetime, StartsWith1226SecondsAtTheStartOfAMinute) {
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  EXPECT_EQ(deadline(), 1226);
}

TEST_F(Lifetime, StartsWith1167SecondsAtTheEndOfAMinute) {
  TestClock clock{Date(kMinute + 59)};
  hoist_.scheduleDeadManTimer();
  EXPECT_EQ(deadline() - 59, 1167);
}

TEST_F(Lifetime, IsNotExtendedByARequestFiveMinutesAfterTheStart) {
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  clock.advance(5min);
  hoist_.keepAlive();
  EXPECT_EQ(deadline(), 1226);
}

TEST_F(Lifetime, IsExtendedByARequestTenSecondsBeforeTheDeadline) {
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  clock.advance(1216s);
  hoist_.keepAlive();
  // 1216 seconds are 20 minutes and 16 seconds: the minute began at 1200.
  EXPECT_EQ(deadline(), 1200 + 1226);
}

TEST_F(Lifetime, IsExtendedFromExactly26SecondsOn) {
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  clock.advance(1226s - 26s - 1ns);
  hoist_.keepAlive();
  EXPECT_EQ(deadline(), 1226);
  clock.advance(1ns);
  hoist_.keepAlive();
  EXPECT_EQ(deadline(), 1200 + 1226);
}

TEST_F(Lifetime, EndsHalfASecondAfterTheVendorIsShutDown) {
  auto listener = xpc::Listener::anonymousListener();
  auto vendor = KLConnectionServiceFactory::initWithListener(listener, "TesselHoister",
                                                             tesselHoistingProtocol());
  hoist_.setConnectionVendor(vendor);
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  ASSERT_TRUE(vendor->endpoint());
  hoist_.timeToDie();
  EXPECT_FALSE(vendor->endpoint());
  EXPECT_EQ(hoist_.deadManTimer(), nullptr);
  clock.advance(499ms);
  dispatch::globalQueue().sync([] {});
  RunLoop::main().runOnce(0);
  EXPECT_EQ(exits_, 0);
  clock.advance(1ms);
  while (exits_ == 0) RunLoop::main().runOnce(1'000'000);
  EXPECT_EQ(exits_, 1);
}

TEST_F(Lifetime, EndsWhenItsTimerFires) {
  // By the run loop's clock, which is the real one, this is long past.
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  while (hoist_.deadManTimer()) RunLoop::main().runOnce(1'000'000);
  clock.advance(500ms);
  while (exits_ == 0) RunLoop::main().runOnce(1'000'000);
}

TEST_F(Lifetime, IgnoresARequestThatComesWhileItEnds) {
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  hoist_.timeToDie();
  hoist_.keepAlive();
  EXPECT_EQ(hoist_.deadManTimer(), nullptr);
  clock.advance(500ms);
  while (exits_ == 0) RunLoop::main().runOnce(1'000'000);
}

TEST_F(Lifetime, IsKeptAliveFromAnyThreadThroughTheMainQueue) {
  TestClock clock{Date(kMinute)};
  hoist_.scheduleDeadManTimer();
  TesselHoist::setSharedHoist(&hoist_);
  clock.advance(1216s);
  dispatch::globalQueue().sync([] { postKeepAlive(); });
  EXPECT_EQ(deadline(), 1226);
  RunLoop::main().runOnce(1'000'000);
  EXPECT_EQ(deadline(), 1200 + 1226);
  TesselHoist::setSharedHoist(nullptr);
}

}  // namespace
}  // namespace hoist
