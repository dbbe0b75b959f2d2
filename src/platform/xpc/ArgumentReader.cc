// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/ArgumentReader.h"

#include "platform/dbus/MessageReader.h"
#include "platform/xpc/Interface.h"
#include "platform/xpc/Values.h"

namespace hoist::xpc {

void ArgumentReader::finish() {
  message_.finish();
  finished_ = true;
}

bool ArgumentReader::readBool() {
  return message_.readBoolean();
}
std::int32_t ArgumentReader::readInt32() {
  return message_.readInt32();
}
std::uint32_t ArgumentReader::readUInt32() {
  return message_.readUInt32();
}
std::uint16_t ArgumentReader::readUInt16() {
  return message_.readUInt16();
}
std::int64_t ArgumentReader::readInt64() {
  return message_.readInt64();
}
std::uint64_t ArgumentReader::readUInt64() {
  return message_.readUInt64();
}
double ArgumentReader::readDouble() {
  return message_.readDouble();
}
std::string ArgumentReader::readString() {
  return std::string(message_.readString());
}
Data ArgumentReader::readData() {
  return Data(message_.readBytes());
}

std::vector<std::string> ArgumentReader::readStrings() {
  std::vector<std::string> values;
  message_.enterArray();
  while (message_.hasMore()) values.emplace_back(message_.readString());
  message_.leave();
  return values;
}

std::vector<std::int32_t> ArgumentReader::readInt32s() {
  std::vector<std::int32_t> values;
  message_.enterArray();
  while (message_.hasMore()) values.push_back(message_.readInt32());
  message_.leave();
  return values;
}

Dictionary ArgumentReader::readDictionary() {
  return xpc::readDictionary(message_, allowedClasses());
}
Ref<Object> ArgumentReader::readObject() {
  return xpc::readObject(message_, allowedClasses());
}
FileDescriptor ArgumentReader::readDescriptor() {
  return message_.readFileDescriptor();
}

bool ArgumentReader::enterNilable() {
  message_.enterArray();
  return message_.hasMore();
}

void ArgumentReader::leaveNilable() {
  if (message_.hasMore()) {
    throw dbus::TypeError("an argument that may be nil holds more than one value");
  }
  message_.leave();
}

const AllowedClasses& ArgumentReader::allowedClasses() const {
  return interface_.classes(method_, static_cast<unsigned>(index_), ofReply_);
}

}  // namespace hoist::xpc
