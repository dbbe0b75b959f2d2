// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <vector>

namespace hoist {
namespace {

std::vector<char32_t> charactersOf(std::string_view text) {
  std::vector<char32_t> characters;
  while (!text.empty()) characters.push_back(takeCharacter(text));
  return characters;
}

TEST(Utf8, CharactersAreTakenOneByOne) {
  EXPECT_EQ(charactersOf("a\u00e9\u20ac\U0001F600"),
            (std::vector<char32_t>{'a', 0xe9, 0x20ac, 0x1f600}));
  EXPECT_EQ(charactersOf(std::string_view("a\0b", 3)), (std::vector<char32_t>{'a', 0, 'b'}));
}

TEST(Utf8, ByteThatBelongsToNoCharacterIsTakenAlone) {
  constexpr char32_t bad = kReplacementCharacter;
  EXPECT_EQ(charactersOf("\xff\x61"), (std::vector<char32_t>{bad, 'a'}));
  EXPECT_EQ(charactersOf("\x80"), (std::vector<char32_t>{bad}));
  // A character that is cut off, an overlong form, a surrogate, one beyond Unicode.
  EXPECT_EQ(charactersOf("\xe2\x82"), (std::vector<char32_t>{bad, bad}));
  EXPECT_EQ(charactersOf("\xc0\xaf"), (std::vector<char32_t>{bad, bad}));
  EXPECT_EQ(charactersOf("\xed\xa0\x80"), (std::vector<char32_t>{bad, bad, bad}));
  EXPECT_EQ(charactersOf("\xf4\x90\x80\x80"), (std::vector<char32_t>{bad, bad, bad, bad}));
}

TEST(Utf8, IsMadeValid) {
  EXPECT_EQ(validUTF8("caf\u00e9"), "caf\u00e9");
  EXPECT_EQ(validUTF8("a\xff\xfe/b"), "a\uFFFD\uFFFD/b");
  EXPECT_EQ(validUTF8(""), "");
  EXPECT_EQ(validUTF8(std::string_view()), "");
}

TEST(Utf8, IsCutBetweenTwoCharacters) {
  EXPECT_EQ(cutUTF8("abc", 5), "abc");
  EXPECT_EQ(cutUTF8("abc", 3), "abc");
  EXPECT_EQ(cutUTF8("abc", 2), "ab");
  EXPECT_EQ(cutUTF8("abc", 0), "");
  EXPECT_EQ(cutUTF8("a\u00e9", 2), "a");
  EXPECT_EQ(cutUTF8("a\u00e9x", 3), "a\u00e9");
  for (std::size_t length : {1u, 2u, 3u, 4u}) EXPECT_EQ(cutUTF8("a\U0001F600", length), "a");
  EXPECT_EQ(cutUTF8("\u00e9", 1), "");
}

TEST(Utf8, BytesThatAreNoCharactersAreCutWhereAsked) {
  std::string bytes(20, '\x80');
  EXPECT_EQ(cutUTF8(bytes, 10).size(), 10u);
}

}  // namespace
}  // namespace hoist
