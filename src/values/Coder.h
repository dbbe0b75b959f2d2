// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "values/Value.h"

namespace hoist {

// What an object writes itself to and remakes itself from. Three backends implement the pair: the
// wire's a{sv}, the keyed archive and the sequential coder. An object asks isKeyed() and uses the
// half that applies; using the other half throws std::logic_error. Coders belong to one thread.
class Encoder {
 public:
  virtual ~Encoder();
  virtual bool isKeyed() const = 0;

  // Keyed half. An absent value writes no key. Scalars are plain numbers of the archive, not shared
  // objects.
  virtual void encodeObject(std::string_view key, const std::optional<Value>& value);
  virtual void encodeInteger(std::string_view key, std::int64_t value);
  virtual void encodeBool(std::string_view key, bool value);
  virtual void encodeDouble(std::string_view key, double value);
  virtual void encodeBytes(std::string_view key, std::span<const std::uint8_t> bytes);

  // Sequential half: values are read back in the order in which they were written.
  virtual void encodeObject(const std::optional<Value>& value);
  virtual void encodeUInt32(std::uint32_t value);
  virtual void encodeBytes(std::span<const std::uint8_t> bytes);
};

// Bytes that are not what they should be: not an archive, a class that is not allowed, a field of
// another type.
class DecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Class names that a decoder may make at one place; subclasses of a named class are admitted.
using AllowedClasses = std::set<std::string, std::less<>>;

class Decoder {
 public:
  virtual ~Decoder();
  virtual bool isKeyed() const = 0;

  // Keyed half. An absent key answers nothing, 0, false or 0.0. A field of another type throws
  // DecodeError, as does an object of a class that is neither allowed nor derived from an allowed
  // one ("NSString" and the other value classes are named as Value::className names them).
  virtual bool containsKey(std::string_view key) const;
  virtual std::optional<Value> decodeObject(std::string_view key, const AllowedClasses& allowed);
  virtual std::int64_t decodeInteger(std::string_view key);
  virtual bool decodeBool(std::string_view key);
  virtual double decodeDouble(std::string_view key);
  virtual std::optional<Data> decodeBytes(std::string_view key);
  std::optional<std::string> decodeString(std::string_view key);
  // Any nesting of strings, numbers, booleans, data, dates, arrays and dictionaries.
  std::optional<Value> decodePropertyList(std::string_view key);

  // Sequential half.
  virtual std::optional<Value> decodeObject(const AllowedClasses& allowed);
  virtual std::uint32_t decodeUInt32();
  virtual Data decodeBytes();
};

// The classes of a property list: what decodePropertyList admits.
const AllowedClasses& propertyListClasses();

}  // namespace hoist
