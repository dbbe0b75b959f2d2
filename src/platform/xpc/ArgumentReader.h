// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"
#include "values/Coder.h"
#include "values/Value.h"

namespace hoist::dbus {
class MessageReader;
}

namespace hoist::xpc {

class Interface;
struct Method;

// Reads the arguments of a message, or the values of a reply, in order, and makes only objects of
// classes that the interface allows there. Throws dbus::TypeError or DecodeError for a message that
// does not hold what is asked for. One thread at a time.
class ArgumentReader {
 public:
  ArgumentReader(dbus::MessageReader& message, const Interface& interface, const Method& method,
                 bool ofReply)
      : message_(message), interface_(interface), method_(method), ofReply_(ofReply) {}

  // Begins the next argument. Every one has to be begun before it is read.
  ArgumentReader& next() {
    ++index_;
    return *this;
  }
  // Throws unless everything was read; from then on isFinished(), which tells a bad message from
  // whatever the receiver throws.
  void finish();
  bool isFinished() const { return finished_; }

  bool readBool();
  std::int32_t readInt32();
  std::uint32_t readUInt32();
  std::uint16_t readUInt16();
  std::int64_t readInt64();
  std::uint64_t readUInt64();
  double readDouble();
  std::string readString();
  Data readData();
  std::vector<std::string> readStrings();
  std::vector<std::int32_t> readInt32s();
  Dictionary readDictionary();
  Ref<Object> readObject();
  FileDescriptor readDescriptor();

  // Answers whether a value is there; leaveNilable() throws when there is more than one.
  bool enterNilable();
  void leaveNilable();

 private:
  const AllowedClasses& allowedClasses() const;

  dbus::MessageReader& message_;
  const Interface& interface_;
  const Method& method_;
  const bool ofReply_;
  int index_ = -1;
  bool finished_ = false;
};

}  // namespace hoist::xpc
