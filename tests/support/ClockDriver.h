// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <stop_token>
#include <thread>

#include "platform/Clock.h"

namespace hoist {

// Keeps moving a test clock while it lives, so that a wait in the code under test ends whenever it
// began.
class ClockDriver {
 public:
  explicit ClockDriver(TestClock& clock, std::chrono::nanoseconds step = std::chrono::seconds(1))
      : thread_([&clock, step](std::stop_token stop) {
          while (!stop.stop_requested()) {
            clock.advance(step);
            std::this_thread::yield();
          }
        }) {}

 private:
  std::jthread thread_;
};

}  // namespace hoist
