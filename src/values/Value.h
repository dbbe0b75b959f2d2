// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "values/Data.h"
#include "values/Date.h"
#include "values/Object.h"

namespace hoist {

class Value;
using Array = std::vector<Value>;
// Enumerated in the order of the keys' bytes.
using Dictionary = std::map<std::string, Value, std::less<>>;

// One value of the kinds that cross everything: details, archives, preferences, the wire. Immutable
// and cheap to copy (containers are shared); safe to read from any thread. "No value at all" is
// std::optional<Value>, which is not the null marker.
class Value {
 public:
  enum class Kind { Null, Boolean, Integer, Double, String, Data, Date, Array, Dictionary, Object };

  Value() = default;  // the null marker
  Value(bool value) : value_(value) {}
  Value(int value) : value_(std::int64_t{value}) {}
  Value(unsigned value) : value_(std::int64_t{value}) {}
  Value(long value) : value_(std::int64_t{value}) {}
  Value(long long value) : value_(std::int64_t{value}) {}
  // Numbers above 2^63 are held as their two's complement.
  Value(unsigned long value) : value_(static_cast<std::int64_t>(value)) {}
  Value(unsigned long long value) : value_(static_cast<std::int64_t>(value)) {}
  Value(double value) : value_(value) {}
  Value(std::string value) : value_(std::move(value)) {}
  Value(std::string_view value) : value_(std::string(value)) {}
  Value(const char* value) : value_(std::string(value)) {}
  Value(hoist::Data value) : value_(std::move(value)) {}
  Value(hoist::Date value) : value_(value) {}
  Value(hoist::Array value);
  Value(hoist::Dictionary value);
  // An absent object is the null marker.
  template <class T>
  requires std::is_base_of_v<hoist::Object, T> Value(const Ref<T>& object) {
    if (object) value_ = Ref<hoist::Object>(object);
  }
  Value(const void*) = delete;

  Kind kind() const { return static_cast<Kind>(value_.index()); }
  bool isNull() const { return kind() == Kind::Null; }
  bool isNumber() const { return kind() == Kind::Integer || kind() == Kind::Double; }
  bool isString() const { return kind() == Kind::String; }

  // The value when it is of that kind, else nothing. No conversion.
  std::optional<bool> boolean() const;
  std::optional<std::int64_t> integer() const;
  std::optional<double> real() const;
  const std::string* string() const { return std::get_if<std::string>(&value_); }
  const hoist::Data* data() const { return std::get_if<hoist::Data>(&value_); }
  const hoist::Date* date() const { return std::get_if<hoist::Date>(&value_); }
  const hoist::Array* array() const;
  const hoist::Dictionary* dictionary() const;
  Ref<hoist::Object> object() const;
  template <class T>
  Ref<T> objectAs() const {
    return as<T>(object());
  }

  // Conversions that numbers, booleans and strings answer, as C does them: a string's leading
  // blanks, sign and digits, saturating; as a boolean, after blanks, sign and zeros, one of Y y T t
  // 1 to 9. Nothing for every other kind.
  std::optional<bool> boolValue() const;
  std::optional<std::int64_t> integerValue() const;
  std::optional<double> doubleValue() const;

  // The class that the value is of: an integer and a double are of one class, a boolean is of
  // another. "NSNull", "NSBoolean", "NSNumber", "NSString", "NSData", "NSDate", "NSArray",
  // "NSDictionary" or the object's class.
  std::string className() const;

  // Booleans as 1 and 0, the null marker as "<null>", data as "<hex>", dates in UTC, arrays as "(a,
  // b)", dictionaries as
  // "{k = v; }", objects by their own description.
  std::string description() const;

  // Equal values of the same class; numbers are equal when their values are.
  friend bool operator==(const Value& a, const Value& b);

 private:
  std::variant<std::monostate, bool, std::int64_t, double, std::string, hoist::Data, hoist::Date,
               std::shared_ptr<const hoist::Array>, std::shared_ptr<const hoist::Dictionary>,
               Ref<hoist::Object>>
      value_;
};

// "(null)" for nothing, else the value's description.
std::string describe(const std::optional<Value>& value);
std::string describe(const std::optional<std::string>& text);

}  // namespace hoist
