// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/Logger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <thread>

#include "exceptions/KLException.h"
#include "logging/LogFormat.h"
#include "logging/NSLogLogger.h"
#include "platform/AssertionHandler.h"
#include "platform/Calendar.h"
#include "platform/Clock.h"
#include "platform/Trouble.h"
#include "preferences/RelativeDate.h"
#include "support/RecordingLogger.h"
#include "support/TimeZone.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

using testing::ElementsAre;

// Keeps what reaches the sink.
class SinkLogger : public Logger {
 public:
  void logCString(const char* text) override { texts.emplace_back(text); }
  void reopen() override {
    ++reopened;
    Logger::reopen();
  }
  std::vector<std::string> texts;
  int reopened = 0;
};

// A Tuesday afternoon, 14:07:09.123456789 in the local zone, whatever that is.
Date anAfternoon() {
  Date date = dateWithHour(Date(1709640000), 14, 7);
  return Date(date.seconds() + 9, 123'456'789);
}

// ---- Numbering ----

TEST(Logger, NumbersTopLevelMessagesInsideTheRootLine) {
  ScopedDefaultLogger logger;
  std::string root = Logger::rootLogLine()->description();
  std::uint64_t before = Logger::rootLogLine()->count();
  auto first = Logger::log(classification::Plain, "first");
  auto second = Logger::log(classification::Plain, "second");
  auto inside = Logger::log(classification::Plain, second, "inside");
  EXPECT_EQ(first->description(), root + "." + std::to_string(before + 1));
  EXPECT_EQ(second->description(), root + "." + std::to_string(before + 2));
  EXPECT_EQ(inside->description(), second->description() + ".1");
  EXPECT_EQ(first->parent(), Logger::rootLogLine());
  EXPECT_EQ(logger->texts(), (std::vector<std::string>{"first", "second", "inside"}));
}

TEST(Logger, RemembersInTheParentWhichClassificationsWereLogged) {
  ScopedDefaultLogger logger;
  auto parent = Logger::log(classification::Plain, "parent");
  Logger::log(classification::Warning, parent, "a");
  EXPECT_EQ(parent->classifications(), 1u << 4);
  Logger::log(classification::Plain, parent, "b");
  EXPECT_EQ(parent->classifications(), (1u << 4) | 1u);
}

TEST(Logger, RootLineNamesApplicationStartAndProcess) {
  auto parts = Logger::rootLogLine();
  EXPECT_EQ(parts->depth(), 2u);
  EXPECT_EQ(parts->application(), 7u);
  EXPECT_EQ(parts->sequence(), static_cast<std::uint64_t>(::getpid()));
  EXPECT_EQ(Logger::rootLogLine(), parts);
}

TEST(Logger, RootLineCountsDaysFromTheYearOneAndHundredthsOfTheDay) {
  // Day 738950 is 5 March 2024.
  Date midnight = startOfDay(Date(1709640000));
  auto start = [](Date date) { return Logger::makeRootLogLine(date, 412)->description(); };
  EXPECT_EQ(start(midnight), "7.73895000.412");
  // A hundredth of the day is 14.4 minutes; the first minute is number 1.
  EXPECT_EQ(start(dateWithHour(midnight, 0, 13)), "7.73895000.412");
  EXPECT_EQ(start(dateWithHour(midnight, 0, 14)), "7.73895001.412");
  EXPECT_EQ(start(dateWithHour(midnight, 12, 0)), "7.73895050.412");
  EXPECT_EQ(start(dateWithHour(midnight, 14, 0)), "7.73895058.412");
  EXPECT_EQ(start(dateWithHour(midnight, 23, 58)), "7.73895099.412");
  // The last minute of the day is the 1440th, counted as the 1439th.
  EXPECT_EQ(start(dateWithHour(midnight, 23, 59)), "7.73895099.412");
  EXPECT_EQ(start(dateOffsetBy(midnight, 1, OffsetScale::Days)), "7.73895100.412");
}

// ---- Layout and sink ----

