// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Trouble.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/Exception.h"

namespace hoist::platform {
namespace {

using testing::ElementsAre;

class Trouble : public testing::Test {
 protected:
  Trouble() {
    setTroubleHook([this](Severity severity, std::string_view message) {
      reports_.push_back(std::to_string(static_cast<int>(severity)) + " " + std::string(message));
    });
  }
  ~Trouble() override {
    setTroubleHook(nullptr);
    setExceptionHook(nullptr);
  }
  std::vector<std::string> reports_;
};

TEST_F(Trouble, GoesToTheHook) {
  reportTrouble(Severity::Warning, "queue is full");
  EXPECT_THAT(reports_, ElementsAre("4 queue is full"));
}

TEST_F(Trouble, GoesToStandardErrorWithoutAHook) {
  setTroubleHook(nullptr);
  testing::internal::CaptureStderr();
  reportTrouble(Severity::Warning, "queue is full");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "queue is full\n");
  EXPECT_THAT(reports_, testing::IsEmpty());
}

TEST_F(Trouble, ContainsWhateverIsThrown) {
  contain("a job", [] { throw std::runtime_error("no luck"); });
  contain("a job", [] { throw 7; });
  contain("a job", [] { Exception("IO", "disk failed").raise(); });
  contain("a job", [] {});
  EXPECT_THAT(reports_, ElementsAre("5 a job raised: no luck",
                                    "5 a job raised something that is no exception",
                                    "5 a job raised: IO: disk failed"));
}

TEST_F(Trouble, HandsExceptionsToTheirOwnHook) {
  std::vector<std::string> exceptions;
  setExceptionHook([&](std::string_view place, const Exception& exception) {
    exceptions.push_back(std::string(place) + ": " + exception.description());
  });
  contain("a job", [] { Exception("IO", "disk failed").raise(); });
  EXPECT_THAT(exceptions, ElementsAre("a job: disk failed"));
  EXPECT_THAT(reports_, testing::IsEmpty());
}

TEST_F(Trouble, HookThatThrowsIsContainedToo) {
  setTroubleHook([](Severity, std::string_view) { throw std::bad_alloc(); });
  contain("a job", [] { throw std::runtime_error("no luck"); });
}

}  // namespace
}  // namespace hoist::platform
