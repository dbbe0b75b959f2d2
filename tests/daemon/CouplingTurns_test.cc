// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/CouplingTurns.h"

#include <gtest/gtest.h>

#include <optional>
#include <thread>
#include <vector>

namespace hoist {
namespace {

class Turns : public testing::Test {
 protected:
  ~Turns() override {
    for (auto& thread : threads_) thread.join();
  }
  // Has a launch of the user wait for its turn, which it notes and gives up.
  void wait(uid_t user) {
    std::size_t before = turns_.waiting();
    threads_.emplace_back([this, user] {
      auto turn = turns_.take(user);
      order_.push_back(user);
    });
    while (turns_.waiting() == before) std::this_thread::yield();
  }
  void joinAll() {
    for (auto& thread : threads_) thread.join();
    threads_.clear();
  }

  CouplingTurns turns_;
  std::vector<std::thread> threads_;
  // Written by whoever has the turn.
  std::vector<uid_t> order_;
};

TEST_F(Turns, OfAUserWithManyLaunchesHoldUpAnotherByOne) {
  std::optional<CouplingTurns::Turn> mine(turns_.take(1));
  for (uid_t user : {1, 1, 1, 2, 1, 3}) wait(user);
  EXPECT_EQ(turns_.waiting(), 6u);
  mine.reset();
  joinAll();
  EXPECT_EQ(order_, (std::vector<uid_t>{2, 3, 1, 1, 1, 1}));
}

TEST_F(Turns, AreOfOneUserOrOfNone) {
  EXPECT_EQ(turns_.user(), std::nullopt);
  {
    auto mine = turns_.take(7);
    EXPECT_EQ(turns_.user(), 7u);
  }
  EXPECT_EQ(turns_.user(), std::nullopt);
}

TEST_F(Turns, GoRoundWhenAllHaveHadOne) {
  for (uid_t user : {1, 2, 3}) turns_.take(user);
  std::optional<CouplingTurns::Turn> mine(turns_.take(1));
  for (uid_t user : {1, 1, 3, 3, 2}) wait(user);
  mine.reset();
  joinAll();
  EXPECT_EQ(order_, (std::vector<uid_t>{2, 3, 1, 3, 1}));
}

}  // namespace
}  // namespace hoist
