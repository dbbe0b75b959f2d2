// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/CharacterSets.h"

#include <gtest/gtest.h>

namespace hoist {
namespace {

TEST(CharacterSets, NewlinesAreUnicodes) {
  for (char32_t c : {0x0A, 0x0B, 0x0C, 0x0D, 0x85, 0x2028, 0x2029}) EXPECT_TRUE(isNewline(c));
  for (char32_t c : {0x09, 0x0E, 0x20, 0x84, 0x2027, 0x202A}) EXPECT_FALSE(isNewline(c));
}

TEST(CharacterSets, ControlsAreControlAndFormatCharacters) {
  for (char32_t c : {0x00, 0x09, 0x1B, 0x7F, 0x9F, 0xAD, 0x200B, 0x202E, 0xFEFF}) {
    EXPECT_TRUE(isControl(c)) << static_cast<unsigned>(c);
  }
  for (char32_t c : {0x20, 0x41, 0xE9, 0x2028, 0xFFFD}) {
    EXPECT_FALSE(isControl(c)) << static_cast<unsigned>(c);
  }
}

TEST(CharacterSets, IllegalAreUnassignedNoncharactersAndSurrogates) {
  for (char32_t c : {0x0378, 0xD800, 0xDFFF, 0xFDD0, 0xFFFE, 0xFFFF, 0x10FFFF, 0xE0080}) {
    EXPECT_TRUE(isIllegal(c)) << static_cast<unsigned>(c);
  }
  for (char32_t c : {0x41, 0x0A, 0xE000, 0xFFFD, 0x1F600}) {
    EXPECT_FALSE(isIllegal(c)) << static_cast<unsigned>(c);
  }
}

TEST(CharacterSets, WhitespaceHasNoLineBreaks) {
  for (char32_t c : {0x09, 0x20, 0xA0, 0x2003, 0x3000}) EXPECT_TRUE(isWhitespace(c));
  for (char32_t c : {0x0A, 0x0D, 0x85, 0x2028, 0x41}) EXPECT_FALSE(isWhitespace(c));
}

}  // namespace
}  // namespace hoist
