// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Dispatch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <stdexcept>
#include <thread>

#include "platform/RunLoop.h"
#include "support/ClockDriver.h"

namespace hoist::dispatch {
namespace {

using namespace std::chrono_literals;

TEST(GlobalQueue, RunsAJobWhileManyOthersAreBlocked) {
  constexpr int kBlocked = 40;
  std::latch release(1);
  std::latch started(kBlocked);
  auto group = make<Group>();
  for (int i = 0; i < kBlocked; ++i) {
    group->async(globalQueue(), [&] {
      started.count_down();
      release.wait();
    });
  }
  started.wait();
  bool ran = false;
  globalQueue().sync([&] { ran = true; });
  EXPECT_TRUE(ran);
  release.count_down();
  EXPECT_TRUE(group->wait(60s));
}

TEST(GlobalQueue, GoesOnAfterABlockThatThrows) {
  globalQueue().async([] { throw std::runtime_error("expected by the test"); });
  int answer = 0;
  globalQueue().sync([&] { answer = 42; });
  EXPECT_EQ(answer, 42);
}

TEST(GlobalQueue, HandsAnExceptionOfASynchronousBlockToTheCaller) {
  EXPECT_THROW(globalQueue().sync([] { throw std::runtime_error("expected"); }),
               std::runtime_error);
}

TEST(GlobalQueue, RunsAShortDelayThatIsAddedWhileALongOneIsPending) {
  globalQueue().after(1h, [] {});
  std::latch done(1);
  auto start = Clock::instant();
  globalQueue().after(20ms, [&] { done.count_down(); });
  done.wait();
  EXPECT_GE(Clock::instant() - start, 20ms);
}

TEST(GlobalQueue, LeavesADelayedBlockAloneUntilItsTime) {
  TestClock clock(Date(1'000'000));
  std::atomic<bool> ran = false;
  std::latch done(1);
  globalQueue().after(2s, [&] {
    ran = true;
    done.count_down();
  });
  clock.advance(1s);
  globalQueue().sync([] {});
  EXPECT_FALSE(ran);
  clock.advance(1s);
  done.wait();
  EXPECT_TRUE(ran);
}

TEST(SerialQueue, KeepsTheOrderOfItsBlocks) {
  auto queue = makeSerialQueue();
  std::vector<int> order;
  for (int i = 0; i < 1000; ++i) queue->async([&, i] { order.push_back(i); });
  queue->sync([] {});
  ASSERT_EQ(order.size(), 1000u);
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(order[i], i);
}

TEST(SerialQueue, IsTheCurrentQueueInsideItsBlocks) {
  auto queue = makeSerialQueue();
  Queue* seen = nullptr;
  queue->sync([&] { seen = &currentQueue(); });
  EXPECT_EQ(seen, queue.get());
}

TEST(CurrentQueue, IsTheDefaultGlobalQueueOnAPlainThread) {
  Queue* seen = nullptr;
  std::thread([&] { seen = &currentQueue(); }).join();
  EXPECT_EQ(seen, &globalQueue());
}

TEST(CurrentQueue, IsTheMainQueueOnTheMainThread) {
  EXPECT_EQ(&currentQueue(), &mainQueue());
}

TEST(MainQueue, RunsBlocksOnTheMainThreadInOrder) {
  std::vector<int> order;
  mainQueue().async([&] { order.push_back(1); });
  std::thread([&] { mainQueue().async([&] { order.push_back(2); }); }).join();
  mainQueue().async([&] {
    EXPECT_TRUE(RunLoop::main().isMainThread());
    RunLoop::main().stop();
  });
  RunLoop::main().run();
  EXPECT_EQ(order, (std::vector{1, 2}));
}

TEST(Group, IsDoneAtOnceWhenItIsEmpty) {
  EXPECT_TRUE(make<Group>()->wait(0s));
}

TEST(Group, TimesOutByTheClockWhileABlockRuns) {
  TestClock clock(Date(1'000'000));
  auto group = make<Group>();
  std::latch release(1);
  group->async(globalQueue(), [&] { release.wait(); });
  {
    ClockDriver driver(clock);
    EXPECT_FALSE(group->wait(50s));
  }
  release.count_down();
  EXPECT_TRUE(group->wait(50s));
}

}  // namespace
}  // namespace hoist::dispatch
