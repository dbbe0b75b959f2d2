// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/dbus/Message.h"

namespace hoist::dbus {

// Frames put together byte by byte, in either byte order, right or wrong: knows nothing of the code
// under test.
class RawFrame {
 public:
  enum Order { kLittle, kBig };

  explicit RawFrame(Order order) : order_(order) {}

  RawFrame& raw(std::string_view bytes);
  RawFrame& pad(std::size_t alignment, std::uint8_t filler = 0);
  // Numbers with their padding.
  RawFrame& u8(std::uint8_t value) { return number(value, 1); }
  RawFrame& u16(std::uint16_t value) { return number(value, 2); }
  RawFrame& u32(std::uint32_t value) { return number(value, 4); }
  RawFrame& u64(std::uint64_t value) { return number(value, 8); }
  RawFrame& f64(double value);
  // Length, bytes, NUL.
  RawFrame& string(std::string_view text);
  RawFrame& signature(std::string_view text);

  std::size_t size() const { return bytes_.size(); }
  const Bytes& bytes() const { return bytes_; }
  Order order() const { return order_; }

 private:
  RawFrame& number(std::uint64_t value, std::size_t size);

  Order order_;
  Bytes bytes_;
};

// A call of "/", a.b, M with the signature and this body (written in the same order, from a
// multiple of 8), and extra fields, if any (bytes from a multiple of 8).
Bytes rawCall(RawFrame::Order order, std::string_view signature, const RawFrame& body,
              const RawFrame* extraFields = nullptr);

// What a frame breaks: the text of the ProtocolError, or "" if it is fine.
std::string complaintAbout(Bytes frame, FileDescriptors descriptors = {});

}  // namespace hoist::dbus
