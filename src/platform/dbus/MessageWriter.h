// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/dbus/Message.h"
#include "platform/dbus/Signature.h"

namespace hoist::dbus {

// Writes a message: first the header, which says the body's whole signature, then the values in
// order. A value that the signature does not have at this place, that breaks a rule of D-Bus or
// does not fit throws EncodingError, and the writer may not be used again. What is written is in
// this machine's byte order and passes Message::parse. One thread at a time.
//
//   MessageWriter writer(methodReturn(call, "asu"));
//   writer.openArray();
//   for (const auto& name : names) writer.appendString(name);
//   writer.close();
//   writer.appendUInt32(count);
//   connection.send(writer.finish());
class MessageWriter {
 public:
  // Header's serial, fileDescriptorCount are not looked at: finish() and setSerial() put them in.
  // Required fields of the type must be there. maximumSize: bytes of the whole message, header
  // included.
  explicit MessageWriter(const Header& header, std::size_t maximumSize = kMaximumMessageSize);

  void appendByte(std::uint8_t value);
  void appendBoolean(bool value);
  void appendInt16(std::int16_t value);
  void appendUInt16(std::uint16_t value);
  void appendInt32(std::int32_t value);
  void appendUInt32(std::uint32_t value);
  void appendInt64(std::int64_t value);
  void appendUInt64(std::uint64_t value);
  void appendDouble(double value);
  void appendString(std::string_view value);
  void appendObjectPath(std::string_view value);
  void appendSignature(std::string_view value);
  // Takes the descriptor along. At most 253 a message, the kernel's bound.
  void appendFileDescriptor(FileDescriptor value);
  // "ay" at once; "as" at once.
  void appendBytes(std::span<const std::uint8_t> value);
  void appendStrings(std::span<const std::string> values);

  // Containers; close() ends the innermost one.
  void openArray();
  void openStruct();
  void openDictEntry();
  void openVariant(std::string_view signature);  // one complete type
  void close();

  // The type that the signature has here ("as"), empty at the end. peekType() is its first
  // character, or 0. Inside an array it is the element's type again and again.
  std::string_view peekSignature() const;
  char peekType() const;
  std::size_t size() const { return bytes_.size(); }  // so far

  // The whole message. Throws if values are missing or containers open. The writer is empty
  // afterwards.
  OutgoingMessage finish(std::uint32_t serial = 1);

 private:
  // An open container. Signatures stand in the written bytes (the header's field, a variant's own),
  // so levels refer to them by offset.
  struct Level {
    std::uint32_t types;         // array: the element's type; else what is left of the types
    std::uint32_t typesEnd;      // behind the last of them
    std::uint32_t lengthOffset;  // array: where its length stands
    std::uint32_t begin;         // array: its first element
    char kind;                   // 'a', '(', '{', 'v', or 0 for the body
  };

  Level& level() { return levels_[depth_]; }
  const Level& level() const { return levels_[depth_]; }
  void writeHeader(const Header& header);
  void writeFields(const Header& header);
  std::uint8_t* startField(std::uint8_t code, char type, std::size_t valueSize);
  void writeTextField(std::uint8_t code, char type, std::string_view text);
  void writeNumberField(std::uint8_t code, std::uint32_t number);
  void writeSignatureField(std::string_view signature);
  std::uint8_t* extend(std::size_t alignment, std::size_t size);
  void patch(std::size_t offset, std::uint32_t number);
  void writeText(std::uint8_t* place, std::string_view text);
  void writeSignature(std::uint8_t* place, std::string_view signature);
  std::string_view types() const;
  void expect(char type) const;
  void advance(std::size_t typeLength);
  template <class T>
  void appendFixed(char type, T value);
  void appendText(char type, std::string_view value);
  void enter(char kind, std::uint32_t types, std::uint32_t typesEnd);
  void openTuple(char kind);

  std::size_t maximumSize_;
  Bytes bytes_;
  FileDescriptors descriptors_;
  std::size_t bodyOffset_ = 0;
  std::size_t descriptorCountOffset_ = 0;  // 0: the message cannot hold descriptors
  unsigned depth_ = 0;
  std::array<Level, kMaximumDepth + 1> levels_;
};

// Headers of the usual messages. Texts are borrowed until the writer is made.
Header methodCall(std::string_view path, std::string_view interface, std::string_view member,
                  std::string_view signature = {}, std::uint8_t flags = 0);
Header methodReturn(const Message& call, std::string_view signature = {});
Header errorReply(std::uint32_t replySerial, std::string_view errorName);

// A whole error message. The text is mended (mendedText) and cut at 4096 bytes.
OutgoingMessage makeError(std::uint32_t replySerial, std::string_view errorName,
                          std::string_view text);

}  // namespace hoist::dbus
