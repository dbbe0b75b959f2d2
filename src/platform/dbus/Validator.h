// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

#include "platform/dbus/Message.h"

// What the parser of received frames is made of; of no interest to users of messages.
namespace hoist::dbus {

// The number that stands at the place, in this machine's byte order.
template <class T>
T loadNumber(const std::uint8_t* place, bool swapped) {
  using Bits = std::conditional_t<
      sizeof(T) == 1, std::uint8_t,
      std::conditional_t<sizeof(T) == 2, std::uint16_t,
                         std::conditional_t<sizeof(T) == 4, std::uint32_t, std::uint64_t>>>;
  Bits bits;
  std::memcpy(&bits, place, sizeof bits);
  if (swapped) {
    if constexpr (sizeof(T) == 2) bits = __builtin_bswap16(bits);
    if constexpr (sizeof(T) == 4) bits = __builtin_bswap32(bits);
    if constexpr (sizeof(T) == 8) bits = __builtin_bswap64(bits);
  }
  return std::bit_cast<T>(bits);
}

// Bytes from the position to the next multiple of the alignment (a power of two).
constexpr std::size_t paddingTo(std::size_t position, std::size_t alignment) {
  return -position & (alignment - 1);
}

// The first 16 bytes of every message.
inline constexpr std::size_t kFixedHeaderSize = 16;

struct FixedHeader {
  bool swapped;
  std::uint8_t type;
  std::uint8_t flags;
  std::uint32_t serial;
  std::size_t fieldsEnd;    // offset behind the array of fields
  std::size_t bodyOffset;   // the same, padded to 8
  std::size_t messageSize;  // header and body
};

// Reads them and checks what can be told from them alone. bytes: at least kFixedHeaderSize.
FixedHeader readFixedHeader(const std::uint8_t* bytes);

// A place in a frame that has not been checked yet. Every step is checked against the end and
// throws ProtocolError.
struct Cursor {
  const std::uint8_t* bytes;
  std::size_t position;
  std::size_t end;
  bool swapped;

  std::size_t left() const { return end - position; }
  const std::uint8_t* take(std::size_t size) {
    if (size > left()) throw ProtocolError("a value reaches beyond its end");
    position += size;
    return bytes + position - size;
  }
  void align(std::size_t alignment) {
    if (std::size_t padding = paddingTo(position, alignment)) takePadding(padding);
  }
  void takePadding(std::size_t size);
  std::uint32_t takeLength();                     // aligned
  std::string_view takeText(std::size_t length);  // with the NUL behind it, which must be there
  std::string_view takeString();                  // UTF-8
  std::string_view takeObjectPath();
  std::string_view takeSignature();
};

// Checks values by their types and notes which descriptors they refer to.
class BodyValidator {
 public:
  explicit BodyValidator(Cursor& cursor) : cursor_(cursor) {}

  // types: any number of complete types, known to be valid. depth: containers around them.
  void checkValues(std::string_view types, unsigned depth);
  // Whether exactly the descriptors 0 to count - 1 were referred to.
  bool refersToExactly(std::size_t count) const;

 private:
  void checkValue(std::string_view type, unsigned depth);
  void checkArray(std::string_view elementType, unsigned depth);
  void checkVariant(unsigned depth);
  void noteDescriptor(std::uint32_t index);

  Cursor& cursor_;
  std::uint64_t descriptors_[4] = {};  // one bit each; the kernel passes 253 at most
};

}  // namespace hoist::dbus
