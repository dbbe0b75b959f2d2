// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/LogLineIdentifier.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>
#include <vector>

#include "logging/Logger.h"
#include "platform/KeyedArchiver.h"
#include "platform/KeyedUnarchiver.h"
#include "platform/SequentialCoder.h"
#include "support/PlainCoders.h"
#include "support/RecordingLogger.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

Ref<LogLineIdentifier> line(std::string_view text) {
  return LogLineIdentifier::logLineIdentifierFromString(text);
}

int order(std::string_view a, std::string_view b) {
  return line(a)->compare(*line(b));
}

TEST(LogLineIdentifier, IsReadFromADottedText) {
  auto identifier = line("7.100.3");
  EXPECT_EQ(identifier->depth(), 2u);
  EXPECT_EQ(identifier->application(), 7u);
  EXPECT_EQ(identifier->sequence(), 3u);
  EXPECT_EQ(identifier->description(), "7.100.3");
}

TEST(LogLineIdentifier, EmptyTextIsNone) {
  EXPECT_EQ(line(""), nullptr);
}

TEST(LogLineIdentifier, MissingComponentIsZeroButATrailingDotAddsNone) {
  EXPECT_EQ(line("1..2")->description(), "1.0.2");
  EXPECT_EQ(line("12.")->description(), "12");
  EXPECT_EQ(line(".5")->description(), "0.5");
  EXPECT_EQ(line(".")->description(), "0");
  EXPECT_EQ(line("1..")->description(), "1.0");
}

TEST(LogLineIdentifier, CharactersOfATextAreNotChecked) {
  // ':' is the character after '9'; blanks count below zero, in 64-bit arithmetic.
  EXPECT_EQ(line("1:")->sequence(), 20u);
  EXPECT_EQ(line(" ")->sequence(), std::uint64_t{0} - 16);
  EXPECT_EQ(line("18446744073709551615")->sequence(), ~std::uint64_t{0});
  EXPECT_EQ(line("18446744073709551616")->sequence(), 0u);
}

TEST(LogLineIdentifier, ExtendsItsParentWithNothingLoggedInside) {
  auto parent = LogLineIdentifier::initExtending(nullptr, 7);
  auto child = LogLineIdentifier::initExtending(parent, 12);
  EXPECT_EQ(child->parent(), parent);
  EXPECT_EQ(child->sequence(), 12u);
  EXPECT_EQ(child->count(), 0u);
  EXPECT_EQ(child->classifications(), 0u);
  EXPECT_EQ(parent->depth(), 0u);
  EXPECT_EQ(parent->application(), 7u);
}

TEST(LogLineIdentifier, NextNumbersChildrenFromOne) {
  auto identifier = line("7.4");
  auto first = identifier->next();
  auto second = identifier->next();
  EXPECT_EQ(first->description(), "7.4.1");
  EXPECT_EQ(second->description(), "7.4.2");
  EXPECT_EQ(identifier->count(), 2u);
  EXPECT_EQ(first->parent(), identifier);
  EXPECT_EQ(second->parent(), identifier);
}

TEST(LogLineIdentifier, ChildKeepsItsAncestryAlive) {
  auto child = line("7.100")->next();
  EXPECT_EQ(child->description(), "7.100.1");
}

TEST(LogLineIdentifier, AnswersTheAncestorAtADepth) {
  auto identifier = line("7.1.4.2");
  EXPECT_EQ(identifier->parentIdentifierWithDepth(0)->description(), "7");
  EXPECT_EQ(identifier->parentIdentifierWithDepth(2)->description(), "7.1.4");
  EXPECT_EQ(identifier->parentIdentifierWithDepth(3), identifier);
  EXPECT_EQ(identifier->parentIdentifierWithDepth(99), identifier);
}

TEST(LogLineIdentifier, ContainsWhatIsBelowItAndNotItself) {
  EXPECT_TRUE(line("7.1")->containsIdentifier(*line("7.1.4.2")));
  EXPECT_TRUE(line("7")->containsIdentifier(*line("7.1")));
  EXPECT_FALSE(line("7.1")->containsIdentifier(*line("7.1")));
  EXPECT_FALSE(line("7.1")->containsIdentifier(*line("7.2.1")));
  EXPECT_FALSE(line("7.1.4.2")->containsIdentifier(*line("7.1")));
}

TEST(LogLineIdentifier, FewerAncestorsOrderFirst) {
  EXPECT_EQ(order("1.5", "1.2.3"), -1);
  EXPECT_EQ(order("1.2.3", "1.5"), 1);
  EXPECT_EQ(order("9", "1.1"), -1);
}

TEST(LogLineIdentifier, EqualDepthsOrderFromTheTop) {
  EXPECT_EQ(order("1.2.3", "1.2.4"), -1);
  EXPECT_EQ(order("1.3.1", "1.2.4"), 1);
  EXPECT_EQ(order("2.1.1", "1.9.9"), 1);
}

