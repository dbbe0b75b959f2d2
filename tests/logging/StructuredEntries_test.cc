// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gnu/libc-version.h>
#include <gtest/gtest.h>

#include <map>
#include <numeric>
#include <thread>

#include "exceptions/KLException.h"
#include "logging/Logger.h"
#include "support/RecordingLogger.h"

namespace hoist {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;
using testing::StartsWith;

// An exception that was raised from the given addresses.
Exception raisedFrom(std::vector<std::uintptr_t> addresses, const std::string& reason = "reason") {
  Exception exception("Name", reason);
  exception.state()->callStackReturnAddresses = std::move(addresses);
  return exception;
}

// ---- Exceptions ----

TEST(ExceptionEntry, IsReasonThenNameDetailsAndBacktraceInside) {
  ScopedDefaultLogger logger;
  auto exception = KLException::exceptionWithName("IO", "disk failed");
  exception.setAPI("open").setDetail("x", "Custom").setStrPath("/a").setExplanation("sorry");
  exception.state()->callStackReturnAddresses = {0x10, 0x20};
  auto top = Logger::logException(classification::Warning, exception);
  std::string id = top->description();
  EXPECT_THAT(
      logger->lines(),
      ElementsAre(LoggedLine{4, "disk failed", id}, LoggedLine{8, ".Exception: IO", id + ".1"},
                  LoggedLine{8, ".Explain: sorry", id + ".2"},
                  LoggedLine{9, "API: open", id + ".3"}, LoggedLine{7, "Custom: x", id + ".4"},
                  LoggedLine{6, "Path: /a", id + ".5"}, LoggedLine{9, "backtrace 30", id + ".6"},
                  LoggedLine{9, "              0x10: (unknown image)", id + ".6.1"},
                  LoggedLine{9, "              0x20: (unknown image)", id + ".6.2"}));
}

TEST(ExceptionEntry, TakesThePreferredClassification) {
  ScopedDefaultLogger logger;
  auto classificationOf = [&](const Exception& exception) {
    logger->clear();
    Logger::logException(exception);
    return logger->lines().front().classification;
  };
  EXPECT_EQ(classificationOf(KLException::exceptionWithName("Security", "no")), 4);
  EXPECT_EQ(classificationOf(KLException::exceptionWithName("Cancel", "no")), 3);
  EXPECT_EQ(classificationOf(KLException::exceptionWithName("IO", "no").setPreferredLogClass(2)),
            2);
  EXPECT_EQ(classificationOf(Exception("Cancel", "no")), 5);
}

TEST(ExceptionEntry, WithoutAMapEveryDetailIsOfTheDetailsClass) {
  RecordingLogger logger;
  logger.logMapInLineException(5, nullptr, nullptr,
                               KLException::exceptionWithName("IO", "no").setStrPath("/a"));
  EXPECT_THAT(logger.texts(classification::Details), ElementsAre("Path: /a"));
}

TEST(ExceptionEntry, ReasonIsOneLine) {
  auto written = [](const std::string& reason) {
    RecordingLogger logger;
    logger.logMapInLineException(5, nullptr, nullptr, Exception("Name", reason));
    return logger.lines().front().text;
  };
  EXPECT_EQ(written("a\nb\tc"), "a | b?c");
  EXPECT_EQ(written("a\r\nb"), "a |  | b");
  EXPECT_EQ(written("a\v\fb\u0085c\u2028d\u2029e"), "a |  | b | c | d | e");
  EXPECT_EQ(written(std::string("nul\0esc\x1b del\x7f", 13)), "nul?esc? del?");
  // Zero-width space (format), a noncharacter, an unassigned character.
  EXPECT_EQ(written("a\u200bb\uFFFEc\U000E0080d"), "a?b?c?d");
  EXPECT_EQ(written("caf\u00e9 \U0001F600 50%"), "caf\u00e9 \U0001F600 50%");
  EXPECT_EQ(written(""), "");
}

TEST(ExceptionEntry, MissingReasonIsNull) {
  RecordingLogger logger;
  logger.logMapInLineException(5, nullptr, nullptr, Exception("Name", std::nullopt));
  EXPECT_EQ(logger.lines().front().text, "(null)");
}

TEST(ExceptionEntry, StopsWhereNoLineIsAnswered) {
  struct Silent : RecordingLogger {
    Ref<LogLineIdentifier> logInLineMessage(Classification, const Ref<LogLineIdentifier>&,
                                            LogMessage) override {
      ++calls;
      return nullptr;
    }
    int calls = 0;
  } logger;
  EXPECT_EQ(logger.logMapInLineException(5, nullptr, nullptr, raisedFrom({1})), nullptr);
  EXPECT_EQ(logger.calls, 1);
}

TEST(ExceptionEntry, CanStandInsideALine) {
  ScopedDefaultLogger logger;
  auto parent = Logger::log(classification::Plain, "parent");
  EXPECT_EQ(Logger::logException(9, parent, Exception("Name", "no"))->parent(), parent);
}

// ---- New exceptions ----

TEST(NewException, IsWrittenOnceHoweverOftenItIsCaught) {
  ScopedDefaultLogger logger;
  Exception one("Name", "one");
  Exception other("Name", "other");
  EXPECT_NE(Logger::logNewException(one), nullptr);
  EXPECT_EQ(Logger::logNewException(one), nullptr);
  EXPECT_EQ(Logger::logNewException(classification::Warning, one), nullptr);
  EXPECT_THAT(logger->texts(classification::Failure), ElementsAre("one"));
  EXPECT_NE(Logger::logNewException(classification::Warning, other), nullptr);
  EXPECT_NE(Logger::logNewException(one), nullptr);
  EXPECT_THAT(logger->texts(classification::Failure), ElementsAre("one", "one"));
  EXPECT_THAT(logger->texts(classification::Warning), ElementsAre("other"));
}

TEST(NewException, IsTheSameOneThatWasRaisedNotAnEqualOne) {
  ScopedDefaultLogger logger;
  try {
    KLException::exceptionWithName("IO", "no").raise();
  } catch (const KLException& exception) {
    Logger::logNewException(exception);
    try {
      exception.raise();
    } catch (const Exception& again) {
      EXPECT_FALSE(logger->isNewException(again));
    }
    EXPECT_TRUE(logger->isNewException(KLException::exceptionWithName("IO", "no")));
  }
}

TEST(NewException, IsNoLongerNewWhileItIsWritten) {
  struct Asking : RecordingLogger {
    std::optional<std::string> formatMessage(std::string_view, const LogLineIdentifier&,
                                             Classification, std::string_view) override {
      wasNew.push_back(isNewException(exception));
      return std::nullopt;
    }
    const Exception exception{"Name", "no"};
    std::vector<bool> wasNew;
  } logger;
  logger.logMapInLineException(5, nullptr, nullptr, logger.exception);
  EXPECT_THAT(logger.wasNew, testing::AllOf(Not(IsEmpty()), testing::Each(false)));
}

TEST(NewException, IsWhatThisLoggerHasNotLoggedLast) {
  RecordingLogger one;
  RecordingLogger other;
  Exception exception("Name", "no");
  one.logMapInLineException(5, nullptr, nullptr, exception);
  EXPECT_FALSE(one.isNewException(exception));
  EXPECT_TRUE(other.isNewException(exception));
}

// ---- Backtraces ----

class Backtrace : public testing::Test {
 protected:
  // The messages of the backtrace of an exception that was raised from there.
  std::vector<std::string> logged(std::vector<std::uintptr_t> addresses) {
    logger_.clear();
    logger_.logMapInLineException(5, nullptr, nullptr, raisedFrom(std::move(addresses)));
    return logger_.texts(classification::Debug);
  }
  RecordingLogger logger_;
};

TEST_F(Backtrace, IsPrintedOnceAndThenReferredToByItsTag) {
  EXPECT_THAT(logged({1, 2, 3}), SizeIs(4));
  EXPECT_THAT(logged({1, 2, 3}), ElementsAre("backtrace 6"));
}

TEST_F(Backtrace, OfTheSameSumTakesTheNextFreeTag) {
  EXPECT_THAT(logged({1, 2, 3}).front(), "backtrace 6");
  EXPECT_THAT(logged({3, 2, 1}), ElementsAre("backtrace 7", testing::_, testing::_, testing::_));
  EXPECT_THAT(logged({7}), ElementsAre("backtrace 8", testing::_));
  EXPECT_THAT(logged({3, 2, 1}), ElementsAre("backtrace 7"));
}

TEST_F(Backtrace, TagIsASumThatWraps) {
  EXPECT_THAT(logged({~std::uintptr_t{0}, 3}).front(), "backtrace 2");
}

TEST_F(Backtrace, IsPrintedAgainAfterAFlush) {
  logged({1, 2});
  logger_.flushBacktraceCache();
  EXPECT_THAT(logged({1, 2}), SizeIs(3));
  logger_.reopen();
  EXPECT_THAT(logged({1, 2}), SizeIs(3));
  EXPECT_THAT(logged({1, 2}), SizeIs(1));
}

TEST_F(Backtrace, The1001stRepeatedOneEmptiesTheCache) {
  EXPECT_THAT(logged({5}), SizeIs(2));
  // The repeated one that empties the cache is not printed itself.
  for (int repeated = 1; repeated <= 1001; ++repeated) EXPECT_THAT(logged({5}), SizeIs(1));
  EXPECT_THAT(logged({5}), SizeIs(2));
  // Counted from the beginning again.
  for (int repeated = 1; repeated <= 2; ++repeated) EXPECT_THAT(logged({5}), SizeIs(1));
}

TEST_F(Backtrace, ExceptionThatWasNotRaisedHasNone) {
  EXPECT_THAT(logged({}), IsEmpty());
}

TEST_F(Backtrace, FrameNamesImageAndSymbol) {
  auto lines = logged({reinterpret_cast<std::uintptr_t>(&::gnu_get_libc_version) + 1, 0});
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_THAT(lines[1], MatchesRegex(" *0x[0-9a-f]+:  *0x[0-9a-f]+ .*gnu_get_libc_version "
                                     "\\(.*libc\\.so.*@ *0x[0-9a-f]+\\)"));
  EXPECT_EQ(lines[2], "               0x0: (unknown image)");
}

TEST_F(Backtrace, OfARaisedExceptionStartsWhereItWasRaised) {
  logger_.clear();
  try {
    Exception("Name", "no").raise();
  } catch (const Exception& exception) {
    logger_.logMapInLineException(5, nullptr, nullptr, exception);
  }
  auto lines = logger_.texts(classification::Debug);
  ASSERT_GT(lines.size(), 2u);
  EXPECT_THAT(lines[1], HasSubstr("logging_test"));
}

TEST(BacktraceCache, IsSafeFromManyThreads) {
  BacktraceCache cache;
  std::atomic<int> fresh = 0;
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&] {
        for (std::uintptr_t address = 1; address <= 200; ++address) {
          if (cache.tag({address}).isNew) ++fresh;
        }
      });
    }
  }
  EXPECT_EQ(fresh, 200);
}

