// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/DispatchHelp.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <string>
#include <thread>

#include "platform/UserIdentity.h"
#include "support/AsUser.h"
#include "support/OneProcessor.h"

namespace hoist::dispatch {
namespace {

class WorkWithHelp : public testing::Test {
 protected:
  void SetUp() override {
    if (processorsOfThisThread() < 2) GTEST_SKIP() << "needs two processors";
  }
};

std::string thrownBy(const Block& work, const Block& help) {
  try {
    runWithHelp(work, help);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "nothing";
}

TEST_F(WorkWithHelp, IsDoneByTwoThreadsAndOverWhenBothAre) {
  std::latch both(2);
  std::thread::id worker, helper;
  std::atomic<bool> ended = false;
  runWithHelp(
      [&] {
        worker = std::this_thread::get_id();
        both.arrive_and_wait();
      },
      [&] {
        helper = std::this_thread::get_id();
        both.arrive_and_wait();
        for (int i = 0; i < 1000; ++i) std::this_thread::yield();
        ended = true;
      });
  EXPECT_TRUE(ended);
  EXPECT_EQ(worker, std::this_thread::get_id());
  EXPECT_NE(helper, worker);
}

TEST_F(WorkWithHelp, PassesOnWhatTheHelpThrows) {
  std::latch helped(1);
  EXPECT_EQ(thrownBy([&] { helped.wait(); },
                     [&] {
                       helped.count_down();
                       throw std::runtime_error("help");
                     }),
            "help");
}

TEST_F(WorkWithHelp, PassesOnWhatTheWorkThrowsAfterTheHelpHasEnded) {
  std::latch begun(1), thrown(1);
  std::atomic<bool> ended = false;
  EXPECT_EQ(thrownBy(
                [&] {
                  begun.wait();
                  thrown.count_down();
                  throw std::runtime_error("work");
                },
                [&] {
                  begun.count_down();
                  thrown.wait();
                  ended = true;
                  throw std::runtime_error("help");
                }),
            "work");
  EXPECT_TRUE(ended);
}

TEST_F(WorkWithHelp, DoesNotWaitForHelpThatComesTooLate) {
  for (int i = 0; i < 2000; ++i) {
    std::atomic<bool> over = false;
    runWithHelp([&] {}, [&] { EXPECT_FALSE(over); });
    over = true;
  }
}

TEST_F(WorkWithHelp, GetsNoneWhereThereIsOneProcessor) {
  OneProcessor one;
  bool helped = false;
  runWithHelp([] {}, [&] { helped = true; });
  EXPECT_FALSE(helped);
}

TEST_F(WorkWithHelp, GetsNoneWithAnotherUsersRights) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to take another user's rights";
  platform::UsersFileRights rights({54321, 54322, {}});
  bool helped = false;
  runWithHelp([] {}, [&] { helped = true; });
  EXPECT_FALSE(helped);
}

}  // namespace
}  // namespace hoist::dispatch
