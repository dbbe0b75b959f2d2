// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <map>
#include <string>

#include "values/Coder.h"

namespace hoist {

// The simplest coders: what one writes the other reads. The keyed one keeps the values by key, the
// sequential one in order.
struct PlainKeyedEncoder final : Encoder {
  using Encoder::encodeBytes;
  using Encoder::encodeObject;
  bool isKeyed() const override { return true; }
  void encodeObject(std::string_view key, const std::optional<Value>& value) override {
    if (value) fields[std::string(key)] = *value;
  }
  void encodeInteger(std::string_view key, std::int64_t value) override {
    fields[std::string(key)] = value;
  }
  void encodeBytes(std::string_view key, std::span<const std::uint8_t> bytes) override {
    fields[std::string(key)] = Data(bytes);
  }
  Dictionary fields;
};

struct PlainKeyedDecoder final : Decoder {
  using Decoder::decodeBytes;
  using Decoder::decodeObject;
  explicit PlainKeyedDecoder(Dictionary values) : fields(std::move(values)) {}
  bool isKeyed() const override { return true; }
  bool containsKey(std::string_view key) const override { return fields.contains(key); }
  std::optional<Value> decodeObject(std::string_view key, const AllowedClasses&) override {
    auto field = fields.find(key);
    return field == fields.end() ? std::nullopt : std::optional(field->second);
  }
  std::int64_t decodeInteger(std::string_view key) override {
    auto field = fields.find(key);
    return field == fields.end() ? 0 : field->second.integer().value();
  }
  std::optional<Data> decodeBytes(std::string_view key) override {
    auto field = fields.find(key);
    return field == fields.end() ? std::nullopt : std::optional(*field->second.data());
  }
  Dictionary fields;
};

struct PlainSequence final : Encoder {
  using Encoder::encodeBytes;
  using Encoder::encodeObject;
  bool isKeyed() const override { return false; }
  void encodeObject(const std::optional<Value>& value) override {
    values.push_back(value.value_or(Value()));
  }
  void encodeBytes(std::span<const std::uint8_t> bytes) override { values.push_back(Data(bytes)); }
  std::deque<Value> values;
};

struct PlainSequenceReader final : Decoder {
  using Decoder::decodeBytes;
  using Decoder::decodeObject;
  explicit PlainSequenceReader(std::deque<Value> written) : values(std::move(written)) {}
  bool isKeyed() const override { return false; }
  std::optional<Value> decodeObject(const AllowedClasses&) override { return take(); }
  Data decodeBytes() override { return *take().data(); }
  Value take() {
    if (values.empty()) throw DecodeError("the sequence is at its end");
    auto value = values.front();
    values.pop_front();
    return value;
  }
  std::deque<Value> values;
};

}  // namespace hoist