TEST(LogStackTrace, LogsWhereItWasCalledFromAsDebug) {
  ScopedDefaultLogger logger;
  LogStackTrace("who asks?");
  auto messages = logger->texts(classification::Debug);
  ASSERT_GT(messages.size(), 2u);
  EXPECT_EQ(messages[0], "stack trace: who asks?");
  EXPECT_THAT(messages[1], StartsWith("backtrace "));
  EXPECT_THAT(logger->texts(classification::Subrosa),
              ElementsAre(".Exception: NSGenericException"));
}

// ---- Messages with an exception or an error ----

TEST(MessageWithException, StandsAboveTheException) {
  ScopedDefaultLogger logger;
  auto exception = KLException::exceptionWithName("IO", "disk failed");
  auto line = Logger::logMessageWithExceptionDetails(3, nullptr, "cannot save", &exception);
  EXPECT_THAT(logger->lines(),
              ElementsAre(LoggedLine{3, "cannot save", line->description()},
                          LoggedLine{7, "disk failed", line->description() + ".1"},
                          LoggedLine{8, ".Exception: IO", line->description() + ".1.1"}));
}

TEST(MessageWithException, StandsAloneWithoutOne) {
  ScopedDefaultLogger logger;
  Logger::logMessageWithExceptionDetails(3, nullptr, "cannot save", nullptr);
  EXPECT_THAT(logger->texts(), ElementsAre("cannot save"));
}

