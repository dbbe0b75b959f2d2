// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Coder.h"

namespace hoist {
namespace {

[[noreturn]] void wrongHalf(const char* half) {
  throw std::logic_error(std::string("this coder has no ") + half + " half");
}

}  // namespace

Encoder::~Encoder() = default;
void Encoder::encodeObject(std::string_view, const std::optional<Value>&) {
  wrongHalf("keyed");
}
void Encoder::encodeInteger(std::string_view, std::int64_t) {
  wrongHalf("keyed");
}
void Encoder::encodeBool(std::string_view, bool) {
  wrongHalf("keyed");
}
void Encoder::encodeDouble(std::string_view, double) {
  wrongHalf("keyed");
}
void Encoder::encodeBytes(std::string_view, std::span<const std::uint8_t>) {
  wrongHalf("keyed");
}
void Encoder::encodeObject(const std::optional<Value>&) {
  wrongHalf("sequential");
}
void Encoder::encodeUInt32(std::uint32_t) {
  wrongHalf("sequential");
}
void Encoder::encodeBytes(std::span<const std::uint8_t>) {
  wrongHalf("sequential");
}

Decoder::~Decoder() = default;
bool Decoder::containsKey(std::string_view) const {
  wrongHalf("keyed");
}
std::optional<Value> Decoder::decodeObject(std::string_view, const AllowedClasses&) {
  wrongHalf("keyed");
}
std::int64_t Decoder::decodeInteger(std::string_view) {
  wrongHalf("keyed");
}
bool Decoder::decodeBool(std::string_view) {
  wrongHalf("keyed");
}
double Decoder::decodeDouble(std::string_view) {
  wrongHalf("keyed");
}
std::optional<Data> Decoder::decodeBytes(std::string_view) {
  wrongHalf("keyed");
}
std::optional<Value> Decoder::decodeObject(const AllowedClasses&) {
  wrongHalf("sequential");
}
std::uint32_t Decoder::decodeUInt32() {
  wrongHalf("sequential");
}
Data Decoder::decodeBytes() {
  wrongHalf("sequential");
}

std::optional<std::string> Decoder::decodeString(std::string_view key) {
  auto value = decodeObject(key, {"NSString"});
  if (!value) return std::nullopt;
  if (!value->isString()) throw DecodeError("the field is no string");
  return *value->string();
}

std::optional<Value> Decoder::decodePropertyList(std::string_view key) {
  return decodeObject(key, propertyListClasses());
}

const AllowedClasses& propertyListClasses() {
  static const auto& classes = *new AllowedClasses{"NSString", "NSNumber", "NSBoolean",   "NSData",
                                                   "NSDate",   "NSArray",  "NSDictionary"};
  return classes;
}

}  // namespace hoist
