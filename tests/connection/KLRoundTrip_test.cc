// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What a connection says of the messages of a round trip, and that threads can share it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "connection/ClientTest.h"

namespace hoist {
namespace {

using testing::ElementsAre;

using RoundTrip = ClientTest;

TEST_F(RoundTrip, HasEverythingHandledWhenARoundTripIsBack) {
  auto error = make<Error>("before", 1);
  EXPECT_TRUE(connection_->performSynchronousBlock(
      [](const xpc::Proxy& proxy) {
        for (int i = 0; i < 100; ++i) proxy.send<&Answering::count>();
      },
      &error));
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(peer_.answerer->counted, 100);
}

TEST_F(RoundTrip, OnlyLogsAProxyErrorOutsideOfARoundTrip) {
  auto proxy = connection_->serviceProxy();
  for (int round = 0; round < 2; ++round) {
    proxy->send<&Answering::refuseWithReply>([](bool) { ADD_FAILURE() << "answered"; });
    peer_.answerer->gate.messageReplied();
    // The gate closes behind the message, and its error comes before the next barrier.
    peer_.answerer->gate.sleepUntilCondition(0);
    ASSERT_TRUE(eventually([&] { return messageFailuresLogged() == 1; }));
    EXPECT_EQ(connection_->barrierCondition(), 0);
  }
  EXPECT_THAT(linesWith("message from"), ElementsAre("message from test to (null) failed"));
  EXPECT_TRUE(connection_->connected());
}

TEST_F(RoundTrip, FailsTheRoundTripInWhichAMessageFailed) {
  Ref<Error> error;
  bool succeeded = true;
  std::thread caller([&] {
    succeeded = connection_->performSynchronousBlock(
        [](const xpc::Proxy& proxy) { proxy.send<&Answering::refuseWithReply>([](bool) {}); },
        &error);
  });
  EXPECT_TRUE(eventually([&] { return connection_->barrierCondition() == 2; }));
  peer_.answerer->gate.messageReplied();
  caller.join();
  EXPECT_FALSE(succeeded);
  EXPECT_EQ(error->code(), Error::kConnectionReplyInvalid);
  EXPECT_EQ(messageFailuresLogged(), 1u);
  // The barrier that came back afterwards ends no later round trip and blocks none.
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(connection_->ping());
  EXPECT_EQ(connection_->barrierCondition(), 0);
}

TEST_F(RoundTrip, LogsMessageFailuresAgainAfterARoundTripWithoutOne) {
  auto fail = [&] {
    std::thread caller([&] {
      EXPECT_FALSE(connection_->performSynchronousBlock(
          [](const xpc::Proxy& proxy) { proxy.send<&Answering::refuseWithReply>([](bool) {}); }));
    });
    EXPECT_TRUE(eventually([&] { return connection_->barrierCondition() == 2; }));
    peer_.answerer->gate.messageReplied();
    caller.join();
  };
  fail();
  fail();
  EXPECT_EQ(messageFailuresLogged(), 1u);
  EXPECT_TRUE(connection_->ping());
  fail();
  EXPECT_EQ(messageFailuresLogged(), 2u);
}

TEST_F(RoundTrip, LetsTenThreadsMakeRoundTripsOnOneObject) {
  constexpr int kThreads = 10, kRounds = 50;
  std::atomic<int> succeeded = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < kRounds; ++round) {
        succeeded += connection_->performSynchronousBlock(
            [](const xpc::Proxy& proxy) { proxy.send<&Answering::count>(); });
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(succeeded, kThreads * kRounds);
  EXPECT_EQ(peer_.answerer->counted, kThreads * kRounds);
  EXPECT_EQ(peer_.answerer->barriers, kThreads * kRounds + 1);
  EXPECT_EQ(connection_->proxies, 1);
}

TEST_F(RoundTrip, SurvivesThreadsThatDisconnectWhileOthersMakeRoundTrips) {
  std::atomic<bool> done = false;
  std::thread cutter([&] {
    while (!done) {
      connection_->disconnect();
      std::this_thread::yield();
    }
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 30; ++round) {
        Ref<Error> error;
        bool succeeded = connection_->syncReturningError(&error);
        EXPECT_EQ(succeeded, error == nullptr);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  done = true;
  cutter.join();
  EXPECT_EQ(connection_->barrierCondition(), 0);
}

}  // namespace
}  // namespace hoist
