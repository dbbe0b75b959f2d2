// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What a connection says of the messages of a round trip, and that threads can share it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "connection/ClientTest.h"

namespace hoist {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class RoundTrip : public ClientTest {
 protected:
  // A round trip in which a message fails.
  void failOne() {
    std::thread caller([&] {
      EXPECT_FALSE(connection_->performSynchronousBlock(
          [](const xpc::Proxy& proxy) { proxy.send<&Answering::refuseWithReply>([](bool) {}); }));
    });
    EXPECT_TRUE(eventually([&] { return connection_->barrierCondition() == 2; }));
    peer_.answerer->gate.messageReplied();
    caller.join();
  }
  // Returns when everything has come that the peer has answered by now.
  void awaitWhatIsAnswered() {
    auto behind = ConditionLock::messageLock();
    connection_->made.front()->remoteObjectProxy()->send<&Answering::barrierWithCompletion>(
        [behind] { behind->messageReplied(); });
    behind->waitForMessageReply();
  }
};

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
    awaitWhatIsAnswered();
    EXPECT_EQ(connection_->barrierCondition(), 0);
  }
  EXPECT_THAT(linesWith("message from"), ElementsAre("message from test to (null) failed"));
  EXPECT_TRUE(connection_->connected());
  EXPECT_TRUE(connection_->ping());
}

TEST_F(RoundTrip, LogsMessageFailuresAgainOnAConnectionThatWasVerified) {
  for (std::size_t round : {1, 2}) {
    connection_->serviceProxy()->send<&Answering::refuseWithReply>([](bool) {});
    peer_.answerer->gate.messageReplied();
    ASSERT_TRUE(eventually([&] { return messageFailuresLogged() == round; }));
    peer_.answerer->gate.sleepUntilCondition(0);
    EXPECT_TRUE(connection_->disconnect());
  }
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
  EXPECT_THAT(logger_->texts(), Contains(HasSubstr("not today")));
  // The barrier that came back afterwards ends no later round trip and blocks none.
  for (int i = 0; i < 10; ++i) EXPECT_TRUE(connection_->ping());
  EXPECT_EQ(connection_->barrierCondition(), 0);
}

TEST_F(RoundTrip, IsNotEndedByTheBarrierOfAnEarlierOne) {
  connection_->connect();
  peer_.answerer->holdsBarriers = true;
  failOne();
  ASSERT_TRUE(eventually([&] { return peer_.answerer->heldBarriers() == 1; }));
  std::thread caller([&] { EXPECT_TRUE(connection_->ping()); });
  EXPECT_TRUE(eventually([&] { return peer_.answerer->heldBarriers() == 2; }));
  peer_.answerer->holdsBarriers = false;
  peer_.answerer->answerHeldBarrier();
  awaitWhatIsAnswered();
  EXPECT_EQ(connection_->barrierCondition(), 2);
  peer_.answerer->answerHeldBarrier();
  caller.join();
}

TEST_F(RoundTrip, IsPossibleWhenTheBarrierOfAnEarlierOneHasComeBackLate) {
  connection_->connect();
  peer_.answerer->holdsBarriers = true;
  failOne();
  ASSERT_TRUE(eventually([&] { return peer_.answerer->heldBarriers() == 1; }));
  peer_.answerer->holdsBarriers = false;
  peer_.answerer->answerHeldBarrier();
  awaitWhatIsAnswered();
  EXPECT_EQ(connection_->barrierCondition(), 0);
}

TEST_F(RoundTrip, LogsMessageFailuresAgainAfterARoundTripWithoutOne) {
  failOne();
  failOne();
  EXPECT_EQ(messageFailuresLogged(), 1u);
  EXPECT_TRUE(connection_->ping());
  failOne();
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
