// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <map>
#include <string>

#include "values/ClassRegistry.h"
#include "values/Coder.h"

namespace hoist {

// The simplest coders that an object can be written to: what it wrote stands in a map or a list,
// nested objects as what they wrote in turn. For tests that look at an object's fields.

struct MemoryArchive {
  std::string className;
  std::map<std::string, Value, std::less<>> values;
  std::map<std::string, MemoryArchive, std::less<>> objects;
  static MemoryArchive of(const Object& object);
  Ref<Object> remade() const;
};

class MemoryEncoder final : public Encoder {
 public:
  explicit MemoryEncoder(MemoryArchive& archive) : archive_(archive) {}
  using Encoder::encodeObject;
  bool isKeyed() const override { return true; }
  void encodeObject(std::string_view key, const std::optional<Value>& value) override {
    if (!value) return;
    if (auto object = value->object()) {
      archive_.objects[std::string(key)] = MemoryArchive::of(*object);
    } else {
      archive_.values[std::string(key)] = *value;
    }
  }
  void encodeInteger(std::string_view key, std::int64_t value) override {
    archive_.values[std::string(key)] = value;
  }

 private:
  MemoryArchive& archive_;
};

class MemoryDecoder final : public Decoder {
 public:
  explicit MemoryDecoder(const MemoryArchive& archive) : archive_(archive) {}
  using Decoder::decodeObject;
  bool isKeyed() const override { return true; }
  std::optional<Value> decodeObject(std::string_view key, const AllowedClasses& allowed) override {
    auto object = archive_.objects.find(key);
    if (object != archive_.objects.end()) {
      if (!ClassRegistry::shared().isKindOf(object->second.className, allowed)) {
        throw DecodeError(object->second.className + " is not allowed");
      }
      return Value(object->second.remade());
    }
    auto value = archive_.values.find(key);
    return value == archive_.values.end() ? std::nullopt : std::optional(value->second);
  }
  std::int64_t decodeInteger(std::string_view key) override {
    auto value = archive_.values.find(key);
    return value == archive_.values.end() ? 0 : value->second.integer().value_or(0);
  }

 private:
  const MemoryArchive& archive_;
};

inline MemoryArchive MemoryArchive::of(const Object& object) {
  MemoryArchive archive;
  archive.className = object.className();
  MemoryEncoder encoder(archive);
  object.encodeWithCoder(encoder);
  return archive;
}

inline Ref<Object> MemoryArchive::remade() const {
  MemoryDecoder decoder(*this);
  return ClassRegistry::shared().find(className)->decode(decoder);
}

// Sequential: objects stay the objects that they are.
class SequentialMemory final : public Encoder, public Decoder {
 public:
  bool isKeyed() const override { return false; }
  using Decoder::decodeObject;
  using Encoder::encodeObject;
  void encodeObject(const std::optional<Value>& value) override { items.push_back(value); }
  void encodeUInt32(std::uint32_t value) override { items.push_back(Value(value)); }
  std::optional<Value> decodeObject(const AllowedClasses&) override { return take(); }
  std::uint32_t decodeUInt32() override {
    return static_cast<std::uint32_t>(take()->integer().value());
  }

  std::deque<std::optional<Value>> items;

 private:
  std::optional<Value> take() {
    auto item = items.front();
    items.pop_front();
    return item;
  }
};

}  // namespace hoist
