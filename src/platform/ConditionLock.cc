// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ConditionLock.h"

#include <algorithm>

namespace hoist {
namespace {

// Far beyond every wait, and far from what the clock can count.
constexpr double kLongestWait = 1e9;

Clock::Instant instantIn(double seconds) {
  // In this order a number that is none is no wait.
  std::chrono::duration<double> wait(std::min(kLongestWait, std::max(0., seconds)));
  return Clock::instant() + std::chrono::duration_cast<Clock::Instant::duration>(wait);
}

}  // namespace

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
  if (!lockWhenCondition(1, instantIn(seconds))) return false;
  unlock();
  return true;
}

}  // namespace hoist
