// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Value.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace hoist {
namespace {

// A C string conversion stops at the first NUL, as the text functions of C do.
std::int64_t integerFromText(const std::string& text) {
  return std::strtoll(text.c_str(), nullptr, 10);
}

bool booleanFromText(const std::string& text) {
  std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
  if (at == std::string::npos) return false;
  if (text[at] == '+' || text[at] == '-') ++at;
  while (at < text.size() && text[at] == '0') ++at;
  return at < text.size() &&
         std::string_view("YyTt123456789").find(text[at]) != std::string_view::npos;
}

std::int64_t saturated(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 9223372036854775808.0) return std::numeric_limits<std::int64_t>::max();
  if (value <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

bool equalNumbers(const Value& a, const Value& b) {
  if (a.kind() == b.kind()) {
    return a.integer() ? *a.integer() == *b.integer() : *a.real() == *b.real();
  }
  double real = a.real() ? *a.real() : *b.real();
  std::int64_t integer = a.integer() ? *a.integer() : *b.integer();
  // Equal only if the double is that very integer: beyond 2^53 a conversion alone would say so too
  // often.
  return std::trunc(real) == real && real >= -9223372036854775808.0 &&
         real < 9223372036854775808.0 && static_cast<std::int64_t>(real) == integer;
}

std::string describeDouble(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value < 0 ? "-inf" : "inf";
  char text[32];
  auto end = std::to_chars(text, text + sizeof text, value).ptr;
  return std::string(text, end);
}

}  // namespace

Value::Value(hoist::Array value) : value_(std::make_shared<const hoist::Array>(std::move(value))) {}
Value::Value(hoist::Dictionary value)
    : value_(std::make_shared<const hoist::Dictionary>(std::move(value))) {}

std::optional<bool> Value::boolean() const {
  auto value = std::get_if<bool>(&value_);
  return value ? std::optional(*value) : std::nullopt;
}

std::optional<std::int64_t> Value::integer() const {
  auto value = std::get_if<std::int64_t>(&value_);
  return value ? std::optional(*value) : std::nullopt;
}

std::optional<double> Value::real() const {
  auto value = std::get_if<double>(&value_);
  return value ? std::optional(*value) : std::nullopt;
}

const Array* Value::array() const {
  auto value = std::get_if<std::shared_ptr<const hoist::Array>>(&value_);
  return value ? value->get() : nullptr;
}

const Dictionary* Value::dictionary() const {
  auto value = std::get_if<std::shared_ptr<const hoist::Dictionary>>(&value_);
  return value ? value->get() : nullptr;
}

Ref<Object> Value::object() const {
  auto value = std::get_if<Ref<hoist::Object>>(&value_);
  return value ? *value : nullptr;
}

std::optional<bool> Value::boolValue() const {
  switch (kind()) {
    case Kind::Boolean:
      return boolean();
    case Kind::Integer:
      return *integer() != 0;
    case Kind::Double:
      return *real() != 0;
    case Kind::String:
      return booleanFromText(*string());
    default:
      return std::nullopt;
  }
}

std::optional<std::int64_t> Value::integerValue() const {
  switch (kind()) {
    case Kind::Boolean:
      return *boolean() ? 1 : 0;
    case Kind::Integer:
      return integer();
    case Kind::Double:
      return saturated(*real());
    case Kind::String:
      return integerFromText(*string());
    default:
      return std::nullopt;
  }
}

std::optional<double> Value::doubleValue() const {
  switch (kind()) {
    case Kind::Boolean:
      return *boolean() ? 1 : 0;
    case Kind::Integer:
      return static_cast<double>(*integer());
    case Kind::Double:
      return real();
    case Kind::String:
      return std::strtod(string()->c_str(), nullptr);
    default:
      return std::nullopt;
  }
}

std::string Value::className() const {
  switch (kind()) {
    case Kind::Null:
      return "NSNull";
    case Kind::Boolean:
      return "NSBoolean";
    case Kind::Integer:
    case Kind::Double:
      return "NSNumber";
    case Kind::String:
      return "NSString";
    case Kind::Data:
      return "NSData";
    case Kind::Date:
      return "NSDate";
    case Kind::Array:
      return "NSArray";
    case Kind::Dictionary:
      return "NSDictionary";
    case Kind::Object:
      return object()->className();
  }
  return {};
}

std::string Value::description() const {
  switch (kind()) {
    case Kind::Null:
      return "<null>";
    case Kind::Boolean:
      return *boolean() ? "1" : "0";
    case Kind::Integer:
      return std::to_string(*integer());
    case Kind::Double:
      return describeDouble(*real());
    case Kind::String:
      return *string();
    case Kind::Data:
      return data()->description();
    case Kind::Date:
      return date()->description();
    case Kind::Array: {
      std::string text = "(";
      for (const Value& element : *array()) {
        if (text.size() > 1) text += ", ";
        text += element.description();
      }
      return text + ")";
    }
    case Kind::Dictionary: {
      std::string text = "{";
      for (const auto& [key, value] : *dictionary()) {
        text += (text.size() > 1 ? " " : "") + key + " = " + value.description() + ";";
      }
      return text + "}";
    }
    case Kind::Object:
      return object()->description();
  }
  return {};
}

bool operator==(const Value& a, const Value& b) {
  if (a.isNumber() && b.isNumber()) return equalNumbers(a, b);
  if (a.kind() != b.kind()) return false;
  switch (a.kind()) {
    case Value::Kind::Array:
      return a.array() == b.array() || *a.array() == *b.array();
    case Value::Kind::Dictionary:
      return a.dictionary() == b.dictionary() || *a.dictionary() == *b.dictionary();
    case Value::Kind::Object:
      return a.object()->isEqual(*b.object());
    default:
      return a.value_ == b.value_;
  }
}

std::string describe(const std::optional<Value>& value) {
  return value ? value->description() : "(null)";
}
std::string describe(const std::optional<std::string>& text) {
  return text ? *text : "(null)";
}

}  // namespace hoist