TEST(Logger, LineIsDateClassMessageAndIdentifier) {
  TestClock clock(anAfternoon());
  SinkLogger logger;
  auto parent = LogLineIdentifier::logLineIdentifierFromString("7.73926658.412");
  logger.logInLineMessage(classification::Warning, parent, "volume is full");
  std::string date = DateFormatter("yyyy-MM-dd HH:mm:ss.SSS Z").stringFromDate(Clock::now());
  EXPECT_EQ(date.substr(0, 24), "2024-03-05 14:07:09.123 ");
  EXPECT_THAT(logger.texts, ElementsAre(date + " Warning volume is full [7.73926658.412.1]"));
}

TEST(Logger, SinkGetsEscapedASCII) {
  SinkLogger logger;
  logger.logMessage("caf\u00e9 \\ \u20ac \U0001F600");
  EXPECT_THAT(logger.texts, ElementsAre("caf\\351 \\\\ \\u20ac \\ud83d\\ude00"));
}

TEST(Logger, LineThatIsDeclinedStillHasAnIdentifier) {
  RecordingLogger logger;  // declines every line
  auto parent = LogLineIdentifier::logLineIdentifierFromString("7");
  EXPECT_EQ(logger.logInLineMessage(classification::Plain, parent, "x")->description(), "7.1");
  EXPECT_EQ(logger.logInLineMessage(classification::Plain, parent, "x")->description(), "7.2");
}

TEST(Logger, BaseClassWritesNothingAnywhere) {
  Logger logger;
  EXPECT_NE(logger.logInLineMessage(classification::Failure, nullptr, "nowhere"), nullptr);
  logger.flush();
  logger.rotateLogKeeping(5);
  EXPECT_TRUE(logger.logFiles().empty());
}

TEST(Logger, NegativeClassificationSetsNoBit) {
  RecordingLogger logger;
  auto parent = LogLineIdentifier::logLineIdentifierFromString("7");
  logger.logInLineMessage(-1, parent, "x");
  EXPECT_EQ(parent->classifications(), 0u);
}

// ---- Messages that are made only when they are written ----

TEST(Logger, MessageOfADroppedLineIsNotMade) {
  struct Dropping : RecordingLogger {
    bool writesClassification(Classification classification) const override {
      return classification != classification::Debug;
    }
  };
  ScopedDefaultLogger<Dropping> logger;
  int made = 0;
  auto message = [&] { return "made " + std::to_string(++made); };
  auto parent = Logger::log(classification::Plain, "parent");
  auto dropped = Logger::log(classification::Debug, parent, message);
  EXPECT_EQ(made, 0);
  EXPECT_EQ(dropped->parent(), parent);
  EXPECT_EQ(parent->classifications(), 1u << 9);
  EXPECT_EQ(Logger::log(classification::Plain, parent, message)->sequence(), 2u);
  EXPECT_THAT(logger->texts(), ElementsAre("parent", "made 1"));
}

TEST(LogFormat, FillsTheFormat) {
  ScopedDefaultLogger logger;
  auto line = logFormat(classification::Warning, "{} of {}", 3, "four");
  logFormat(classification::Plain, line, "{:04x}", 255);
  EXPECT_THAT(logger->texts(), ElementsAre("3 of four", "00ff"));
  EXPECT_EQ(line->count(), 1u);
}

// ---- Placeholders ----

TEST(Logger, PlaceholderIsWrittenOnceForItsKey) {
  ScopedDefaultLogger logger;
  auto first = Logger::logPlaceholder(classification::Warning, "Ignored failures", "once");
  auto second = Logger::logPlaceholder(classification::Warning, "Ignored failures", "once");
  EXPECT_EQ(first, second);
  EXPECT_EQ(Logger::logLineForKey("once"), first);
  EXPECT_THAT(logger->texts(), ElementsAre("Ignored failures"));
  EXPECT_NE(Logger::logPlaceholder(classification::Warning, "Others", "twice"), first);
}

TEST(Logger, PlaceholderCanStandInsideALine) {
  ScopedDefaultLogger logger;
  auto parent = Logger::log(classification::Plain, "parent");
  auto line = Logger::logPlaceholder(classification::Plain, parent, "inside", "insideKey");
  EXPECT_EQ(line->parent(), parent);
}

