// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>

namespace hoist {

// A point of time that threads wait for and another one makes come. Waiting for one that never
// comes is a failure of the test.
class Moment {
 public:
  void comes() {
    if (!isHere_.exchange(true)) promise_.set_value();
  }
  void await() const { EXPECT_EQ(future_.wait_for(kLongEnough), std::future_status::ready); }

 private:
  // Only a real failure comes near it.
  static constexpr std::chrono::seconds kLongEnough{60};

  std::atomic<bool> isHere_ = false;
  std::promise<void> promise_;
  std::shared_future<void> future_ = promise_.get_future();
};

}  // namespace hoist