TEST(MessageWithError, DefaultsToTheErrorsDescription) {
  ScopedDefaultLogger logger;
  auto described = make<Error>("Domain", 3, Dictionary{{Error::kLocalizedDescription, "too late"}});
  auto silent = make<Error>("Domain", 3);
  auto topLine = [&](const std::optional<std::string>& message, const Ref<Error>& error) {
    logger->clear();
    Logger::logError(classification::Warning, message, error);
    return logger->lines().front().text;
  };
  EXPECT_EQ(topLine("cannot save", described), "cannot save");
  EXPECT_EQ(topLine(std::nullopt, described), "too late");
  EXPECT_EQ(topLine(std::nullopt, nullptr), "Unexpected error");
  EXPECT_EQ(topLine(std::nullopt, silent), "Unexpected error");
}

TEST(MessageWithError, LogsTheErrorAsAGeneralProblem) {
  ScopedDefaultLogger logger;
  Logger::logDebugError(Error::posix(ENOSPC));
  auto lines = logger->lines();
  EXPECT_EQ(lines[0].classification, classification::Debug);
  EXPECT_THAT(logger->texts(classification::Details), testing::Contains("general problem"));
  EXPECT_THAT(logger->texts(classification::Minutia), ElementsAre("POSIXErr: 28"));
  EXPECT_THAT(logger->texts(classification::Subrosa), testing::Contains(".Exception: IO"));
}