TEST(Logger, LineForAKeyCanBeSetAndRemoved) {
  auto line = LogLineIdentifier::initExtending(nullptr, 1);
  EXPECT_EQ(Logger::logLineForKey("a key"), nullptr);
  Logger::setLogLine(line, "a key");
  EXPECT_EQ(Logger::logLineForKey("a key"), line);
  Logger::setLogLine(nullptr, "a key");
  EXPECT_EQ(Logger::logLineForKey("a key"), nullptr);
  Logger::setLogLine(nullptr, "a key");
}

TEST(Logger, PlaceholderByExceptionLogsEachReasonOnceAndItsExceptionsSixtyTimes) {
  ScopedDefaultLogger logger;
  auto log = [](const Exception* exception) {
    return Logger::logPlaceholder(classification::Caution, nullptr, "Trouble", "byException",
                                  exception);
  };
  auto placeholder = log(nullptr);
  EXPECT_THAT(logger->texts(), ElementsAre("Trouble"));

  auto exception = KLException::exceptionWithName("IO", "disk failed");
  auto ofReason = log(&exception);
  EXPECT_EQ(ofReason->parent(), placeholder);
  EXPECT_EQ(Logger::logLineForKey("byExceptiondisk failed"), ofReason);
  EXPECT_THAT(logger->texts(classification::Plain), ElementsAre("disk failed"));
  for (int time = 1; time < 100; ++time) EXPECT_EQ(log(&exception), ofReason);
  EXPECT_EQ(ofReason->count(), 60u);
  EXPECT_EQ(logger->texts(classification::Debug).size(), 60u);

  auto other = KLException::exceptionWithName("IO", "disk on fire");
  EXPECT_NE(log(&other), ofReason);
  EXPECT_THAT(logger->texts(classification::Caution), ElementsAre("Trouble"));
}

// ---- Reopening ----

TEST(Logger, IsReopenedAtTheStartOfTheNextLocalDay) {
  TestClock clock(anAfternoon());
  Logger logger;
  EXPECT_EQ(logger.reopenDate(), dateOffsetBy(startOfToday(), 1, OffsetScale::Days));
  EXPECT_EQ(logger.logDateReopeningLogger(), Clock::now());
}

TEST(Logger, FirstLineAtOrAfterTheReopenDateIsPrecededByReopenedLogFile) {
  TestClock clock(anAfternoon());
  SinkLogger logger;
  auto parent = LogLineIdentifier::logLineIdentifierFromString("7");
  logger.logInLineMessage(classification::Warning, parent, "before midnight");
  EXPECT_EQ(logger.reopened, 0);
  Date midnight = logger.reopenDate();
  clock.setDate(midnight);
  logger.logInLineMessage(classification::Warning, parent, "at midnight");
  logger.logInLineMessage(classification::Warning, parent, "after midnight");
  EXPECT_EQ(logger.reopened, 1);
  ASSERT_EQ(logger.texts.size(), 4u);
  EXPECT_THAT(logger.texts[1], testing::HasSubstr(" #debug# Reopened log file ["));
  EXPECT_THAT(logger.texts[2], testing::HasSubstr(" Warning at midnight [7.2]"));
  EXPECT_THAT(logger.texts[3], testing::HasSubstr(" Warning after midnight [7.3]"));
  EXPECT_GT(logger.reopenDate(), midnight);
}