TEST(LogLineIdentifier, NothingOrdersBeforeSomething) {
  auto identifier = line("1");
  EXPECT_EQ(LogLineIdentifier::compare(nullptr, nullptr), 0);
  EXPECT_EQ(LogLineIdentifier::compare(nullptr, identifier.get()), -1);
  EXPECT_EQ(LogLineIdentifier::compare(identifier.get(), nullptr), 1);
  EXPECT_EQ(LogLineIdentifier::compare(identifier.get(), identifier.get()), 0);
}

TEST(LogLineIdentifier, SeparatelyMadeOnesAreEqual) {
  auto a = line("1.2");
  auto b = line("1.2");
  EXPECT_EQ(a->compare(*b), 0);
  EXPECT_TRUE(a->isEqual(*b));
  EXPECT_EQ(a->hash(), b->hash());
  EXPECT_FALSE(a->isEqual(*line("1.3")));
  struct Other : Object {
    std::string className() const override { return "Other"; }
  };
  EXPECT_FALSE(a->isEqual(*make<Other>()));
}

TEST(LogLineIdentifier, HashFoldsEachAncestorInAtItsOwnShift) {
  EXPECT_EQ(line("5")->hash(), (5ull << 48) ^ 20);
  EXPECT_EQ(line("7.5")->hash(), (5ull << 48) ^ 20 ^ (7ull << 45));
  EXPECT_EQ(line("3.7.5")->hash(), (5ull << 48) ^ 20 ^ (7ull << 45) ^ (3ull << 42));
  // Sixteen ancestors bring the shift from 45 down to 0, the next one starts again at 48.
  std::uint64_t expected = (9ull << 48) ^ 36;
  std::string text = "9";
  for (unsigned ancestor = 0; ancestor < 17; ++ancestor) {
    text = "1." + text;
    expected ^= 1ull << (ancestor < 16 ? 45 - 3 * ancestor : 48);
  }
  EXPECT_EQ(line(text)->hash(), expected);
}

