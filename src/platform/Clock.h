// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <span>

#include "platform/Mutex.h"
#include "values/Date.h"

namespace hoist {

// The one source of "now" and of every timed wait, so that a test can set it. All functions are
// safe from any thread.
class Clock {
 public:
  // An instant of the clock that is used for durations; it does not jump when somebody sets the
  // wall clock.
  using Instant = std::chrono::steady_clock::time_point;

  static Date now();
  static Instant instant();

  // Waits, with the lock held, until the condition holds or the deadline has come; answers whether
  // it holds. Whoever makes it true notifies the variable.
  static bool waitUntil(std::condition_variable_any& variable, Mutex& mutex, Instant deadline,
                        const std::function<bool()>& condition) REQUIRES(mutex);

  // Waits until one of the descriptors is ready or the deadline has come. Answers as poll(2) does:
  // how many are ready, 0 at the deadline. Throws SystemCallError.
  static int poll(std::span<pollfd> descriptors, Instant deadline);
};

// The clock stands still at the given date and moves only by advance(), for as long as this object
// lives. One at a time.
class TestClock {
 public:
  explicit TestClock(Date now);
  ~TestClock();
  TestClock(const TestClock&) = delete;
  TestClock& operator=(const TestClock&) = delete;

  // Moves both the wall clock and the clock of durations forward; waits whose deadline has come end
  // soon after.
  void advance(std::chrono::nanoseconds duration);
  // Sets the wall clock only, as an administrator would.
  void setDate(Date now);
};

}  // namespace hoist
