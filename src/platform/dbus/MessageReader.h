// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/dbus/Message.h"
#include "platform/dbus/Signature.h"

namespace hoist::dbus {

// Reads the values of a message's body in order. The message is already known to be well formed;
// what can still go wrong is that it does not hold what is asked for: each function throws
// TypeError then, and the reader may not be used again. Texts and bytes are views into the message.
// Borrows the message; one thread at a time.
//
//   reader.enterArray();
//   while (reader.hasMore()) names.emplace_back(reader.readString());
//   reader.leave();
class MessageReader {
 public:
  explicit MessageReader(Message& message);

  std::uint8_t readByte();
  bool readBoolean();
  std::int16_t readInt16();
  std::uint16_t readUInt16();
  std::int32_t readInt32();
  std::uint32_t readUInt32();
  std::int64_t readInt64();
  std::uint64_t readUInt64();
  double readDouble();
  std::string_view readString();
  std::string_view readObjectPath();
  std::string_view readSignature();
  // The descriptor that the value refers to, taken from the message: a second reference to the same
  // one throws.
  FileDescriptor readFileDescriptor();
  // "ay" at once.
  std::span<const std::uint8_t> readBytes();

  // Containers. leave() throws if values of the container were not read.
  void enterArray();
  void enterStruct();
  void enterDictEntry();
  std::string_view enterVariant();  // answers the signature of what is in it
  void leave();

  // Whether another value follows in the current container, or in the body.
  bool hasMore() const;
  // The complete type of the next value ("as"), empty if there is none. peekType() is its first
  // character, or 0.
  std::string_view peekSignature() const;
  char peekType() const;
  // Passes over the next value, whatever it is.
  void skip();
  // Throws unless everything was read.
  void finish() const;

 private:
  // An entered container: where its values and their types are. Left uninitialised until entered:
  // there are 65.
  struct Level {
    const char* types;     // array: the element's type; else what is left of the types
    const char* typesEnd;  // behind the last of them
    std::size_t end;       // array: end of its bytes
    char kind;             // 'a', '(', '{', 'v', or 0 for the body
  };

  Level& level() { return levels_[depth_]; }
  const Level& level() const { return levels_[depth_]; }
  void expect(char type) const;
  void advance(std::size_t typeLength);
  void align(std::size_t alignment);
  const std::uint8_t* take(std::size_t size);
  template <class T>
  T readFixed(char type);
  std::string_view readText(char type);
  void enter(char kind, std::string_view types, std::size_t end = 0);
  void enterTuple(char kind);
  void skipValue(std::string_view type);

  Message& message_;
  const std::uint8_t* bytes_;
  std::size_t position_;
  bool swapped_;
  unsigned depth_ = 0;
  std::array<Level, kMaximumDepth + 1> levels_;
};

}  // namespace hoist::dbus
