// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/KLHelperGlue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/xpc/Listener.h"
#include "support/ClockDriver.h"

namespace hoist {
namespace {

class Coupling : public testing::Test {
 protected:
  void helperCalls(bool isHelper = true) {
    glue_.connectWithEndpoint(
        endpoint_, "helper.capture.1", [this] { ++replies_; }, isHelper);
  }

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
  ClockDriver driver(clock);
  EXPECT_FALSE(glue_.endpointForLaunchedHelper("helper.capture.1"));
  EXPECT_GE(Clock::now().secondsSince(before), 20);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
}

TEST_F(Coupling, IgnoresACallWhileItIsIdle) {
  helperCalls();
  EXPECT_EQ(replies_, 0);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
}

TEST_F(Coupling, IgnoresASecondCall) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  helperCalls();
  helperCalls();
  EXPECT_EQ(replies_, 1);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kCoupled);
}

TEST_F(Coupling, IgnoresACallerThatIsNoHelper) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  helperCalls(false);
  EXPECT_EQ(replies_, 0);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kWaiting);
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

TEST_F(Coupling, IsIdleAfterItWasAbandoned) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  glue_.abandonConnectionWithHelper("helper.capture.1");
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kIdle);
  helperCalls();
  EXPECT_EQ(replies_, 0);
}

TEST_F(Coupling, OfAnotherLaunchIsNotAbandoned) {
  glue_.prepareToConnectWithHelper("helper.capture.1");
  glue_.abandonConnectionWithHelper("helper.capture.2");
  glue_.abandonConnectionWithHelper(std::nullopt);
  EXPECT_EQ(glue_.condition(), KLHelperGlue::kWaiting);
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
