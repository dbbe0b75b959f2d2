// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/dbus/Errors.h"

namespace hoist::dbus {

using Bytes = std::vector<std::uint8_t>;
using FileDescriptors = std::vector<FileDescriptor>;

// Source of the constants: the D-Bus specification, "Message Protocol".
inline constexpr std::size_t kMaximumMessageSize = std::size_t{128} << 20;
inline constexpr std::size_t kMaximumArraySize = std::size_t{64} << 20;
inline constexpr std::uint8_t kProtocolVersion = 1;

enum class MessageType : std::uint8_t {
  kMethodCall = 1,
  kMethodReturn = 2,
  kError = 3,
  kSignal = 4
};

// Bits of a message's flags; others are ignored.
inline constexpr std::uint8_t kNoReplyExpected = 1;
inline constexpr std::uint8_t kNoAutoStart = 2;
inline constexpr std::uint8_t kAllowInteractiveAuthorization = 4;

// What stands in a header. A text that is empty is absent (no field may be empty on the wire); the
// texts are borrowed.
struct Header {
  MessageType type =
      MessageType::kMethodCall;  // a type above kSignal is a well-formed message to be ignored
  std::uint8_t flags = 0;
  std::uint32_t serial = 0;
  std::uint32_t replySerial = 0;  // 0: absent
  std::string_view path;
  std::string_view interface;
  std::string_view member;
  std::string_view errorName;
  std::string_view destination;
  std::string_view sender;
  std::string_view signature;
  std::uint32_t fileDescriptorCount = 0;
};

// A received message: one whole frame, checked to the last byte against every rule of D-Bus, with
// its descriptors. Owns both; what header(), its texts and a MessageReader show lives as long as
// the message (a move keeps it valid). Not thread-safe, may be handed from thread to thread.
class Message {
 public:
  // Takes one frame in either byte order and the descriptors that came with it. Throws
  // ProtocolError, with every descriptor closed, if the frame breaks a rule: the number of
  // descriptors is not the announced one and a descriptor that the body does not refer to are among
  // them.
  static Message parse(Bytes frame, FileDescriptors descriptors = {});

  Message(Message&&) noexcept = default;
  Message& operator=(Message&&) noexcept = default;

  const Header& header() const { return header_; }
  MessageType type() const { return header_.type; }
  std::uint32_t serial() const { return header_.serial; }
  std::uint32_t replySerial() const { return header_.replySerial; }
  std::string_view path() const { return header_.path; }
  std::string_view interface() const { return header_.interface; }
  std::string_view member() const { return header_.member; }
  std::string_view errorName() const { return header_.errorName; }
  std::string_view destination() const { return header_.destination; }
  std::string_view sender() const { return header_.sender; }
  std::string_view signature() const { return header_.signature; }
  // A method call whose sender waits for an answer.
  bool replyExpected() const {
    return header_.type == MessageType::kMethodCall && !(header_.flags & kNoReplyExpected);
  }
  // The text of an error message (its first value when that is a string), else nothing. Not for
  // calls.
  std::string_view errorText() const;

  std::size_t size() const { return frame_.size(); }
  bool swapped() const { return swapped_; }  // in the other byte order than this machine's
  std::span<const std::uint8_t> frame() const { return frame_; }
  std::size_t bodyOffset() const { return bodyOffset_; }  // always a multiple of 8

  std::size_t fileDescriptorCount() const { return descriptors_.size(); }
  // The descriptor at the index, which may be taken once and is owned by the message until then.
  // Throws TypeError for one that is not there or no longer there.
  FileDescriptor takeFileDescriptor(std::uint32_t index);
  int borrowFileDescriptor(std::uint32_t index) const;

 private:
  friend class FrameReader;

  // The two halves of parse(): the header says how many descriptors belong to the message.
  explicit Message(Bytes frame);
  void complete(FileDescriptors descriptors);

  Bytes frame_;
  FileDescriptors descriptors_;
  Header header_;
  std::size_t bodyOffset_ = 0;
  bool swapped_ = false;
};

// A message ready to be sent: bytes in this machine's order and the descriptors that go with the
// first of them.
struct OutgoingMessage {
  Bytes bytes;
  FileDescriptors descriptors;

  std::uint32_t serial() const;
  // The serial is fixed up in place, so that a message can be encoded before its turn to be sent.
  // Not 0.
  void setSerial(std::uint32_t serial);
};

}  // namespace hoist::dbus
