// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "values/Ref.h"

namespace hoist {

// A lock with a number: it can be taken when the number has a given value and released with another
// one. Whoever holds it may release it from another thread. Safe from any thread; not recursive.
//
// As a message lock it waits for one reply: condition 0 is armed, 1 is replied.
class ConditionLock {
 public:
  explicit ConditionLock(int condition = 0) : condition_(condition) {}
  static Ref<ConditionLock> messageLock() { return make<ConditionLock>(0); }

  int condition() const;
  void lock();
  bool tryLock();
  // Waits without a limit.
  void lockWhenCondition(int condition);
  // Answers whether the lock was taken before the deadline (by Clock).
  bool lockWhenCondition(int condition, Clock::Instant beforeDate);
  void unlock();
  void unlockWithCondition(int condition);

  // Takes the lock regardless of its condition and releases it with the given one.
  void transitionToCondition(int condition);
  // Waits without a limit until the condition is the given one.
  void sleepUntilCondition(int condition);

  void rearmMessageSync() { transitionToCondition(0); }
  void messageReplied() { transitionToCondition(1); }
  void waitForMessageReply() { sleepUntilCondition(1); }
  // Answers NO when the reply did not come within the given number of seconds.
  bool waitForMessageReplyBeforeInterval(double seconds);

 private:
  mutable Mutex mutex_;
  std::condition_variable_any changed_;
  bool held_ GUARDED_BY(mutex_) = false;
  int condition_ GUARDED_BY(mutex_);
};

}  // namespace hoist
