// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "platform/ThreadAnnotations.h"

namespace hoist {

// std::mutex that the thread-safety analysis knows.
class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }
  bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

// A 4-byte lock for short, non-blocking work; a thread that finds it taken sleeps in the kernel.
class CAPABILITY("mutex") SpinLock {
 public:
  void lock() ACQUIRE() {
    int free = kFree;
    if (state_.compare_exchange_strong(free, kTaken, std::memory_order_acquire)) return;
    // Once contended, the state stays so until a release: whoever releases then wakes a sleeper.
    while (state_.exchange(kContended, std::memory_order_acquire) != kFree) state_.wait(kContended);
  }
  void unlock() RELEASE() {
    if (state_.exchange(kFree, std::memory_order_release) == kContended) state_.notify_one();
  }
  bool try_lock() TRY_ACQUIRE(true) {
    int free = kFree;
    return state_.compare_exchange_strong(free, kTaken, std::memory_order_acquire);
  }

 private:
  static constexpr int kFree = 0;
  static constexpr int kTaken = 1;
  static constexpr int kContended = 2;
  std::atomic<int> state_ = kFree;
};

// Holds a lock for a scope; can be dropped and taken again inside it.
template <class Lock>
class SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(Lock& lock) ACQUIRE(lock) : lock_(lock), held_(true) { lock_.lock(); }
  ~ScopedLock() RELEASE() {
    if (held_) lock_.unlock();
  }
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;
  void lock() ACQUIRE() {
    lock_.lock();
    held_ = true;
  }
  void unlock() RELEASE() {
    lock_.unlock();
    held_ = false;
  }

 private:
  Lock& lock_;
  bool held_;
};

using MutexLock = ScopedLock<Mutex>;
using SpinLockHolder = ScopedLock<SpinLock>;

}  // namespace hoist
