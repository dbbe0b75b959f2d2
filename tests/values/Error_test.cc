// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Error.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "values/ClassRegistry.h"
#include "values/Coder.h"

namespace hoist {
namespace {

TEST(Error, KeepsWhatItWasMadeOf) {
  auto error = make<Error>("Domain", -5, Dictionary{{"k", 1}});
  EXPECT_EQ(error->domain(), "Domain");
  EXPECT_EQ(error->code(), -5);
  EXPECT_EQ(error->userInfo(), (Dictionary{{"k", 1}}));
  EXPECT_EQ(error->className(), "NSError");
  EXPECT_TRUE(error->isCodable());
}

TEST(Error, OfThePOSIXDomainIsDescribedByTheCLibrary) {
  auto error = Error::posix(ENOENT, "/gone");
  EXPECT_EQ(error->domain(), Error::kPOSIXDomain);
  EXPECT_EQ(error->code(), ENOENT);
  EXPECT_EQ(error->localizedDescription(), "No such file or directory");
  EXPECT_EQ(error->userInfo().at(Error::kFilePath), Value("/gone"));
  EXPECT_FALSE(Error::posix(ENOENT)->userInfo().contains(Error::kFilePath));
  EXPECT_EQ(Error::posix(9999)->localizedDescription(), "Unknown error 9999");
}

TEST(Error, AnswersItsTextsOnlyWhenTheyAreTexts) {
  Error without("Domain", 1);
  EXPECT_EQ(without.localizedDescription(), std::nullopt);
  EXPECT_EQ(without.localizedFailureReason(), std::nullopt);
  EXPECT_EQ(without.failingURLString(), std::nullopt);
  Error with("Domain", 1,
             {{Error::kLocalizedDescription, "d"},
              {Error::kLocalizedFailureReason, "r"},
              {Error::kFailingURLString, "u"}});
  EXPECT_EQ(with.localizedDescription(), "d");
  EXPECT_EQ(with.localizedFailureReason(), "r");
  EXPECT_EQ(with.failingURLString(), "u");
  EXPECT_EQ(Error("Domain", 1, {{Error::kLocalizedDescription, 5}}).localizedDescription(),
            std::nullopt);
}

TEST(Error, DescribesItself) {
  EXPECT_EQ(Error("Domain", -5).description(), "Error Domain=Domain Code=-5");
  EXPECT_EQ(Error::posix(ENOENT)->description(),
            "Error Domain=NSPOSIXErrorDomain Code=2 \"No such file or directory\"");
}

TEST(Error, IsEqualWhenAllOfItIs) {
  Error error("Domain", 1, {{"k", 1}});
  Error same("Domain", 1, {{"k", 1}});
  EXPECT_TRUE(error.isEqual(same));
  EXPECT_EQ(error.hash(), same.hash());
  EXPECT_FALSE(error.isEqual(Error("Other", 1, {{"k", 1}})));
  EXPECT_FALSE(error.isEqual(Error("Domain", 2, {{"k", 1}})));
  EXPECT_FALSE(error.isEqual(Error("Domain", 1)));
  struct Other : Object {
    std::string className() const override { return "NSError"; }
  };
  EXPECT_FALSE(error.isEqual(Other()));
}

// Hands an error's fields from one to the other.
struct Fields : Encoder {
  using Encoder::encodeBytes;
  using Encoder::encodeObject;
  bool isKeyed() const override { return true; }
  void encodeObject(std::string_view key, const std::optional<Value>& value) override {
    if (value) values.emplace(key, *value);
  }
  void encodeInteger(std::string_view key, std::int64_t value) override {
    values.emplace(key, value);
  }
  Dictionary values;
};
struct FieldReader : Decoder {
  explicit FieldReader(Dictionary values) : values(std::move(values)) {}
  using Decoder::decodeBytes;
  using Decoder::decodeObject;
  bool isKeyed() const override { return true; }
  std::optional<Value> decodeObject(std::string_view key, const AllowedClasses& allowed) override {
    seen[std::string(key)] = allowed;
    auto found = values.find(key);
    return found == values.end() ? std::nullopt : std::optional(found->second);
  }
  std::int64_t decodeInteger(std::string_view key) override {
    auto found = values.find(key);
    return found == values.end() ? 0 : *found->second.integer();
  }
  Dictionary values;
  std::map<std::string, AllowedClasses> seen;
};

Ref<Object> decode(Decoder& decoder) {
  Error::registerClass();
  return ClassRegistry::shared().find("NSError")->decode(decoder);
}

TEST(Error, IsCodedByItsFields) {
  Error error("Domain", -5, {{"k", Array{1}}});
  Fields fields;
  error.encodeWithCoder(fields);
  EXPECT_EQ(fields.values, (Dictionary{{"NSDomain", "Domain"},
                                       {"NSCode", -5},
                                       {"NSUserInfo", Dictionary{{"k", Array{1}}}}}));
  FieldReader reader(fields.values);
  EXPECT_TRUE(decode(reader)->isEqual(error));
  EXPECT_TRUE(reader.seen["NSUserInfo"].contains("NSError"));
  EXPECT_FALSE(reader.seen["NSUserInfo"].contains("NSObject"));
}

TEST(Error, WithoutADomainIsNotMade) {
  FieldReader reader({{"NSCode", 1}});
  EXPECT_THROW(decode(reader), DecodeError);
  FieldReader wrong({{"NSDomain", 5}});
  EXPECT_THROW(decode(wrong), DecodeError);
}

TEST(Error, WithoutUserInfoIsMade) {
  FieldReader reader({{"NSDomain", "d"}, {"NSUserInfo", "no dictionary"}});
  EXPECT_TRUE(as<Error>(decode(reader))->userInfo().empty());
}

TEST(Coder, ThrowsWhenItsOtherHalfIsUsed) {
  Fields encoder;
  EXPECT_THROW(encoder.encodeUInt32(1), std::logic_error);
  EXPECT_THROW(encoder.encodeObject(Value(1)), std::logic_error);
  EXPECT_THROW(encoder.encodeBool("k", true), std::logic_error);
  FieldReader decoder({});
  EXPECT_THROW(decoder.decodeUInt32(), std::logic_error);
  EXPECT_THROW(decoder.decodeDouble("k"), std::logic_error);
  EXPECT_THROW(decoder.containsKey("k"), std::logic_error);
}

TEST(Coder, RefusesAStringThatIsNone) {
  FieldReader decoder({{"text", "x"}, {"number", 5}});
  EXPECT_EQ(decoder.decodeString("text"), "x");
  EXPECT_EQ(decoder.decodeString("none"), std::nullopt);
  EXPECT_THROW(decoder.decodeString("number"), DecodeError);
}

TEST(Coder, AsksForThePropertyListClasses) {
  FieldReader decoder({});
  decoder.decodePropertyList("k");
  EXPECT_EQ(decoder.seen["k"], propertyListClasses());
  EXPECT_FALSE(propertyListClasses().contains("NSObject"));
  EXPECT_FALSE(propertyListClasses().contains("NSNull"));
}

}  // namespace
}  // namespace hoist
