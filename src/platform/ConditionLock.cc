// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ConditionLock.h"

namespace hoist {

int ConditionLock::condition() const {
  MutexLock guard(mutex_);
  return condition_;
}

void ConditionLock::lock() {
  MutexLock guard(mutex_);
  while (held_) changed_.wait(mutex_);
  held_ = true;
}

bool ConditionLock::tryLock() {
  MutexLock guard(mutex_);
  if (held_) return false;
  held_ = true;
  return true;
}

void ConditionLock::lockWhenCondition(int condition) {
  MutexLock guard(mutex_);
  while (held_ || condition_ != condition) changed_.wait(mutex_);
  held_ = true;
}

bool ConditionLock::lockWhenCondition(int condition, Clock::Instant beforeDate) {
  MutexLock guard(mutex_);
  bool taken = Clock::waitUntil(changed_, mutex_, beforeDate, [&]() NO_THREAD_SAFETY_ANALYSIS {
    return !held_ && condition_ == condition;
  });
  if (taken) held_ = true;
  return taken;
}

void ConditionLock::unlock() {
  MutexLock guard(mutex_);
  held_ = false;
  changed_.notify_all();
}

void ConditionLock::unlockWithCondition(int condition) {
  MutexLock guard(mutex_);
  held_ = false;
  condition_ = condition;
  changed_.notify_all();
}

void ConditionLock::transitionToCondition(int condition) {
  lock();
  unlockWithCondition(condition);
}

void ConditionLock::sleepUntilCondition(int condition) {
  lockWhenCondition(condition);
  unlock();
}

bool ConditionLock::waitForMessageReplyBeforeInterval(double seconds) {
  auto wait =
      std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
  if (!lockWhenCondition(1, Clock::instant() + wait)) return false;
  unlock();
  return true;
}

}  // namespace hoist
