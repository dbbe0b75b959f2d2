// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/SequentialCoder.h"

#include <bit>

#include "platform/Exception.h"
#include "platform/Scoped.h"
#include "values/ClassRegistry.h"

namespace hoist {

using namespace platform;

namespace {

namespace tags {
constexpr char kAbsent = '0';
constexpr char kNull = 'n';
constexpr char kFalse = 'F';
constexpr char kTrue = 'T';
constexpr char kInteger = 'i';
constexpr char kDouble = 'd';
constexpr char kString = 's';
constexpr char kData = 'x';
constexpr char kDate = 't';
constexpr char kArray = 'a';
constexpr char kDictionary = 'm';
constexpr char kObject = 'o';
constexpr char kReference = 'r';
constexpr char kUInt32 = 'u';
constexpr char kBytes = 'b';
}  // namespace tags

[[noreturn]] void raise(const std::string& why) {
  Exception(Exception::kInvalidArgumentException, "cannot archive: " + why).raise();
}

[[noreturn]] void refuse(const std::string& why) {
  throw DecodeError(why);
}

}  // namespace

void SequentialEncoder::encodeObject(const std::optional<Value>& value) {
  if (value) {
    this->value(*value);
  } else {
    tag(tags::kAbsent);
  }
}

void SequentialEncoder::encodeUInt32(std::uint32_t value) {
  tag(tags::kUInt32);
  number(value, 4);
}

void SequentialEncoder::encodeBytes(std::span<const std::uint8_t> bytes) {
  tag(tags::kBytes);
  number(bytes.size(), 4);
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

void SequentialEncoder::number(std::uint64_t value, int size) {
  for (int shift = 8 * (size - 1); shift >= 0; shift -= 8) {
    bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
  }
}

void SequentialEncoder::text(std::string_view text) {
  number(text.size(), 4);
  bytes_.insert(bytes_.end(), text.begin(), text.end());
}

void SequentialEncoder::value(const Value& value) {
  switch (value.kind()) {
    case Value::Kind::Null:
      return tag(tags::kNull);
    case Value::Kind::Boolean:
      return tag(*value.boolean() ? tags::kTrue : tags::kFalse);
    case Value::Kind::Integer:
      tag(tags::kInteger);
      return number(static_cast<std::uint64_t>(*value.integer()), 8);
    case Value::Kind::Double:
      tag(tags::kDouble);
      return number(std::bit_cast<std::uint64_t>(*value.real()), 8);
    case Value::Kind::String:
      tag(tags::kString);
      return text(*value.string());
    case Value::Kind::Data:
      tag(tags::kData);
      return text(value.data()->view());
    case Value::Kind::Date:
      tag(tags::kDate);
      number(static_cast<std::uint64_t>(value.date()->seconds()), 8);
      return number(static_cast<std::uint64_t>(value.date()->nanoseconds()), 4);
    default:
      break;
  }
  if (depth_ == kMaximumArchiveDepth) raise("objects more than 64 deep");
  Scoped deeper(depth_, depth_ + 1);
  value.kind() == Value::Kind::Object ? object(value) : container(value);
}

void SequentialEncoder::container(const Value& value) {
  if (const Array* array = value.array()) {
    tag(tags::kArray);
    number(array->size(), 4);
    for (const Value& element : *array) this->value(element);
    return;
  }
  tag(tags::kDictionary);
  number(value.dictionary()->size(), 4);
  for (const auto& [key, entry] : *value.dictionary()) {
    text(key);
    this->value(entry);
  }
}

void SequentialEncoder::object(const Value& value) {
  Ref<Object> object = value.object();
  auto [known, isNew] =
      written_.try_emplace(object.get(), static_cast<std::uint32_t>(kept_.size()));
  if (!isNew) {
    tag(tags::kReference);
    return number(known->second, 4);
  }
  if (!object->isCodable()) raise(object->className());
  kept_.push_back(object);
  tag(tags::kObject);
  text(object->className());
  try {
    object->encodeWithCoder(*this);
  } catch (const std::logic_error&) {
    raise(object->className() + " has no unkeyed form");
  }
}

std::optional<Value> SequentialDecoder::decodeObject(const AllowedClasses& allowed) {
  return value(static_cast<char>(take(1)[0]), allowed);
}

std::uint32_t SequentialDecoder::decodeUInt32() {
  expect(tags::kUInt32);
  return static_cast<std::uint32_t>(number(4));
}

Data SequentialDecoder::decodeBytes() {
  expect(tags::kBytes);
  return Data(take(number(4)));
}

std::span<const std::uint8_t> SequentialDecoder::take(std::size_t size) {
  if (size > data_.size() - at_) refuse("cut off");
  auto taken = data_.bytes().subspan(at_, size);
  at_ += size;
  return taken;
}

void SequentialDecoder::expect(char tag) {
  if (take(1)[0] != static_cast<std::uint8_t>(tag)) refuse("a value of another type");
}

std::uint64_t SequentialDecoder::number(int size) {
  std::uint64_t value = 0;
  for (std::uint8_t byte : take(static_cast<std::size_t>(size))) value = value << 8 | byte;
  return value;
}

std::string SequentialDecoder::text() {
  auto bytes = take(number(4));
  budget_.spend({0, bytes.size()});
  return std::string(bytes.begin(), bytes.end());
}

std::uint32_t SequentialDecoder::count() {
  std::uint64_t count = number(4);
  if (count > data_.size() - at_) refuse("cut off");
  return static_cast<std::uint32_t>(count);
}

std::optional<Value> SequentialDecoder::value(char tag, const AllowedClasses& allowed) {
  if (tag == tags::kAbsent) return std::nullopt;
  budget_.spend({1, 0});
  if (auto value = leaf(tag)) {
    requireAllowed(value->className(), allowed);
    return value;
  }
  if (depth_ == kMaximumArchiveDepth) refuse("objects more than 64 deep");
  Scoped deeper(depth_, depth_ + 1);
  switch (tag) {
    case tags::kArray:
      return array(allowed);
    case tags::kDictionary:
      return dictionary(allowed);
    case tags::kObject:
      return object(allowed);
    case tags::kReference:
      return reference(allowed);
    default:
      refuse("a value of another type");
  }
}

std::optional<Value> SequentialDecoder::leaf(char tag) {
  switch (tag) {
    case tags::kNull:
      return Value();
    case tags::kTrue:
    case tags::kFalse:
      return Value(tag == tags::kTrue);
    case tags::kInteger:
      return Value(number(8));
    case tags::kDouble:
      return Value(std::bit_cast<double>(number(8)));
    case tags::kString:
      return Value(text());
    case tags::kData:
      return Value(Data::fromString(text()));
    case tags::kDate: {
      auto seconds = static_cast<std::int64_t>(number(8));
      std::uint64_t nanoseconds = number(4);
      if (nanoseconds >= 1'000'000'000) refuse("a date that is none");
      return Value(Date(seconds, static_cast<std::int64_t>(nanoseconds)));
    }
    default:
      return std::nullopt;
  }
}

Value SequentialDecoder::element(const AllowedClasses& allowed) {
  auto value = decodeObject(allowed);
  if (!value) refuse("a list with something that is no object");
  return std::move(*value);
}

Value SequentialDecoder::array(const AllowedClasses& allowed) {
  requireAllowed("NSArray", allowed);
  Array array;
  for (std::uint32_t left = count(); left > 0; --left) array.push_back(element(allowed));
  return array;
}

Value SequentialDecoder::dictionary(const AllowedClasses& allowed) {
  requireAllowed("NSDictionary", allowed);
  Dictionary dictionary;
  for (std::uint32_t left = count(); left > 0; --left) {
    std::string key = text();
    dictionary.insert_or_assign(std::move(key), element(allowed));
  }
  return dictionary;
}

Value SequentialDecoder::object(const AllowedClasses& allowed) {
  auto before = budget_.spent();
  std::string className = text();
  requireAllowed(className, allowed);
  auto info = ClassRegistry::shared().find(className);
  if (!info || !info->decode) refuse("an object of an unknown class");
  std::size_t place = made_.size();
  made_.emplace_back();
  Ref<Object> object;
  try {
    object = info->decode(*this);
  } catch (const std::logic_error&) {
    refuse("an object that has no unkeyed form");
  }
  if (!object) refuse("a " + className + " that could not be made");
  made_[place] = {object, budget_.spentSince(before)};
  return object;
}

Value SequentialDecoder::reference(const AllowedClasses& allowed) {
  std::uint64_t place = number(4);
  if (place >= made_.size()) refuse("a reference to no object");
  const Made& made = made_[place];
  if (!made.object) refuse("an object that contains itself");
  requireAllowed(made.object->className(), allowed);
  budget_.spend(made.extent);
  return made.object;
}

}  // namespace hoist
