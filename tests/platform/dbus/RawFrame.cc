// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "RawFrame.h"

#include <bit>

namespace hoist::dbus {

RawFrame& RawFrame::raw(std::string_view bytes) {
  bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
  return *this;
}

RawFrame& RawFrame::pad(std::size_t alignment, std::uint8_t filler) {
  while (bytes_.size() % alignment != 0) bytes_.push_back(filler);
  return *this;
}

RawFrame& RawFrame::number(std::uint64_t value, std::size_t size) {
  pad(size);
  for (std::size_t i = 0; i < size; ++i) {
    std::size_t shift = 8 * (order_ == kLittle ? i : size - 1 - i);
    bytes_.push_back(static_cast<std::uint8_t>(value >> shift));
  }
  return *this;
}

RawFrame& RawFrame::f64(double value) {
  return u64(std::bit_cast<std::uint64_t>(value));
}

RawFrame& RawFrame::string(std::string_view text) {
  return u32(static_cast<std::uint32_t>(text.size())).raw(text).u8(0);
}

RawFrame& RawFrame::signature(std::string_view text) {
  return u8(static_cast<std::uint8_t>(text.size())).raw(text).u8(0);
}

Bytes rawCall(RawFrame::Order order, std::string_view signature, const RawFrame& body,
              const RawFrame* extraFields) {
  RawFrame fields(order);
  fields.u8(1).signature("o").string("/");
  fields.pad(8).u8(2).signature("s").string("a.b");
  fields.pad(8).u8(3).signature("s").string("M");
  if (!signature.empty()) fields.pad(8).u8(8).signature("g").signature(signature);
  if (extraFields) {
    const Bytes& extra = extraFields->bytes();
    fields.pad(8).raw({reinterpret_cast<const char*>(extra.data()), extra.size()});
  }
  RawFrame frame(order);
  frame.u8(order == RawFrame::kLittle ? 'l' : 'B').u8(1).u8(0).u8(1);
  frame.u32(static_cast<std::uint32_t>(body.size())).u32(7);
  frame.u32(static_cast<std::uint32_t>(fields.size()));
  frame.raw({reinterpret_cast<const char*>(fields.bytes().data()), fields.size()}).pad(8);
  frame.raw({reinterpret_cast<const char*>(body.bytes().data()), body.size()});
  return frame.bytes();
}

std::string complaintAbout(Bytes frame, FileDescriptors descriptors) {
  try {
    Message::parse(std::move(frame), std::move(descriptors));
    return "";
  } catch (const ProtocolError& error) {
    return error.what();
  }
}

}  // namespace hoist::dbus
