// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ConditionLock.h"

#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include "support/ClockDriver.h"

namespace hoist {
namespace {

using namespace std::chrono_literals;

TEST(ConditionLock, IsTakenOnlyWhenItsConditionHolds) {
  ConditionLock lock(0);
  int value = 0;
  std::thread setter([&] {
    lock.lockWhenCondition(0);
    value = 7;
    lock.unlockWithCondition(1);
  });
  lock.lockWhenCondition(1);
  EXPECT_EQ(value, 7);
  lock.unlockWithCondition(2);
  setter.join();
  EXPECT_EQ(lock.condition(), 2);
}

TEST(ConditionLock, GivesUpAtItsDeadline) {
  TestClock clock(Date(0));
  ConditionLock lock(0);
  auto deadline = Clock::instant() + 20s;
  std::thread advancer([&] { clock.advance(20s); });
  EXPECT_FALSE(lock.lockWhenCondition(2, deadline));
  advancer.join();
  EXPECT_TRUE(lock.tryLock());
}

TEST(ConditionLock, IsTakenBeforeItsDeadlineWhenTheConditionComes) {
  ConditionLock lock(0);
  std::thread setter([&] { lock.transitionToCondition(2); });
  EXPECT_TRUE(lock.lockWhenCondition(2, Clock::instant() + 1h));
  lock.unlock();
  EXPECT_EQ(lock.condition(), 2);
  setter.join();
}

TEST(ConditionLock, CannotBeTakenWhileItIsHeld) {
  ConditionLock lock(5);
  lock.lock();
  EXPECT_FALSE(lock.tryLock());
  EXPECT_FALSE(lock.lockWhenCondition(5, Clock::instant()));
  lock.unlock();
  EXPECT_TRUE(lock.tryLock());
}

TEST(MessageLock, WaitsForItsReply) {
  auto lock = ConditionLock::messageLock();
  std::thread replier([&] { lock->messageReplied(); });
  lock->waitForMessageReply();
  replier.join();
  lock->rearmMessageSync();
  EXPECT_EQ(lock->condition(), 0);
}

TEST(MessageLock, AnswersNoWhenTheReplyDoesNotCome) {
  TestClock clock(Date(0));
  auto lock = ConditionLock::messageLock();
  ClockDriver driver(clock);
  EXPECT_FALSE(lock->waitForMessageReplyBeforeInterval(2.5));
}

TEST(MessageLock, WaitsHoweverLongItMay) {
  for (double seconds : {1e10, 1e300, std::numeric_limits<double>::infinity()}) {
    auto lock = ConditionLock::messageLock();
    std::thread replier([&] { lock->messageReplied(); });
    EXPECT_TRUE(lock->waitForMessageReplyBeforeInterval(seconds)) << seconds;
    replier.join();
  }
}

TEST(MessageLock, DoesNotWaitForATimeThatHasPassedOrIsNone) {
  auto lock = ConditionLock::messageLock();
  for (double seconds : {-1., -1e300, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_FALSE(lock->waitForMessageReplyBeforeInterval(seconds)) << seconds;
  }
}

TEST(MessageLock, AnswersYesWhenTheReplyIsThere) {
  auto lock = ConditionLock::messageLock();
  lock->messageReplied();
  EXPECT_TRUE(lock->waitForMessageReplyBeforeInterval(0));
}

}  // namespace
}  // namespace hoist
