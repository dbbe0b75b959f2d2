// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace hoist::dbus {

// A conversation or frame that breaks a rule of D-Bus itself. The connection that it came from
// ends; whatever descriptors had come with it are already closed.
class ProtocolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A frame that announces more bytes than the receiver takes. Thrown as soon as its first 16 bytes
// are there, which is enough to answer LimitsExceeded before the connection ends.
class MessageTooLarge : public ProtocolError {
 public:
  MessageTooLarge(std::uint32_t serial, bool replyExpected, std::size_t size, std::size_t limit)
      : ProtocolError("message of " + std::to_string(size) + " bytes, at most " +
                      std::to_string(limit) + " are accepted"),
        serial_(serial),
        replyExpected_(replyExpected),
        size_(size),
        limit_(limit) {}

  std::uint32_t serial() const { return serial_; }
  bool replyExpected() const { return replyExpected_; }  // a method call without the no-reply flag
  std::size_t size() const { return size_; }             // announced, header included
  std::size_t limit() const { return limit_; }

 private:
  std::uint32_t serial_;
  bool replyExpected_;
  std::size_t size_;
  std::size_t limit_;
};

// A well-formed message that does not hold what its reader asked for. Answered with InvalidArgs;
// the connection goes on.
class TypeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A value that cannot be written: text that is not UTF-8 or holds a NUL, a name that is none, an
// array that is too long, a value that the signature does not have at this place. The sender's
// fault; nothing has been sent.
class EncodingError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace hoist::dbus
