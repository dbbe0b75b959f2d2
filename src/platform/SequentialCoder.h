// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <vector>

#include "platform/ArchiveFormat.h"
#include "values/Coder.h"

namespace hoist {

// The unkeyed forms of objects: values one after the other, read back in the order in which they
// were written. Each value has a tag, so that reading another type than was written is noticed; an
// object that occurs again is written as a reference. Numbers are big-endian. Belongs to one
// thread.
class SequentialEncoder final : public Encoder {
 public:
  bool isKeyed() const override { return false; }
  using Encoder::encodeBytes;
  using Encoder::encodeObject;
  // Raises hoist::Exception kInvalidArgumentException for an object that cannot be archived or
  // stands more than 64 objects deep.
  void encodeObject(const std::optional<Value>& value) override;
  void encodeUInt32(std::uint32_t value) override;
  void encodeBytes(std::span<const std::uint8_t> bytes) override;

  Data data() const { return Data(bytes_); }

 private:
  void tag(char tag) { bytes_.push_back(static_cast<std::uint8_t>(tag)); }
  void number(std::uint64_t value, int size);
  void text(std::string_view text);
  void value(const Value& value);
  void container(const Value& value);
  void object(const Value& value);

  std::vector<std::uint8_t> bytes_;
  unsigned depth_ = 0;
  std::map<const Object*, std::uint32_t> written_;
  std::vector<Ref<Object>> kept_;  // so that no other object gets an address that is in written_
};

// Reads what SequentialEncoder wrote; hostile bytes are refused with DecodeError, as the keyed
// unarchiver does. Belongs to one thread.
class SequentialDecoder final : public Decoder {
 public:
  explicit SequentialDecoder(Data data) : data_(std::move(data)), budget_(data_.size()) {}

  bool isKeyed() const override { return false; }
  using Decoder::decodeBytes;
  using Decoder::decodeObject;
  std::optional<Value> decodeObject(const AllowedClasses& allowed) override;
  std::uint32_t decodeUInt32() override;
  Data decodeBytes() override;

  bool atEnd() const { return at_ == data_.size(); }

 private:
  // An object that was begun; null while it is being made.
  struct Made {
    Ref<Object> object;
    platform::ExpansionBudget::Extent extent;
  };

  std::span<const std::uint8_t> take(std::size_t size);
  void expect(char tag);
  std::uint64_t number(int size);
  std::string text();
  // How many elements follow; each takes at least one byte.
  std::uint32_t count();
  std::optional<Value> value(char tag, const AllowedClasses& allowed);
  std::optional<Value> leaf(char tag);
  Value element(const AllowedClasses& allowed);
  Value array(const AllowedClasses& allowed);
  Value dictionary(const AllowedClasses& allowed);
  Value object(const AllowedClasses& allowed);
  Value reference(const AllowedClasses& allowed);

  Data data_;
  std::size_t at_ = 0;
  unsigned depth_ = 0;
  platform::ExpansionBudget budget_;
  std::vector<Made> made_;
};

}  // namespace hoist
