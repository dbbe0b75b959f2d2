// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/PathText.h"

#include <charconv>

namespace hoist::codesign {
namespace {

bool standsForItself(char c) {
  return c >= ' ' && c <= '~' && c != '%';
}

}  // namespace

std::string textOfPath(std::string_view path) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  text.reserve(path.size());
  for (const char c : path) {
    if (standsForItself(c)) {
      text += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      text += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return text;
}

std::optional<std::string> pathOfText(std::string_view text) {
  std::string path;
  path.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] != '%') {
      path += text[at++];
      continue;
    }
    const auto digits = text.substr(at + 1, 2);
    unsigned byte = 0;
    const auto end = digits.data() + digits.size();
    if (digits.size() != 2 || std::from_chars(digits.data(), end, byte, 16).ptr != end) return {};
    path += static_cast<char>(byte);
    at += 3;
  }
  if (textOfPath(path) != text) return {};
  return path;
}

}  // namespace hoist::codesign