TEST(LogLineIdentifier, AncestryOfAnyDepthIsComparedPrintedAndDestroyed) {
  std::string text = "1";
  for (int level = 0; level < 200'000; ++level) text += ".1";
  std::thread([&] {
    auto a = line(text);
    auto b = line(text);
    EXPECT_TRUE(a->isEqual(*b));
    EXPECT_EQ(a->description(), text);
    EXPECT_EQ(a->hash(), b->hash());
  }).join();
}

TEST(LogLineIdentifier, RemembersTheClassificationsLoggedInside) {
  auto identifier = line("7");
  identifier->noteClassification(classification::Warning);
  EXPECT_EQ(identifier->classifications(), 1u << 4);
  identifier->noteClassification(classification::Plain);
  EXPECT_EQ(identifier->classifications(), (1u << 4) | 1u);
  identifier->noteClassification(33);  // counted modulo 32
  EXPECT_EQ(identifier->classifications(), (1u << 4) | 3u);
  identifier->noteClassification(16);  // the mask has 16 bits
  identifier->noteClassification(-1);
  EXPECT_EQ(identifier->classifications(), (1u << 4) | 3u);
}

TEST(LogLineIdentifier, CountsChildrenOfManyThreads) {
  auto identifier = line("7");
  constexpr unsigned kThreads = 4;
  constexpr unsigned kLines = 1000;
  {
    std::vector<std::jthread> threads;
    for (unsigned thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([&, thread] {
        for (unsigned count = 0; count < kLines; ++count) {
          identifier->noteClassification(static_cast<Classification>(thread));
          EXPECT_EQ(identifier->next()->parent(), identifier);
        }
      });
    }
  }
  EXPECT_EQ(identifier->count(), kThreads * kLines);
  EXPECT_EQ(identifier->classifications(), 0xFu);
}

TEST(LogLinePin, NeverAdvances) {
  auto identifier = line("7.1.4");
  auto pin = identifier->pinned();
  EXPECT_EQ(pin->next(), pin);
  EXPECT_EQ(pin->pinned(), pin);
  EXPECT_EQ(pin->description(), "7.1.4");
  EXPECT_EQ(pin->className(), "LogLinePin");
  EXPECT_NE(pin, identifier);
}

TEST(LogLinePin, IsTheIdentifierForEveryReader) {
  auto identifier = line("7.1.4");
  identifier->noteClassification(3);
  identifier->next();
  auto pin = LogLinePin::initWithIdentifier(*identifier);
  EXPECT_TRUE(pin->isEqual(*identifier));
  EXPECT_TRUE(identifier->isEqual(*pin));
  EXPECT_EQ(pin->hash(), identifier->hash());
  EXPECT_EQ(pin->parent(), identifier->parent());
  EXPECT_EQ(pin->count(), 0u);
  EXPECT_EQ(pin->classifications(), 0u);
}

TEST(LogLinePin, EverythingLoggedInsideCarriesTheSameIdentifier) {
  ScopedDefaultLogger logger;
  auto pin = line("7.1.4")->pinned();
  for (int message = 0; message < 3; ++message) Logger::log(classification::Warning, pin, "inside");
  for (const auto& line : logger->lines()) EXPECT_EQ(line.line, "7.1.4");
  EXPECT_EQ(logger->lines().size(), 3u);
  EXPECT_EQ(pin->count(), 0u);
}

// -- Archives --

class LogLineArchive : public testing::Test {
 protected:
  LogLineArchive() { LogLineIdentifier::registerClasses(); }

  static Ref<LogLineIdentifier> remade(const Ref<LogLineIdentifier>& identifier) {
    auto data = KeyedArchiver::archivedDataWithRootObject(identifier);
    return KeyedUnarchiver::unarchivedObjectOfClasses({"LogLineIdentifier"}, data)
        ->objectAs<LogLineIdentifier>();
  }
  static Dictionary fieldsOf(const LogLineIdentifier& identifier) {
    PlainKeyedEncoder encoder;
    identifier.encodeWithCoder(encoder);
    return encoder.fields;
  }
};

TEST_F(LogLineArchive, KeyedHasParentMaskSequenceAndCount) {
  auto identifier = line("7.100");
  identifier->noteClassification(0);
  identifier->noteClassification(5);
  identifier->next();
  EXPECT_EQ(fieldsOf(*identifier), (Dictionary{{"parent", Value(identifier->parent())},
                                               {"classmap", Value(33)},
                                               {"seq", Value(100)},
                                               {"subseq", Value(1)}}));
  EXPECT_FALSE(fieldsOf(*line("7")).contains("parent"));
}

TEST_F(LogLineArchive, KeyedKeepsAncestryMaskAndCounts) {
  auto parent = line("7.73926658");
  parent->noteClassification(9);
  auto identifier = parent->next();
  identifier->noteClassification(5);
  identifier->next();

  auto copy = remade(identifier);
  EXPECT_EQ(copy->description(), "7.73926658.1");
  EXPECT_EQ(copy->className(), "LogLineIdentifier");
  EXPECT_EQ(copy->classifications(), 1u << 5);
  EXPECT_EQ(copy->count(), 1u);
  EXPECT_EQ(copy->parent()->classifications(), 1u << 9);
  EXPECT_EQ(copy->parent()->count(), 1u);
  EXPECT_EQ(copy->parent()->parent()->parent(), nullptr);
  EXPECT_EQ(copy->next()->description(), "7.73926658.1.2");
}

TEST_F(LogLineArchive, KeyedKeepsTheFullWidthOfNumbers) {
  EXPECT_EQ(remade(line("18446744073709551615"))->sequence(), ~std::uint64_t{0});
}

TEST_F(LogLineArchive, PinComesBackAsAPin) {
  auto copy = remade(line("7.1.4")->pinned());
  EXPECT_EQ(copy->next(), copy);
  EXPECT_EQ(copy->description(), "7.1.4");
}

TEST_F(LogLineArchive, ParentOfAnotherClassIsRefused) {
  PlainKeyedDecoder decoder({{"parent", Value("7")}, {"seq", Value(1)}});
  EXPECT_THROW(ClassRegistry::shared().find("LogLineIdentifier")->decode(decoder), DecodeError);
}

TEST_F(LogLineArchive, SequentialHasParentThenThreeNumbersCutTo32Bits) {
  auto identifier = LogLineIdentifier::initExtending(line("7"), 0x1'0000'0005);
  identifier->noteClassification(4);
  identifier->next();
  SequentialEncoder encoder;
  identifier->encodeWithCoder(encoder);

  SequentialDecoder fields(encoder.data());
  EXPECT_EQ(fields.decodeObject({"LogLineIdentifier"})->objectAs<LogLineIdentifier>()->sequence(),
            7u);
  EXPECT_EQ(fields.decodeUInt32(), 16u);
  EXPECT_EQ(fields.decodeUInt32(), 5u);
  EXPECT_EQ(fields.decodeUInt32(), 1u);
  EXPECT_TRUE(fields.atEnd());

  SequentialDecoder decoder(encoder.data());
  auto copy =
      as<LogLineIdentifier>(ClassRegistry::shared().find("LogLineIdentifier")->decode(decoder));
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->description(), "7.5");
  EXPECT_EQ(copy->classifications(), 16u);
  EXPECT_EQ(copy->count(), 1u);
}

}  // namespace
}  // namespace hoist
