// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/NonLossyASCII.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "platform/Utf8.h"

namespace hoist {
namespace {

bool standsForItself(unsigned char byte) {
  return byte < 0x80 && byte != '\\';
}

void appendEscaped(std::string& ascii, char32_t character) {
  auto end = std::back_inserter(ascii);
  if (character == '\\') {
    ascii += "\\\\";
  } else if (character <= 0xFF) {
    fmt::format_to(end, "\\{:03o}", static_cast<unsigned>(character));
  } else if (character <= 0xFFFF) {
    fmt::format_to(end, "\\u{:04x}", static_cast<unsigned>(character));
  } else {
    unsigned above = static_cast<unsigned>(character) - 0x10000;
    fmt::format_to(end, "\\u{:04x}\\u{:04x}", 0xD800 + (above >> 10), 0xDC00 + (above & 0x3FF));
  }
}

}  // namespace

std::string nonLossyASCII(std::string_view text) {
  std::string ascii;
  ascii.reserve(text.size());
  while (!text.empty()) {
    auto stop = std::find_if_not(text.begin(), text.end(), standsForItself);
    ascii.append(text.begin(), stop);
    text.remove_prefix(static_cast<std::size_t>(stop - text.begin()));
    if (!text.empty()) appendEscaped(ascii, takeCharacter(text));
  }
  return ascii;
}

}  // namespace hoist