// ---- Bytes ----

class Bytes : public testing::Test {
 protected:
  static Data block(std::size_t length) {
    std::vector<std::uint8_t> bytes(length);
    std::iota(bytes.begin(), bytes.end(), std::uint8_t{0});
    return Data(std::move(bytes));
  }
  std::vector<std::string> logged(const Data& data, std::size_t tail) {
    logger_.clear();
    logger_.logInLineKeyData(classification::Caution, nullptr, "block", data, tail);
    return logger_.texts();
  }
  RecordingLogger logger_;
};

TEST_F(Bytes, AreARowOfHexDigitsAndCharacters) {
  EXPECT_THAT(logged(Data::fromString("0123456789"), 0),
              ElementsAre("block: 10 bytes", "000000: 30313233343536373839 |0123456789|"));
  auto lines = logger_.lines();
  EXPECT_EQ(lines[0].classification, classification::Caution);
  EXPECT_EQ(lines[1].classification, classification::Details);
  EXPECT_EQ(lines[1].line, lines[0].line + ".1");
}

TEST_F(Bytes, ThatAreNotPrintableShowAsUnderscores) {
  const std::uint8_t bytes[] = {0x00, 0x41, 0x7f, 0x80, 0xff, 0x1f, 0x20, 0x7e};
  EXPECT_THAT(logged(Data(bytes), 0),
              ElementsAre("block: 8 bytes", "000000: 00417f80ff1f207e |_A____ ~|"));
}

TEST_F(Bytes, RowsHold64) {
  auto lines = logged(block(130), 0);
  ASSERT_THAT(lines, SizeIs(4));
  EXPECT_THAT(lines[1], StartsWith("000000: 0001"));
  EXPECT_EQ(lines[1].size(), 8 + 128 + 2 + 64 + 1u);
  EXPECT_THAT(lines[2], StartsWith("000040: 4041"));
  EXPECT_EQ(lines[3], "000080: 8081 |__|");
}

TEST_F(Bytes, InTheMiddleOfALongBlockAreLeftOut) {
  auto lines = logged(block(1000), 100);
  ASSERT_THAT(lines, SizeIs(6));
  EXPECT_EQ(lines[0], "block: 1000 bytes");
  EXPECT_THAT(lines[1], StartsWith("000000: 00"));
  EXPECT_THAT(lines[2], StartsWith("000040: 40"));
  EXPECT_EQ(lines[3], "... 744 more bytes ...");
  EXPECT_THAT(lines[4], StartsWith("000368: 68"));
  EXPECT_THAT(lines[5], StartsWith("0003a8: a8"));
  const LoggedLine leftOut = logger_.lines()[3];
  EXPECT_EQ(leftOut.classification, classification::Details);
  EXPECT_EQ(leftOut.line, logger_.lines()[0].line + ".3");
}

TEST_F(Bytes, OfABlockThatIsHardlyLongerThanItsEndsAreAllShown) {
  // 2 * 128 + 64 is the last length that is shown whole.
  for (std::size_t length : {300, 320}) {
    EXPECT_THAT(
        logged(block(length), 100),
        ElementsAre(testing::_, StartsWith("000000: "), StartsWith("000040: "),
                    StartsWith("000080: "), StartsWith("0000c0: "), StartsWith("000100: ")));
  }
  auto lines = logged(block(321), 100);
  ASSERT_THAT(lines, SizeIs(1 + 2 + 1 + 2));
  EXPECT_EQ(lines[3], "... 65 more bytes ...");
  EXPECT_THAT(lines[4], StartsWith("0000c1: "));
}

