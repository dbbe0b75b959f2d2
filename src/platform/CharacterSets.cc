// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/CharacterSets.h"

#include <glib.h>

namespace hoist {

bool isNewline(char32_t character) {
  return (character >= 0x0A && character <= 0x0D) || character == 0x85 || character == 0x2028 ||
         character == 0x2029;
}

bool isControl(char32_t character) {
  GUnicodeType type = g_unichar_type(character);
  return type == G_UNICODE_CONTROL || type == G_UNICODE_FORMAT;
}

bool isIllegal(char32_t character) {
  GUnicodeType type = g_unichar_type(character);
  // GLib counts noncharacters as unassigned.
  return type == G_UNICODE_UNASSIGNED || type == G_UNICODE_SURROGATE;
}

bool isWhitespace(char32_t character) {
  return character == '\t' || g_unichar_type(character) == G_UNICODE_SPACE_SEPARATOR;
}

}  // namespace hoist
