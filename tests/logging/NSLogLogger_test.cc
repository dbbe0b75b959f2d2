// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/NSLogLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "platform/Clock.h"
#include "support/Journal.h"
#include "support/RecordingLogger.h"

namespace hoist {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Keeps the texts that would go to the console.
class Texts : public NSLogLogger {
 public:
  using NSLogLogger::logMessage;
  void logMessage(std::string_view text) override { texts.emplace_back(text); }
  std::vector<std::string> texts;
};

class NSLogLoggerTest : public testing::Test {
 protected:
  std::vector<std::string> logged(Classification classification, const char* message) {
    logger_->texts.clear();
    line_ = Logger::log(classification, message);
    return logger_->texts;
  }
  ScopedDefaultLogger<Texts> logger_;
  Ref<LogLineIdentifier> line_;
};

TEST_F(NSLogLoggerTest, WritesTheClassInParentheses) {
  EXPECT_THAT(logged(classification::Warning, "volume is full"),
              ElementsAre("(Warning) volume is full"));
  EXPECT_THAT(logged(classification::Failure, "no"), ElementsAre("(Failure) no"));
  EXPECT_THAT(logged(classification::Dashes, "x"), ElementsAre("(-------) x"));
  EXPECT_THAT(logged(12, "outside the table"), ElementsAre("(#debug#) outside the table"));
}

TEST_F(NSLogLoggerTest, WritesPlainMessagesBare) {
  EXPECT_THAT(logged(classification::Plain, "hello"), ElementsAre("hello"));
}

TEST_F(NSLogLoggerTest, DropsSubrosaAndDebugButAnswersTheirLines) {
  for (auto classification : {classification::Subrosa, classification::Debug}) {
    auto before = Logger::rootLogLine()->count();
    EXPECT_THAT(logged(classification, "secret"), IsEmpty());
    ASSERT_TRUE(line_);
    EXPECT_EQ(line_->sequence(), before + 1);
    EXPECT_TRUE(Logger::rootLogLine()->classifications() & (1 << classification));
  }
}

TEST_F(NSLogLoggerTest, FormatsNothingForSubrosaAndDebug) {
  auto line = LogLineIdentifier::initExtending(nullptr, 1);
  EXPECT_EQ(logger_->formatMessage("x", *line, 8, "Subrosa"), std::nullopt);
  EXPECT_EQ(logger_->formatMessage("x", *line, 9, "#debug#"), std::nullopt);
}

TEST_F(NSLogLoggerTest, TextIsNeverAFormatAndIsNotEscaped) {
  EXPECT_THAT(logged(classification::Plain, "%@ %s %n \\ \u00e9"),
              ElementsAre("%@ %s %n \\ \u00e9"));
}

TEST_F(NSLogLoggerTest, OwnMessageOperationWritesEveryClassification) {
  logger_->logMessage(classification::Debug, Value("a debug message"));
  logger_->logMessage(classification::Subrosa, Value(Array{Value(1), Value("b")}));
  logger_->logMessage(classification::Plain, std::nullopt);
  EXPECT_THAT(logger_->texts,
              ElementsAre("#debug# - a debug message", "Subrosa - (1, b)", "        - (null)"));
}

TEST_F(NSLogLoggerTest, IsNotReopenedByTheDate) {
  struct Counting : Texts {
    void reopen() override { ++reopened; }
    int reopened = 0;
  };
  auto logger = make<Counting>();
  Logger::setDefaultLogger(logger);
  TestClock clock(Clock::now());
  Logger::log(classification::Warning, "today");
  clock.advance(std::chrono::hours(48));
  Logger::log(classification::Warning, "the day after tomorrow");
  EXPECT_EQ(logger->reopened, 1);  // when it was installed
  EXPECT_THAT(logger->texts, ElementsAre("(Warning) today", "(Warning) the day after tomorrow"));
}

TEST(NSLogLoggerJournal, KeepsLineAndClassInFieldsOfTheirOwn) {
  auto sent = receivedByJournal([](int standardError, FileDescriptor&) {
    Console console(Console::Destination::Journal, standardError);
    NSLogLogger logger(console);
    auto parent = LogLineIdentifier::logLineIdentifierFromString("7.73926658.412");
    logger.logInLineMessage(classification::Failure, parent, "volume is full");
  });
  if (!sent) GTEST_SKIP() << "no mount namespace can be made here";
  EXPECT_THAT(*sent, testing::StartsWith("MESSAGE=(Failure) volume is full\nPRIORITY=3\n"
                                         "KELVO_LINE=7.73926658.412.1\nKELVO_CLASS=Failure\n"));
}

TEST(NSLogLoggerJournal, ClassificationsHavePriorities) {
  auto priorityOf = [](Classification classification) {
    auto sent = receivedByJournal([&](int standardError, FileDescriptor&) {
      Console console(Console::Destination::Journal, standardError);
      NSLogLogger(console).logInLineMessage(classification, nullptr, "x");
    });
    return sent ? sent->substr(sent->find("PRIORITY="), 10) : "";
  };
  if (priorityOf(classification::Plain).empty()) {
    GTEST_SKIP() << "no mount namespace can be made here";
  }
  EXPECT_EQ(priorityOf(classification::Plain), "PRIORITY=6");
  EXPECT_EQ(priorityOf(classification::Caution), "PRIORITY=5");
  EXPECT_EQ(priorityOf(classification::Warning), "PRIORITY=4");
  EXPECT_EQ(priorityOf(classification::Failure), "PRIORITY=3");
  EXPECT_EQ(priorityOf(classification::Details), "PRIORITY=6");
}

}  // namespace
}  // namespace hoist