TEST(Logger, IsReopenedOnceWhereClocksGoBackOverMidnight) {
  // At half past midnight of 18 February 2024 it is half past eleven again.
  TimeZone zone("XST3XDT,M10.3.0/12,M2.3.0/0:30");
  Date day = Calendar::startOfDay(Date(1'708'270'000));
  Date midnightAgain(day.seconds() + 3'600);
  ASSERT_EQ(Calendar::componentsOf(midnightAgain).hour, 0);
  TestClock clock(Date(midnightAgain.seconds() - 60));
  SinkLogger logger;
  logger.logInLineMessage(classification::Plain, nullptr, "before the second midnight");
  EXPECT_EQ(logger.reopened, 0);
  EXPECT_GT(logger.reopenDate(), midnightAgain);
}

TEST(Logger, ThatCannotBeReopenedIsTriedAgainByTheNextLine) {
  TestClock clock(Date(1'700'000'000));
  struct : Logger {
    void reopen() override {
      if (isBroken) throw std::runtime_error("no log file");
      ++reopened;
    }
    bool isBroken = true;
    int reopened = 0;
  } logger;
  Date midnight = logger.reopenDate();
  clock.setDate(midnight);
  EXPECT_THROW(logger.logDateReopeningLogger(), std::runtime_error);
  EXPECT_EQ(logger.reopenDate(), midnight);
  logger.isBroken = false;
  logger.logDateReopeningLogger();
  EXPECT_EQ(logger.reopened, 1);
}

TEST(Logger, LineJustBeforeTheReopenDateDoesNotReopen) {
  TestClock clock(anAfternoon());
  SinkLogger logger;
  Date midnight = logger.reopenDate();
  clock.setDate(Date(midnight.seconds() - 1, 999'999'999));
  logger.logInLineMessage(classification::Plain, nullptr, "x");
  EXPECT_EQ(logger.reopened, 0);
}

TEST(Logger, ManyThreadsReopenOnce) {
  TestClock clock(anAfternoon());
  struct Counting : Logger {
    void reopen() override { ++reopened; }
    std::atomic<int> reopened = 0;
  } logger;
  clock.setDate(logger.reopenDate());
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back(
          [&] { logger.logInLineMessage(classification::Plain, nullptr, "at midnight"); });
    }
  }
  EXPECT_EQ(logger.reopened, 1);
}

// ---- The default logger ----

class DefaultLogger : public testing::Test {
 protected:
  DefaultLogger() { Logger::defaultLogger(); }
  ~DefaultLogger() override {
    for (auto name : {"NullLogger", "LogFileLogger"}) ClassRegistry::shared().remove(name);
    Logger::registerClasses();
    Logger::releaseDefaultLogger();
  }
  static void add(const char* name, std::function<Ref<Object>()> create) {
    ClassRegistry::shared().add({.name = name,
                                 .superclass = "Logger",
                                 .decode = nullptr,
                                 .create = std::move(create),
                                 .classObject = nullptr});
  }
  static std::string chosen() {
    Logger::releaseDefaultLogger();
    return Logger::defaultLogger()->className();
  }
};

template <const char* Name>
struct Named : RecordingLogger {
  std::string className() const override { return Name; }
};
class ConsoleInto : public NSLogLogger {
 public:
  explicit ConsoleInto(std::vector<std::string>& texts) : texts_(texts) {}
  using NSLogLogger::logMessage;
  void logMessage(std::string_view text) override { texts_.emplace_back(text); }

 private:
  std::vector<std::string>& texts_;
};

constexpr char kNull[] = "NullLogger";
constexpr char kFile[] = "LogFileLogger";

TEST_F(DefaultLogger, IsTheConsoleLogger) {
  EXPECT_EQ(chosen(), "NSLogLogger");
  EXPECT_EQ(Logger::defaultLogger(), Logger::defaultLogger());
}

TEST_F(DefaultLogger, NullLoggerComesFirstForRootAndLastForOthers) {
  add(kNull, [] { return make<Named<kNull>>(); });
  EXPECT_EQ(chosen(), ::geteuid() == 0 ? "NullLogger" : "NSLogLogger");
  ClassRegistry::shared().remove("NSLogLogger");
  EXPECT_EQ(chosen(), "NullLogger");
}

TEST_F(DefaultLogger, WithoutAnyFallbackAnAssertionFails) {
  ClassRegistry::shared().remove("NSLogLogger");
  Logger::releaseDefaultLogger();
  try {
    Logger::defaultLogger();
    FAIL();
  } catch (const AssertionFailure& failure) {
    EXPECT_EQ(failure.reason(),
              ::geteuid() == 0 ? "could not create fallback Logger; tried NullLogger, NSLogLogger"
                               : "could not create fallback Logger; tried NSLogLogger, NullLogger");
  }
}

TEST_F(DefaultLogger, ClassThatMakesNoLoggerIsPassedOver) {
  add(kNull, [] { return Ref<Object>(); });
  EXPECT_EQ(chosen(), "NSLogLogger");
  add(kNull, [] { return Ref<Object>(make<Error>("domain", 1)); });
  EXPECT_EQ(chosen(), "NSLogLogger");
}

TEST_F(DefaultLogger, StandardLoggerReplacesTheFallback) {
  add(kFile, [] { return make<Named<kFile>>(); });
  EXPECT_EQ(chosen(), "LogFileLogger");
}

TEST_F(DefaultLogger, StandardLoggerThatFailsLeavesTheConsoleWhichSaysSo) {
  struct Failing : RecordingLogger {
    void reopen() override {
      KLException::exceptionWithName("IO", "no space for a log").setStrPath("/log").raise();
    }
  };
  std::vector<std::string> texts;
  add("NSLogLogger", [&texts] { return make<ConsoleInto>(texts); });
  add(kFile, [] { return make<Failing>(); });
  EXPECT_EQ(chosen(), "NSLogLogger");
  EXPECT_THAT(texts, ElementsAre("(Failure) could not create standard logger; logging to console",
                                 "(Failure) no space for a log", "(Details) Path: /log"));
  // Standard exceptions count as well, and a failure while it is made.
  texts.clear();
  add(kFile, []() -> Ref<Object> { throw std::runtime_error("no file name"); });
  EXPECT_EQ(chosen(), "NSLogLogger");
  EXPECT_THAT(texts, ElementsAre(testing::_, "(Failure) no file name"));
}

TEST_F(DefaultLogger, OnlyTheConsoleTellsThatTheStandardLoggerFailed) {
  auto fallback = make<Named<kNull>>();
  ClassRegistry::shared().remove("NSLogLogger");
  add(kNull, [&] { return fallback; });
  add(kFile, []() -> Ref<Object> { throw std::runtime_error("no file name"); });
  EXPECT_EQ(chosen(), "NullLogger");
  EXPECT_TRUE(fallback->lines().empty());
}

TEST_F(DefaultLogger, NewOneIsReopenedBeforeItIsInstalledAndAfterTheOldOneIsReleased) {
  struct Watching : RecordingLogger {
    void reopen() override {
      oldIsReleased = old.expired();
      isInstalled = Logger::defaultLogger().get() == this;
    }
    std::weak_ptr<Logger> old;
    bool oldIsReleased = false;
    bool isInstalled = true;
  };
  Logger::setDefaultLogger(make<RecordingLogger>());
  Logger::log(classification::Plain, "used by this thread");
  auto watching = make<Watching>();
  watching->old = Logger::defaultLogger();
  Logger::setDefaultLogger(watching);
  EXPECT_TRUE(watching->oldIsReleased);
  EXPECT_FALSE(watching->isInstalled);
  EXPECT_EQ(Logger::defaultLogger(), watching);
}

TEST_F(DefaultLogger, ReleasedOneIsGone) {
  std::weak_ptr<Logger> old = Logger::defaultLogger();
  Logger::log(classification::Debug, "used by this thread");
  Logger::releaseDefaultLogger();
  EXPECT_TRUE(old.expired());
}

TEST_F(DefaultLogger, ReplacedOneIsForgottenByOtherThreadsAtTheirNextLine) {
  auto first = make<RecordingLogger>();
  auto second = make<RecordingLogger>();
  Logger::setDefaultLogger(first);
  std::atomic<int> step = 0;
  std::jthread other([&] {
    Logger::log(classification::Plain, "one");
    step = 1;
    step.notify_all();
    step.wait(1);
    Logger::log(classification::Plain, "two");
  });
  step.wait(0);
  Logger::setDefaultLogger(second);
  step = 2;
  step.notify_all();
  other.join();
  EXPECT_THAT(first->texts(), ElementsAre("one"));
  EXPECT_THAT(second->texts(), ElementsAre("two"));
  EXPECT_EQ(first.use_count(), 1);
}

TEST_F(DefaultLogger, CanBeReplacedInTheMidstOfALine) {
  struct Replacing : Logger {
    void logCString(const char*) override { Logger::setDefaultLogger(make<RecordingLogger>()); }
    ~Replacing() override { name[0] = 'd'; }
    std::string name = "alive";
    void writeLine(std::string_view text, const LogLineIdentifier& line,
                   Classification classification) override {
      Logger::writeLine(text, line, classification);
      EXPECT_EQ(name, "alive");
    }
  };
  Logger::setDefaultLogger(make<Replacing>());
  Logger::log(classification::Plain, "x");
  auto replacement = as<RecordingLogger>(Logger::defaultLogger());
  ASSERT_TRUE(replacement);
  // Nor does the thread go on with the one that it used for that line.
  Logger::log(classification::Plain, "y");
  EXPECT_THAT(replacement->texts(), ElementsAre("y"));
}

TEST_F(DefaultLogger, ThatIsSetWhileOneIsChosenStays) {
  struct Replacing : RecordingLogger {
    void reopen() override { Logger::setDefaultLogger(make<Named<kNull>>()); }
  };
  add(kFile, [] { return make<Replacing>(); });
  EXPECT_EQ(chosen(), "NullLogger");
  ClassRegistry::shared().remove(kFile);
  add("NSLogLogger", [] {
    Logger::setDefaultLogger(make<Named<kNull>>());
    return make<NSLogLogger>();
  });
  EXPECT_EQ(chosen(), "NullLogger");
}

TEST_F(DefaultLogger, MayStillBeUsedWhileTheThreadEnds) {
  struct LogsAtTheEnd {
    ~LogsAtTheEnd() { Logger::log(classification::Plain, "at the end"); }
  };
  auto logger = make<RecordingLogger>();
  Logger::setDefaultLogger(logger);
  std::thread([] {
    thread_local LogsAtTheEnd last;  // made before the logger's own place, destroyed after it
    (void)&last;
    Logger::log(classification::Plain, "before the end");
  }).join();
  EXPECT_THAT(logger->texts(), ElementsAre("before the end", "at the end"));
}

TEST_F(DefaultLogger, IsReplacedSafelyWhileOthersLog) {
  std::atomic<bool> stop = false;
  Ref<Logger> last;
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 3; ++thread) {
      threads.emplace_back([&] {
        while (!stop) Logger::log(classification::Debug, "x");
      });
    }
    for (int time = 0; time < 200; ++time) Logger::setDefaultLogger(last = make<Logger>());
    stop = true;
  }
  // A thread that found none meanwhile has not put a fallback in its place.
  EXPECT_EQ(Logger::defaultLogger(), last);
}

TEST_F(DefaultLogger, StandardLoggerMayLogWhileItIsOpened) {
  struct Talking : RecordingLogger {
    void reopen() override { Logger::log(classification::Debug, "opening"); }
    std::string className() const override { return kFile; }
  };
  add(kFile, [] { return make<Talking>(); });
  EXPECT_EQ(chosen(), "LogFileLogger");
}

// ---- Reports of the platform ----

TEST(Logger, ReceivesThePlatformsTrouble) {
  ScopedDefaultLogger logger;
  Logger::receivePlatformTrouble();
  platform::reportTrouble(platform::Severity::Caution, "a queue is full");
  platform::contain("a posted block", [] { throw std::runtime_error("no luck"); });
  EXPECT_THAT(logger->lines(),
              ElementsAre(testing::AllOf(testing::Field(&LoggedLine::classification, 3),
                                         testing::Field(&LoggedLine::text, "a queue is full")),
                          testing::AllOf(testing::Field(&LoggedLine::classification, 5),
                                         testing::Field(&LoggedLine::text,
                                                        "a posted block raised: no luck"))));
  platform::setTroubleHook(nullptr);
  platform::setExceptionHook(nullptr);
}

TEST(Logger, ReceivesContainedExceptionsWithTheirDetails) {
  ScopedDefaultLogger logger;
  Logger::receivePlatformTrouble();
  platform::contain("a posted block", [] {
    KLException::exceptionWithName("IO", "disk failed").setStrPath("/a").raise();
  });
  EXPECT_THAT(logger->texts(classification::Failure),
              ElementsAre("a posted block raised: IO: disk failed"));
  EXPECT_THAT(logger->texts(classification::Details), ElementsAre("disk failed"));
  EXPECT_THAT(logger->texts(classification::Minutia), ElementsAre("Path: /a"));
  platform::setTroubleHook(nullptr);
  platform::setExceptionHook(nullptr);
}

}  // namespace
}  // namespace hoist
