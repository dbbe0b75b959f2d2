// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <iterator>
#include <set>
#include <stdexcept>
#include <thread>

#include "platform/Clock.h"

namespace hoist {
namespace {

// The thread on which a body has run to its end.
std::thread::id runOne() {
  std::promise<std::thread::id> ran;
  runOnSpareThread("spare", [&ran] { ran.set_value(std::this_thread::get_id()); });
  return ran.get_future().get();
}

std::ptrdiff_t countThreads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

TEST(SpareThread, RunsLaterBodiesToo) {
  std::set<std::thread::id> threads;
  // A thread needs a moment from the end of one body to the wait for the next.
  while (threads.insert(runOne()).second) std::this_thread::yield();
  SUCCEED();
}

TEST(SpareThread, GoesOnAfterABodyThatThrows) {
  std::thread::id thrower;
  std::promise<void> thrown;
  runOnSpareThread("spare", [&] {
    thrower = std::this_thread::get_id();
    thrown.set_value();
    throw std::runtime_error("a body's failure");
  });
  thrown.get_future().wait();
  while (runOne() != thrower) std::this_thread::yield();
  SUCCEED();
}

TEST(SpareThread, IsNotWaitedForWhileItIsBusy) {
  runOne();
  std::promise<void> gate;
  auto open = gate.get_future().share();
  for (int busy = 0; busy < 3; ++busy) runOnSpareThread("spare", [open] { open.wait(); });
  // This one has a thread although all the others are held up.
  runOne();
  gate.set_value();
}

TEST(SpareThread, GoesWhenNoBodyComesForAWhile) {
  TestClock clock{Date(1'700'000'000, 0)};
  runOne();
  const auto most = countThreads();
  while (countThreads() >= most) {
    clock.advance(std::chrono::seconds(10));
    std::this_thread::yield();
  }
  SUCCEED();
}

}  // namespace
}  // namespace hoist
