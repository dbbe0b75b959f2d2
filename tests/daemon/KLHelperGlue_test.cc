// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/KLHelperGlue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <latch>
#include <thread>

#include "platform/xpc/Listener.h"
#include "support/ClockDriver.h"
#include "support/RecordingLogger.h"

namespace hoist {
namespace {

using testing::ElementsAre;

const std::string kTimeoutLine =
    "+[KLConnectionVendor(KLHelperGlue) endpointForLaunchedHelper:] endpoint coupling for command "
    "helper.capture.1 failed; resetting";
const std::string kUnexpectedLine =
    "-[NSObject(KLHelperCoupling) connectWithEndpoint:forCommandID:withReply:] unexpected helper "
    "connection response from command helper.capture.1; not in 'waiting' state";
const std::string kAbandonLine =
    "+[KLConnectionVendor(KLHelperGlue) abandonConnectionWithHelper:] command ";

class Coupling : public testing::Test {
 protected:
  void helperCalls(bool isHelper = true) {
    glue_.connectWithEndpoint(
        endpoint_, "helper.capture.1", [this] { ++replies_; }, isHelper);
  }

  std::vector<std::string> logged() { return log_.texts(classification::Debug); }

  LogRecorder log_;
  Ref<xpc::Listener> listener_ = xpc::Listener::anonymousListener();
  xpc::Endpoint endpoint_ = listener_->endpoint();
  KLHelperGlue glue_;
  std::atomic<int> replies_ = 0;
};

TEST_F(Coupling, HandsTheEndpointOverAndIsIdleAgain) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kWaiting);
  std::thread helper([&] { helperCalls(); });
  auto endpoint = glue_.endpointForLaunchedHelper("helper.capture.1");
  helper.join();
  ASSERT_TRUE(endpoint);
  EXPECT_EQ(endpoint->descriptor(), endpoint_.descriptor());
  EXPECT_EQ(replies_, 1);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
}

TEST_F(Coupling, TakesACallThatComesBeforeTheLaunchWaits) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  helperCalls();
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kCoupled);
  EXPECT_TRUE(glue_.endpointForLaunchedHelper("helper.capture.1"));
}

TEST_F(Coupling, AnswersNothingAfterTwentySecondsAndIsIdleAgain) {
  TestClock clock(Date(1'700'000'000));
  glue_.prepareToConnectWithHelper("helper.capture.1");
  Date before = Clock::now();
  ClockDriver driver(clock, std::chrono::microseconds(100));
  EXPECT_FALSE(glue_.endpointForLaunchedHelper("helper.capture.1"));
  EXPECT_GE(Clock::now().secondsSince(before), 20);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
  EXPECT_THAT(logged(), ElementsAre(kTimeoutLine));
  // The helper comes too late.
  helperCalls();
  EXPECT_EQ(replies_, 0);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
  EXPECT_THAT(logged(), ElementsAre(kTimeoutLine, kUnexpectedLine));
}

TEST_F(Coupling, IgnoresACallWhileItIsIdle) {
  helperCalls();
  EXPECT_EQ(replies_, 0);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
  EXPECT_THAT(logged(), ElementsAre(kUnexpectedLine));
}

TEST_F(Coupling, IgnoresASecondCall) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  helperCalls();
  helperCalls();
  EXPECT_EQ(replies_, 1);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kCoupled);
  EXPECT_THAT(logged(), ElementsAre(kUnexpectedLine));
}

TEST_F(Coupling, IgnoresACallerThatIsNoHelper) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  helperCalls(false);
  EXPECT_EQ(replies_, 0);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kWaiting);
  EXPECT_THAT(logged(), ElementsAre(kUnexpectedLine));
}

TEST_F(Coupling, MakesASecondLaunchWaitForTheFirst) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  std::atomic<bool> prepared = false;
  std::thread second([&] {
    glue_.prepareToConnectWithHelper("helper.capture.2");
    prepared = true;
  });
  EXPECT_FALSE(prepared);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kWaiting);
  helperCalls();
  EXPECT_TRUE(glue_.endpointForLaunchedHelper("helper.capture.1"));
  second.join();
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kWaiting);
  glue_.abandonConnectionWithHelper("helper.capture.2");
}

TEST_F(Coupling, IsOfOneLaunchAtATime) {
  std::atomic<int> coupling = 0, left = 400;
  std::latch bothRun(2);
  auto launch = [&] {
    bothRun.arrive_and_wait();
    while (left-- > 0 && !HasFailure()) {
      glue_.prepareToConnectWithHelper("helper.capture.1");
      EXPECT_EQ(++coupling, 1);
      std::this_thread::yield();
      helperCalls();
      --coupling;
      EXPECT_TRUE(glue_.endpointForLaunchedHelper("helper.capture.1"));
    }
  };
  std::thread one(launch), other(launch);
  one.join();
  other.join();
}

TEST_F(Coupling, IsIdleAfterItWasAbandoned) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  glue_.abandonConnectionWithHelper("helper.capture.1");
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
  helperCalls();
  EXPECT_EQ(replies_, 0);
  EXPECT_THAT(logged(), ElementsAre(kAbandonLine + "helper.capture.1", kUnexpectedLine));
}

TEST_F(Coupling, OfAnotherLaunchIsNotAbandoned) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  glue_.abandonConnectionWithHelper("helper.capture.2");
  glue_.abandonConnectionWithHelper(std::nullopt);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kWaiting);
  EXPECT_THAT(logged(), ElementsAre(kAbandonLine + "helper.capture.2", kAbandonLine + "(null)"));
}

TEST_F(Coupling, IsLeftAloneByAnAbandonBeforeTheFirstPrepare) {
  glue_.abandonConnectionWithHelper(std::nullopt);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
}

TEST_F(Coupling, IsOffUntilItsServiceNameIsSet) {
  EXPECT_FALSE(glue_.helperCouplingServiceName());
  glue_.setHelperCouplingServiceName("com.kelvo.hoist");
  EXPECT_EQ(glue_.helperCouplingServiceName(), "com.kelvo.hoist");
  glue_.setHelperCouplingServiceName(std::nullopt);
  EXPECT_FALSE(glue_.helperCouplingServiceName());
}

}  // namespace
}  // namespace hoist
