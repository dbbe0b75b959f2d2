// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/AssertionHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace hoist {
namespace {

constexpr AssertionPlace kPlace = {"-[Thing open:]", "Thing.cc", 12};

TEST(AssertionHandler, ReportIsOneConsoleEntry) {
  testing::internal::CaptureStderr();
  reportFailureInMethod(kPlace, "handle is 7");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::EndsWith("*** Assertion failure in -[Thing open:], Thing.cc:12: handle is "
                                "7\n"));
}

TEST(AssertionHandler, FailureIsOfItsOwnType) {
  testing::internal::CaptureStderr();
  try {
    failAssertion(kPlace, "handle is 7");
  } catch (const AssertionFailure& failure) {
    EXPECT_EQ(failure.name(), "NSInternalInconsistencyException");
    EXPECT_EQ(failure.reason(), "handle is 7");
    EXPECT_FALSE(failure.callStackReturnAddresses().empty());
  }
  testing::internal::GetCapturedStderr();
}

TEST(AssertionHandler, GivenExceptionIsRaisedItself) {
  Exception object("Name", "reason");
  testing::internal::CaptureStderr();
  try {
    failAssertion(kPlace, "handle is 7", &object);
  } catch (const Exception& raised) {
    EXPECT_TRUE(raised.isSameAs(object));
  }
  testing::internal::GetCapturedStderr();
}

TEST(AssertionHandlerDeathTest, UncaughtFailureAborts) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT([]() noexcept { failAssertion(kPlace, "handle is 7"); }(),
              testing::KilledBySignal(SIGABRT), "Assertion failure in .*handle is 7");
}

}  // namespace
}  // namespace hoist
