// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileDescriptor.h"
#include "values/Value.h"

namespace hoist::dbus {
class MessageWriter;
}

namespace hoist::xpc {

class Endpoint;

// Writes the arguments of a message, or the values of a reply, in order. Text that is no UTF-8 is
// mended: a foreign byte becomes U+FFFD. Throws dbus::EncodingError for what cannot cross (an
// object that is not codable, more than 64 levels, a message that grows beyond the bound) and
// SystemCallError when no descriptor can be had. One thread at a time.
class ArgumentWriter {
 public:
  explicit ArgumentWriter(dbus::MessageWriter& message) : message_(message) {}

  void writeBool(bool value);
  void writeInt32(std::int32_t value);
  void writeUInt32(std::uint32_t value);
  void writeUInt16(std::uint16_t value);
  void writeInt64(std::int64_t value);
  void writeUInt64(std::uint64_t value);
  void writeDouble(double value);
  void writeString(std::string_view value);
  void writeData(std::span<const std::uint8_t> value);
  void writeStrings(const std::vector<std::string>& values);
  void writeInt32s(const std::vector<std::int32_t>& values);
  void writeDictionary(const Dictionary& value);
  void writeObject(const Ref<const Object>& object);
  // A duplicate crosses; the descriptor stays the caller's.
  void writeDescriptor(int descriptor);

  // Around a value that may be nil, or around nothing when it is.
  void openNilable();
  void closeNilable();

 private:
  dbus::MessageWriter& message_;
};

}  // namespace hoist::xpc
