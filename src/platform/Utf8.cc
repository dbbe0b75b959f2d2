// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Utf8.h"

#include <glib.h>

namespace hoist {
namespace {

constexpr std::size_t kLongestCharacter = 4;

bool continues(char byte) {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

}  // namespace

char32_t takeCharacter(std::string_view& text) {
  auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) {
    text.remove_prefix(1);
    return first;
  }
  gunichar character = g_utf8_get_char_validated(text.data(), static_cast<gssize>(text.size()));
  // The two error values of the call lie above every character.
  bool valid = character <= 0x10FFFF;
  text.remove_prefix(valid ? g_utf8_skip[first] : 1);
  return valid ? character : kReplacementCharacter;
}

std::string validUTF8(std::string_view bytes) {
  gchar* valid =
      g_utf8_make_valid(bytes.data() ? bytes.data() : "", static_cast<gssize>(bytes.size()));
  std::string text = valid;
  g_free(valid);
  return text;
}

std::string_view cutUTF8(std::string_view bytes, std::size_t maximum) {
  if (bytes.size() <= maximum) return bytes;
  std::size_t end = maximum;
  while (end > 0 && maximum - end < kLongestCharacter && continues(bytes[end])) --end;
  // A run of continuation bytes longer than any character belongs to none: it is cut where asked.
  return bytes.substr(0, continues(bytes[end]) ? maximum : end);
}

}  // namespace hoist
