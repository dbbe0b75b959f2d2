// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace hoist {

// The text encodings that have a number of their own on the original platform, with that number
// (NSStringEncoding of its NSString.h).
enum class TextEncoding : std::uint32_t {
  ASCII = 1,
  JapaneseEUC = 3,
  UTF8 = 4,
  ISOLatin1 = 5,
  ShiftJIS = 8,
  ISOLatin2 = 9,
  // With a byte order mark; without one, the machine's own order.
  UTF16 = 10,
  WindowsCP1251 = 11,
  WindowsCP1252 = 12,
  WindowsCP1253 = 13,
  WindowsCP1254 = 14,
  WindowsCP1250 = 15,
  ISO2022JP = 21,
  MacOSRoman = 30,
  UTF16BigEndian = 0x90000100,
  UTF16LittleEndian = 0x94000100,
  UTF32 = 0x8C000100,
  UTF32BigEndian = 0x98000100,
  UTF32LittleEndian = 0x9C000100,
};

// The text that the bytes are in that encoding, as UTF-8. Nothing when any of them cannot be
// decoded, a half character at the end included, or when the encoding is none of the above.
std::optional<std::string> decodeText(std::string bytes, TextEncoding encoding);

}  // namespace hoist
