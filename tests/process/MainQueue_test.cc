// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "process/MainQueue.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <thread>

#include "platform/RunLoop.h"

namespace hoist {
namespace {

constexpr std::uint64_t kSecond = 1'000'000;

// Runs the main loop until the condition holds.
template <class Condition>
void turnUntil(Condition&& condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition() && std::chrono::steady_clock::now() < end) {
    RunLoop::main().runOnce(kSecond / 100);
  }
  ASSERT_TRUE(condition());
}

// Runs the code on another thread while this one runs the main loop.
template <class Code>
void onOtherThread(Code&& code) {
  auto other = std::async(std::launch::async, code);
  turnUntil([&] { return other.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
  other.get();
}

TEST(MainQueue, IsTheMainThreads) {
  EXPECT_TRUE(IsMainThread());
  EXPECT_EQ(&MainQueue(), &dispatch::mainQueue());
  onOtherThread([] { EXPECT_FALSE(IsMainThread()); });
}

TEST(MainQueue, RunsAsynchronouslyEvenFromTheMainThread) {
  bool done = false;
  RunAsyncOnMainQueue([&] { done = IsMainThread(); });
  EXPECT_FALSE(done);
  turnUntil([&] { return done; });
}

TEST(MainQueue, RunsAtOnceOnTheMainThread) {
  int done = 0;
  RunSyncOnMainThread([&] { ++done; });
  RunOnMainThread([&] { ++done; });
  EXPECT_EQ(done, 2);
}

TEST(MainQueue, RunsOnTheMainThreadForOthers) {
  onOtherThread([] {
    bool done = false;
    RunSyncOnMainThread([&] { done = IsMainThread(); });
    EXPECT_TRUE(done);
    EXPECT_THROW(RunSyncOnMainThread([] { throw std::runtime_error("no"); }), std::runtime_error);
    std::promise<bool> later;
    RunOnMainThread([&] { later.set_value(IsMainThread()); });
    EXPECT_TRUE(later.get_future().get());
  });
}

// Says on which thread it ends.
struct Heavy {
  explicit Heavy(std::promise<std::thread::id>& end) : end(end) {}
  ~Heavy() { end.set_value(std::this_thread::get_id()); }
  std::promise<std::thread::id>& end;
};

TEST(ReleaseLaterInBackground, EndsObjectsOffTheMainThread) {
  std::promise<std::thread::id> ends[3];
  for (auto& end : ends) ReleaseLaterInBackground(make<Heavy>(end));
  for (auto& end : ends) {
    auto where = end.get_future();
    // Nothing goes before the main loop's next turn.
    if (&end == &ends[0]) {
      EXPECT_EQ(where.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    }
    turnUntil([&] { return where.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    EXPECT_NE(where.get(), std::this_thread::get_id());
  }
}

TEST(ReleaseLaterInBackground, TakesObjectsAgainAfterATurn) {
  for (int i = 0; i < 2; ++i) {
    std::promise<std::thread::id> end;
    ReleaseLaterInBackground(make<Heavy>(end));
    auto where = end.get_future();
    turnUntil([&] { return where.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    EXPECT_NE(where.get(), std::this_thread::get_id());
  }
}

TEST(ReleaseLaterInBackground, LeavesAloneWhatIsStillHeld) {
  std::promise<std::thread::id> end;
  auto held = make<Heavy>(end);
  ReleaseLaterInBackground(held);
  turnUntil([&] { return held.use_count() == 1; });
  EXPECT_EQ(end.get_future().wait_for(std::chrono::seconds(0)), std::future_status::timeout);
}

TEST(ReleaseLaterInBackground, DoesNothingElsewhereAndForNothing) {
  ReleaseLaterInBackground(nullptr);
  onOtherThread([] {
    std::promise<std::thread::id> end;
    auto object = make<Heavy>(end);
    ReleaseLaterInBackground(object);
    EXPECT_EQ(object.use_count(), 1);
    object.reset();
    EXPECT_EQ(end.get_future().get(), std::this_thread::get_id());
  });
}

}  // namespace
}  // namespace hoist