TEST_F(Bytes, OfEachEndAreWholeRows) {
  for (std::size_t tail : {1, 63, 64}) {
    EXPECT_THAT(logged(block(1000), tail), SizeIs(1 + 1 + 1 + 1)) << tail;
  }
  EXPECT_THAT(logged(block(1000), 65), SizeIs(1 + 2 + 1 + 2));
}

TEST_F(Bytes, AreAllShownForAnImmenseTail) {
  for (std::size_t tail : {~std::size_t{0}, ~std::size_t{0} / 2, ~std::size_t{0} - 62}) {
    EXPECT_THAT(logged(block(1000), tail), SizeIs(1 + 16)) << tail;
  }
}

TEST_F(Bytes, OfAnEmptyBlockAreTheHeaderOnly) {
  EXPECT_THAT(logged(Data(), 0), ElementsAre("block: 0 bytes"));
  EXPECT_THAT(logged(Data(), 64), ElementsAre("block: 0 bytes"));
}

// ---- Dictionaries and values ----

TEST(DictionaryEntry, TakesClassificationsFromTheMapButHidesDottedKeys) {
  RecordingLogger logger;
  ClassificationMap map = {{"Path", 6}, {".Explain", 2}};
  logger.logMapInLineDictionary(
      3, &map, nullptr,
      {{"Path", Value("/a")}, {"Other", Value(1)}, {".Explain", Value("why")}, {"", Value(2)}});
  std::map<std::string, Classification> logged;
  for (const auto& line : logger.lines()) logged[line.text] = line.classification;
  EXPECT_THAT(logged, ElementsAre(std::pair(".Explain: why", 8), std::pair(": 2", 3),
                                  std::pair("Other: 1", 3), std::pair("Path: /a", 6)));
}

TEST(DictionaryEntry, ShowsTheHelpKeyAsHelp) {
  RecordingLogger logger;
  logger.logMapInLineDictionary(3, nullptr, nullptr, {{".Help", Value("page 4")}});
  EXPECT_THAT(logger.texts(classification::Subrosa), ElementsAre("help: page 4"));
}

TEST(ValueEntry, IsKeyAndDescription) {
  ScopedDefaultLogger logger;
  Logger::logKeyValue(4, nullptr, "text", Value("a b"));
  Logger::logKeyValue(4, nullptr, "number", Value(-5));
  Logger::logKeyValue(4, nullptr, "truth", Value(true));
  Logger::logKeyValue(4, nullptr, "null", Value());
  Logger::logKeyValue(4, nullptr, "none", std::nullopt);
  Logger::logKeyValue(4, nullptr, "bytes", Value(Data::fromString("A")));
  EXPECT_THAT(logger->texts(4), ElementsAre("text: a b", "number: -5", "truth: 1", "null: <null>",
                                            "none: (null)", "bytes: <41>"));
}

TEST(ValueEntry, ArraysElementsAreLinesInside) {
  ScopedDefaultLogger logger;
  auto line = Logger::logKeyValue(4, nullptr, "list", Value(Array{Value("a"), Value("b")}));
  std::string id = line->description();
  EXPECT_THAT(logger->lines(),
              ElementsAre(LoggedLine{4, "list:", id}, LoggedLine{4, "[0]: a", id + ".1"},
                          LoggedLine{4, "[1]: b", id + ".2"}));
}

TEST(ValueEntry, DictionarysMembersAreLinesInsideWithoutAMap) {
  ScopedDefaultLogger logger;
  auto line = Logger::logKeyValue(4, nullptr, "facts",
                                  Value(Dictionary{{"Path", Value("/a")}, {".x", Value(1)}}));
  std::string id = line->description();
  EXPECT_THAT(logger->lines(),
              ElementsAre(LoggedLine{4, "facts:", id}, LoggedLine{8, ".x: 1", id + ".1"},
                          LoggedLine{4, "Path: /a", id + ".2"}));
}

TEST(ValueEntry, NestsToAnyDepth) {
  ScopedDefaultLogger logger;
  Value value = Array{Value(Dictionary{{"k", Value(Array{Value(7)})}}), Value(Array{})};
  std::string id = Logger::logKeyValue(4, nullptr, "deep", value)->description();
  EXPECT_THAT(logger->lines(),
              ElementsAre(LoggedLine{4, "deep:", id}, LoggedLine{4, "[0]:", id + ".1"},
                          LoggedLine{4, "k:", id + ".1.1"}, LoggedLine{4, "[0]: 7", id + ".1.1.1"},
                          LoggedLine{4, "[1]:", id + ".2"}));
}

}  // namespace
}  // namespace hoist
