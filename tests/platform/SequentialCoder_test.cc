// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/SequentialCoder.h"

#include <gtest/gtest.h>

#include <limits>

#include "platform/Exception.h"
#include "values/ClassRegistry.h"
#include "values/Error.h"

namespace hoist {
namespace {

// A chain, as identifiers with their ancestors are.
class Link : public Object {
 public:
  Link(Ref<Link> parent, std::uint32_t number) : parent(std::move(parent)), number(number) {}
  const Ref<Link> parent;
  const std::uint32_t number;

  std::string className() const override { return "Link"; }
  bool isCodable() const override { return true; }
  void encodeWithCoder(Encoder& encoder) const override {
    encoder.encodeObject(parent ? std::optional<Value>(parent) : std::nullopt);
    encoder.encodeUInt32(number);
    encoder.encodeBytes(Data::fromString("end").bytes());
  }
  static Ref<Object> decode(Decoder& decoder) {
    auto parent = decoder.decodeObject({"Link"});
    auto number = decoder.decodeUInt32();
    if (decoder.decodeBytes().view() != "end") throw DecodeError("another end");
    return make<Link>(parent ? parent->objectAs<Link>() : nullptr, number);
  }
};

class Uncodable : public Object {
 public:
  std::string className() const override { return "Uncodable"; }
};

class SequentialCoder : public testing::Test {
 protected:
  void SetUp() override {
    ClassRegistry::shared().add({.name = "Link",
                                 .superclass = "",
                                 .decode = &Link::decode,
                                 .create = nullptr,
                                 .classObject = nullptr});
    Error::registerClass();
  }
  static Data encoded(const std::optional<Value>& value) {
    SequentialEncoder encoder;
    encoder.encodeObject(value);
    return encoder.data();
  }
  static std::optional<Value> decoded(const Data& data,
                                      const AllowedClasses& allowed = {"NSObject"}) {
    SequentialDecoder decoder(data);
    return decoder.decodeObject(allowed);
  }
  static Ref<Link> chain(unsigned length) {
    Ref<Link> link;
    for (unsigned i = 0; i < length; ++i) link = make<Link>(link, i);
    return link;
  }
};

TEST_F(SequentialCoder, BringsEveryKindOfValueBack) {
  Value everything = Array{Value(),
                           true,
                           false,
                           std::numeric_limits<std::int64_t>::min(),
                           1.0 / 3,
                           std::string("a\0\xFF", 3),
                           Data::fromString("x"),
                           Date(-5, 7),
                           Array{},
                           Dictionary{{"k", Dictionary{{"", 1}}}}};
  EXPECT_EQ(decoded(encoded(everything)), everything);
  EXPECT_EQ(decoded(encoded(std::nullopt)), std::nullopt);
}

TEST_F(SequentialCoder, BringsSeveralValuesBackInTheirOrder) {
  SequentialEncoder encoder;
  encoder.encodeUInt32(0xFFFFFFFF);
  encoder.encodeObject(Value("x"));
  encoder.encodeBytes(Data().bytes());
  SequentialDecoder decoder(encoder.data());
  EXPECT_EQ(decoder.decodeUInt32(), 0xFFFFFFFF);
  EXPECT_EQ(decoder.decodeObject({"NSString"}), Value("x"));
  EXPECT_FALSE(decoder.atEnd());
  EXPECT_TRUE(decoder.decodeBytes().empty());
  EXPECT_TRUE(decoder.atEnd());
}

TEST_F(SequentialCoder, BringsAChainOfObjectsBack) {
  auto link = decoded(encoded(chain(12)), {"Link"}).value().objectAs<Link>();
  for (int i = 11; i >= 0; --i) {
    ASSERT_TRUE(link);
    EXPECT_EQ(link->number, static_cast<std::uint32_t>(i));
    link = link->parent;
  }
  EXPECT_FALSE(link);
}

TEST_F(SequentialCoder, KeepsTheIdentityOfASharedObject) {
  auto parent = chain(2);
  Value value = Array{make<Link>(parent, 1), make<Link>(parent, 2)};
  Value after = decoded(encoded(value)).value();
  EXPECT_EQ(after.array()->at(0).objectAs<Link>()->parent,
            after.array()->at(1).objectAs<Link>()->parent);
}

TEST_F(SequentialCoder, MakesOnlyAllowedClasses) {
  EXPECT_THROW(decoded(encoded(chain(1)), {"NSString"}), DecodeError);
  EXPECT_THROW(decoded(encoded("x"), {"Link"}), DecodeError);
  EXPECT_THROW(decoded(encoded(Array{"x"}), {"NSArray"}), DecodeError);
  EXPECT_THROW(decoded(encoded(Dictionary{}), {"NSArray"}), DecodeError);
  EXPECT_TRUE(decoded(encoded(true), {"NSNumber"}));
}

TEST_F(SequentialCoder, RefusesToWriteWhatCannotBeArchived) {
  EXPECT_THROW(encoded(make<Uncodable>()), Exception);
  EXPECT_THROW(encoded(Error::posix(2)), Exception);
  EXPECT_THROW(encoded(chain(65)), Exception);
  EXPECT_NO_THROW(encoded(chain(64)));
}

TEST_F(SequentialCoder, RefusesAnotherTypeThanWasWritten) {
  SequentialEncoder encoder;
  encoder.encodeUInt32(1);
  EXPECT_THROW(SequentialDecoder(encoder.data()).decodeBytes(), DecodeError);
  EXPECT_THROW(decoded(encoder.data()), DecodeError);
  EXPECT_THROW(SequentialDecoder(encoded("x")).decodeUInt32(), DecodeError);
}

TEST_F(SequentialCoder, RefusesAnEndInTheMiddle) {
  Data whole = encoded(Array{chain(3), "text", Date(5), Dictionary{{"k", 1.5}}});
  EXPECT_TRUE(decoded(whole));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_THROW(decoded(Data(whole.bytes().first(size))), DecodeError) << size;
  }
}

TEST_F(SequentialCoder, SurvivesEveryByteBeingAnother) {
  Data whole = encoded(Array{chain(3), "text", Date(5), Dictionary{{"k", 1.5}}});
  for (std::size_t i = 0; i < whole.size(); ++i) {
    for (int other = 0; other < 256; other += 5) {
      std::vector<std::uint8_t> bytes(whole.bytes().begin(), whole.bytes().end());
      bytes[i] = static_cast<std::uint8_t>(other);
      try {
        decoded(Data(bytes));
      } catch (const DecodeError&) {
      }
    }
  }
}

TEST_F(SequentialCoder, RefusesHostileBytes) {
  auto bytes = [](std::string_view text) { return Data::fromString(text); };
  using namespace std::string_view_literals;
  EXPECT_THROW(decoded(bytes("a\xFF\xFF\xFF\xFF"sv)), DecodeError);       // four billion elements
  EXPECT_THROW(decoded(bytes("s\xFF\xFF\xFF\xFF"sv)), DecodeError);       // four gigabytes
  EXPECT_THROW(decoded(bytes("r\0\0\0\0"sv)), DecodeError);               // no object yet
  EXPECT_THROW(decoded(bytes("o\0\0\0\4Linkr\0\0\0\0"sv)), DecodeError);  // its own parent
  EXPECT_THROW(decoded(bytes("o\0\0\0\6Nobody"sv)), DecodeError);         // unknown
  EXPECT_THROW(decoded(bytes("o\0\0\0\7NSError"sv)), DecodeError);        // no unkeyed form
  EXPECT_THROW(decoded(bytes("t\0\0\0\0\0\0\0\0\xFF\0\0\0"sv)), DecodeError);  // no such nanosecond
  EXPECT_THROW(decoded(bytes("a\0\0\0\1\x30"sv)), DecodeError);                // absent in a list
  std::string deep;
  for (int i = 0; i < 100'000; ++i) deep += "a\0\0\0\1"sv;
  EXPECT_THROW(decoded(bytes(deep)), DecodeError);
}

TEST_F(SequentialCoder, RefusesAFewObjectsThatStandForBillions) {
  SequentialEncoder encoder;
  auto link = chain(60);
  std::string bytes(encoded(link).view());
  // Many lists of references to the whole chain.
  std::string list = "a";
  constexpr std::uint32_t kReferences = 60'000;
  for (int shift = 24; shift >= 0; shift -= 8)
    list += static_cast<char>((kReferences + 1) >> shift);
  list += bytes;
  for (std::uint32_t i = 0; i < kReferences; ++i) list += std::string("r\0\0\0\0", 5);
  EXPECT_THROW(decoded(Data::fromString(list)), DecodeError);
}

}  // namespace
}  // namespace hoist
