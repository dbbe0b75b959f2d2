// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Value.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace hoist {
namespace {

using Kind = Value::Kind;
constexpr auto kGreatest = std::numeric_limits<std::int64_t>::max();
constexpr auto kLeast = std::numeric_limits<std::int64_t>::min();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// Equal to all others of the same number.
class Thing : public Object {
 public:
  explicit Thing(int number) : number_(number) {}
  std::string className() const override { return "Thing"; }
  std::string description() const override { return "thing " + std::to_string(number_); }
  bool isEqual(const Object& other) const override {
    auto thing = dynamic_cast<const Thing*>(&other);
    return thing && thing->number_ == number_;
  }
  std::size_t hash() const override { return static_cast<std::size_t>(number_); }

 private:
  int number_;
};

class Identity : public Object {
 public:
  std::string className() const override { return "Identity"; }
};

// One of each kind, none equal to another.
std::vector<Value> oneOfEach() {
  return {Value(),       true,     1,
          1.5,           "1",      Data::fromString("1"),
          Date(1),       Array{1}, Dictionary{{"1", 1}},
          make<Thing>(1)};
}

TEST(Value, HasTheKindOfWhatItWasMadeFrom) {
  EXPECT_EQ(Value().kind(), Kind::Null);
  EXPECT_EQ(Value(true).kind(), Kind::Boolean);
  EXPECT_EQ(Value('x').kind(), Kind::Integer);
  EXPECT_EQ(Value(1).kind(), Kind::Integer);
  EXPECT_EQ(Value(1u).kind(), Kind::Integer);
  EXPECT_EQ(Value(1L).kind(), Kind::Integer);
  EXPECT_EQ(Value(1uLL).kind(), Kind::Integer);
  EXPECT_EQ(Value(std::uint8_t{1}).kind(), Kind::Integer);
  EXPECT_EQ(Value(1.0f).kind(), Kind::Double);
  EXPECT_EQ(Value("x").kind(), Kind::String);
  EXPECT_EQ(Value(std::string_view("x")).kind(), Kind::String);
  EXPECT_EQ(Value(Data()).kind(), Kind::Data);
  EXPECT_EQ(Value(Date()).kind(), Kind::Date);
  EXPECT_EQ(Value(Array()).kind(), Kind::Array);
  EXPECT_EQ(Value(Dictionary()).kind(), Kind::Dictionary);
  EXPECT_EQ(Value(make<Thing>(1)).kind(), Kind::Object);
}

TEST(Value, OfAnAbsentObjectIsTheNullMarker) {
  EXPECT_TRUE(Value(Ref<Thing>()).isNull());
}

TEST(Value, HoldsNumbersAboveTheSignedRangeAsTheirTwosComplement) {
  EXPECT_EQ(Value(std::numeric_limits<std::uint64_t>::max()).integer(), -1);
  EXPECT_EQ(Value(std::uint64_t{1} << 63).integer(), kLeast);
}

TEST(Value, AnswersOnlyForItsOwnKind) {
  auto values = oneOfEach();
  for (std::size_t i = 0; i < values.size(); ++i) {
    const Value& value = values[i];
    Kind kind = static_cast<Kind>(i);
    ASSERT_EQ(value.kind(), kind);
    EXPECT_EQ(value.boolean().has_value(), kind == Kind::Boolean);
    EXPECT_EQ(value.integer().has_value(), kind == Kind::Integer);
    EXPECT_EQ(value.real().has_value(), kind == Kind::Double);
    EXPECT_EQ(value.string() != nullptr, kind == Kind::String);
    EXPECT_EQ(value.data() != nullptr, kind == Kind::Data);
    EXPECT_EQ(value.date() != nullptr, kind == Kind::Date);
    EXPECT_EQ(value.array() != nullptr, kind == Kind::Array);
    EXPECT_EQ(value.dictionary() != nullptr, kind == Kind::Dictionary);
    EXPECT_EQ(value.object() != nullptr, kind == Kind::Object);
    EXPECT_EQ(value.isNull(), kind == Kind::Null);
    EXPECT_EQ(value.isString(), kind == Kind::String);
    EXPECT_EQ(value.isNumber(), kind == Kind::Integer || kind == Kind::Double);
  }
}

TEST(Value, GivesItsObjectAsTheClassThatItIs) {
  Value value = make<Thing>(1);
  EXPECT_TRUE(value.objectAs<Thing>());
  EXPECT_FALSE(value.objectAs<Identity>());
  EXPECT_FALSE(Value(1).objectAs<Thing>());
}

// ---- Equality ----

TEST(Value, IsEqualToItselfAndToNoOtherKind) {
  auto values = oneOfEach();
  auto others = oneOfEach();
  for (std::size_t i = 0; i < values.size(); ++i) {
    for (std::size_t j = 0; j < values.size(); ++j) EXPECT_EQ(values[i] == others[j], i == j);
  }
}

TEST(Value, OfANumberIsEqualToTheSameNumberOfTheOtherKind) {
  EXPECT_EQ(Value(1), Value(1.0));
  EXPECT_EQ(Value(0), Value(-0.0));
  EXPECT_EQ(Value(-5.0), Value(-5));
  EXPECT_FALSE(Value(1) == Value(1.5));
  EXPECT_FALSE(Value(1) == Value(true));
  EXPECT_FALSE(Value(0) == Value(false));
}

TEST(Value, OfANumberIsNotEqualToOneThatOnlyRoundsToIt) {
  EXPECT_FALSE(Value(kGreatest) == Value(9223372036854775808.0));
  EXPECT_EQ(Value(kLeast), Value(-9223372036854775808.0));
  EXPECT_FALSE(Value((std::int64_t{1} << 53) + 1) == Value(std::ldexp(1.0, 53)));
  EXPECT_FALSE(Value(0) == Value(kNaN));
  EXPECT_FALSE(Value(kGreatest) == Value(kInfinity));
  EXPECT_FALSE(Value(kNaN) == Value(kNaN));
}

TEST(Value, OfContainersIsEqualElementByElement) {
  Value a = Array{1, Dictionary{{"k", Array{"x"}}}};
  EXPECT_EQ(a, Value(Array{1.0, Dictionary{{"k", Array{"x"}}}}));
  EXPECT_FALSE(a == Value(Array{1, Dictionary{{"k", Array{"y"}}}}));
  EXPECT_FALSE(a == Value(Array{1}));
  EXPECT_FALSE(Value(Dictionary{{"a", 1}}) == Value(Dictionary{{"b", 1}}));
  EXPECT_EQ(Value(Dictionary{{"a", 1}, {"b", 2}}), Value(Dictionary{{"b", 2}, {"a", 1}}));
}

TEST(Value, OfAnObjectAsksTheObject) {
  EXPECT_EQ(Value(make<Thing>(1)), Value(make<Thing>(1)));
  EXPECT_FALSE(Value(make<Thing>(1)) == Value(make<Thing>(2)));
  auto identity = make<Identity>();
  EXPECT_EQ(Value(identity), Value(identity));
  EXPECT_FALSE(Value(identity) == Value(make<Identity>()));
  EXPECT_FALSE(Value(identity) == Value(make<Thing>(1)));
}

TEST(Value, SharesItsContainersWithItsCopies) {
  Value value = Array{1, 2, 3};
  Value copy = value;
  EXPECT_EQ(copy.array(), value.array());
}

// ---- Conversions ----

TEST(Value, OfANumberConvertsAsCDoes) {
  EXPECT_EQ(Value(2).boolValue(), true);
  EXPECT_EQ(Value(0).boolValue(), false);
  EXPECT_EQ(Value(0.1).boolValue(), true);
  EXPECT_EQ(Value(0.0).boolValue(), false);
  EXPECT_EQ(Value(true).integerValue(), 1);
  EXPECT_EQ(Value(false).doubleValue(), 0.0);
  EXPECT_EQ(Value(-1.9).integerValue(), -1);
  EXPECT_EQ(Value(3).doubleValue(), 3.0);
}

TEST(Value, OfADoubleSaturatesAsAnInteger) {
  EXPECT_EQ(Value(1e300).integerValue(), kGreatest);
  EXPECT_EQ(Value(-kInfinity).integerValue(), kLeast);
  EXPECT_EQ(Value(9223372036854775808.0).integerValue(), kGreatest);
  EXPECT_EQ(Value(kNaN).integerValue(), 0);
}

TEST(Value, OfATextConvertsToAnIntegerByItsBeginning) {
  EXPECT_EQ(Value("12").integerValue(), 12);
  EXPECT_EQ(Value("  -12 apples").integerValue(), -12);
  EXPECT_EQ(Value("+7").integerValue(), 7);
  EXPECT_EQ(Value("\t\n 7.9").integerValue(), 7);
  EXPECT_EQ(Value("0x10").integerValue(), 0);
  EXPECT_EQ(Value("apples").integerValue(), 0);
  EXPECT_EQ(Value("").integerValue(), 0);
  EXPECT_EQ(Value("99999999999999999999").integerValue(), kGreatest);
  EXPECT_EQ(Value("-99999999999999999999").integerValue(), kLeast);
}

TEST(Value, OfATextConvertsToADoubleByItsBeginning) {
  EXPECT_EQ(Value(" -1.5e3kg").doubleValue(), -1500.0);
  EXPECT_EQ(Value("none").doubleValue(), 0.0);
  EXPECT_EQ(Value("").doubleValue(), 0.0);
  EXPECT_EQ(Value("1e999").doubleValue(), kInfinity);
}

TEST(Value, OfATextIsTrueForYesAndTrueAndNumbers) {
  for (const char* text :
       {"YES", "yes", "Yup", "true", "T", "1", "9", "007", " +1", "-2", "  y", "0001", "1x"}) {
    EXPECT_EQ(Value(text).boolValue(), true) << text;
  }
  for (const char* text : {"", "no", "NO", "false", "0", "000", "off", "+", "-", "  ", "x1", "--1",
                           "0 1", "0.5", "ja"}) {
    EXPECT_EQ(Value(text).boolValue(), false) << text;
  }
}

TEST(Value, OfOtherKindsConvertsToNoNumber) {
  for (const Value& value : {Value(), Value(Data::fromString("1")), Value(Date(1)), Value(Array{1}),
                             Value(Dictionary{}), Value(make<Thing>(1))}) {
    EXPECT_EQ(value.boolValue(), std::nullopt);
    EXPECT_EQ(value.integerValue(), std::nullopt);
    EXPECT_EQ(value.doubleValue(), std::nullopt);
  }
}

// ---- Names and descriptions ----

TEST(Value, TellsItsClass) {
  std::vector<std::string> names;
  for (const Value& value : oneOfEach()) names.push_back(value.className());
  EXPECT_EQ(names,
            (std::vector<std::string>{"NSNull", "NSBoolean", "NSNumber", "NSNumber", "NSString",
                                      "NSData", "NSDate", "NSArray", "NSDictionary", "Thing"}));
}

TEST(Value, DescribesItself) {
  EXPECT_EQ(Value().description(), "<null>");
  EXPECT_EQ(Value(true).description(), "1");
  EXPECT_EQ(Value(false).description(), "0");
  EXPECT_EQ(Value(kLeast).description(), "-9223372036854775808");
  EXPECT_EQ(Value("as it is").description(), "as it is");
  EXPECT_EQ(Value(Data::fromString("\x01\xAB")).description(), "<01ab>");
  EXPECT_EQ(Value(Date(1'709'644'029)).description(), "2024-03-05 13:07:09 +0000");
  EXPECT_EQ(Value(Array{}).description(), "()");
  EXPECT_EQ(Value(Array{1, "a", Array{2, 3}}).description(), "(1, a, (2, 3))");
  EXPECT_EQ(Value(Dictionary{}).description(), "{}");
  EXPECT_EQ(Value(Dictionary{{"b", 2}, {"a", Dictionary{{"c", 1}}}}).description(),
            "{a = {c = 1;}; b = 2;}");
  EXPECT_EQ(Value(make<Thing>(7)).description(), "thing 7");
}

TEST(Value, DescribesADoubleByItsShortestText) {
  EXPECT_EQ(Value(0.1).description(), "0.1");
  EXPECT_EQ(Value(4.0).description(), "4");
  EXPECT_EQ(Value(-2.5).description(), "-2.5");
  EXPECT_EQ(Value(1e300).description(), "1e+300");
  EXPECT_EQ(Value(kNaN).description(), "nan");
  EXPECT_EQ(Value(kInfinity).description(), "inf");
  EXPECT_EQ(Value(-kInfinity).description(), "-inf");
}

TEST(Value, DescribesNothingAsNull) {
  EXPECT_EQ(describe(std::optional<Value>()), "(null)");
  EXPECT_EQ(describe(std::optional<Value>(Value())), "<null>");
  EXPECT_EQ(describe(std::optional<std::string>()), "(null)");
  EXPECT_EQ(describe(std::optional<std::string>("x")), "x");
}

TEST(Object, DescribesItselfByClassAndAddress) {
  auto object = make<Identity>();
  EXPECT_TRUE(object->description().starts_with("<Identity: 0x"));
  EXPECT_TRUE(object->isEqual(*object));
  EXPECT_FALSE(object->isEqual(*make<Identity>()));
  EXPECT_EQ(object->hash(), object->hash());
  EXPECT_FALSE(object->isCodable());
}

}  // namespace
}  // namespace hoist
