// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/ArgumentWriter.h"

#include "platform/dbus/MessageWriter.h"
#include "platform/xpc/Values.h"

namespace hoist::xpc {

void ArgumentWriter::writeBool(bool value) {
  message_.appendBoolean(value);
}
void ArgumentWriter::writeInt32(std::int32_t value) {
  message_.appendInt32(value);
}
void ArgumentWriter::writeUInt32(std::uint32_t value) {
  message_.appendUInt32(value);
}
void ArgumentWriter::writeUInt16(std::uint16_t value) {
  message_.appendUInt16(value);
}
void ArgumentWriter::writeInt64(std::int64_t value) {
  message_.appendInt64(value);
}
void ArgumentWriter::writeUInt64(std::uint64_t value) {
  message_.appendUInt64(value);
}
void ArgumentWriter::writeDouble(double value) {
  message_.appendDouble(value);
}
void ArgumentWriter::writeString(std::string_view value) {
  xpc::writeString(message_, value);
}
void ArgumentWriter::writeData(std::span<const std::uint8_t> value) {
  message_.appendBytes(value);
}

void ArgumentWriter::writeStrings(const std::vector<std::string>& values) {
  message_.openArray();
  for (const auto& value : values) writeString(value);
  message_.close();
}

void ArgumentWriter::writeInt32s(const std::vector<std::int32_t>& values) {
  message_.openArray();
  for (auto value : values) message_.appendInt32(value);
  message_.close();
}

void ArgumentWriter::writeDictionary(const Dictionary& value) {
  xpc::writeDictionary(message_, value);
}

void ArgumentWriter::writeObject(const Ref<const Object>& object) {
  if (!object) throw dbus::EncodingError("an object that may not be nil is missing");
  xpc::writeObject(message_, *object);
}

void ArgumentWriter::writeDescriptor(int descriptor) {
  message_.appendFileDescriptor(FileDescriptor::duplicate(descriptor));
}

void ArgumentWriter::openNilable() {
  message_.openArray();
}
void ArgumentWriter::closeNilable() {
  message_.close();
}

}  // namespace hoist::xpc
