// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Clock.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>

#include "platform/SystemCall.h"

namespace hoist {
namespace {

// The state of the test clock. It is read on every question, so it is a few atomics rather than a
// lock.
struct Set {
  std::atomic<bool> active = false;
  std::atomic<std::int64_t> seconds = 0;
  std::atomic<std::int64_t> nanoseconds = 0;
  std::atomic<std::int64_t> elapsed = 0;
};
Set& set() {
  static auto& state = *new Set;
  return state;
}

// How often a wait looks at a clock that a test moves: no notification can be lost, since none is
// needed.
constexpr std::chrono::milliseconds kTestPoll{1};

}  // namespace

Date Clock::now() {
  if (set().active) return Date(set().seconds, set().nanoseconds);
  timespec time;
  clock_gettime(CLOCK_REALTIME, &time);
  return Date::fromTimeSpec(time);
}

Clock::Instant Clock::instant() {
  if (set().active) return Instant(std::chrono::nanoseconds(set().elapsed));
  return std::chrono::steady_clock::now();
}

bool Clock::waitUntil(std::condition_variable_any& variable, Mutex& mutex, Instant deadline,
                      const std::function<bool()>& condition) {
  while (!condition()) {
    if (instant() >= deadline) return false;
    if (set().active) {
      variable.wait_for(mutex, kTestPoll);
    } else {
      variable.wait_until(mutex, deadline);
    }
  }
  return true;
}

int Clock::poll(std::span<pollfd> descriptors, Instant deadline) {
  for (;;) {
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - instant());
    // Cut to what poll takes; a longer wait goes round again.
    auto wait = std::clamp<std::int64_t>(left.count(), 0, std::numeric_limits<int>::max());
    if (set().active) wait = std::min<std::int64_t>(wait, kTestPoll.count());
    int ready = retryInterrupted(
        [&] { return ::poll(descriptors.data(), descriptors.size(), static_cast<int>(wait)); });
    if (ready < 0) throwSystemCallError("poll");
    if (ready > 0 || instant() >= deadline) return ready;
  }
}

TestClock::TestClock(Date now) {
  set().elapsed = std::chrono::steady_clock::now().time_since_epoch().count();
  setDate(now);
  set().active = true;
}

TestClock::~TestClock() {
  set().active = false;
}

void TestClock::advance(std::chrono::nanoseconds duration) {
  Date later(set().seconds, set().nanoseconds + duration.count());
  setDate(later);
  set().elapsed += duration.count();
}

void TestClock::setDate(Date now) {
  set().seconds = now.seconds();
  set().nanoseconds = now.nanoseconds();
}

}  // namespace hoist
