// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/TextEncoding.h"

#include <gtest/gtest.h>

namespace hoist {
namespace {

using namespace std::string_literals;

struct Sample {
  TextEncoding encoding;
  std::string bytes;
  std::string text;
};

TEST(TextEncoding, DecodesWhatItKnows) {
  const Sample samples[] = {
      {TextEncoding::ASCII, "plain", "plain"},
      {TextEncoding::JapaneseEUC, "\xC6\xFC", "日"},
      {TextEncoding::UTF8, "gr\xC3\xBC\xC3\x9F", "grüß"},
      {TextEncoding::ISOLatin1, "gr\xFC\xDF", "grüß"},
      {TextEncoding::ShiftJIS, "\x93\xFA", "日"},
      {TextEncoding::ISOLatin2, "\xB1", "ą"},
      {TextEncoding::UTF16, "\xFE\xFF\0a\0\xFC"s, "aü"},
      {TextEncoding::UTF16,
       "\xFF\xFE"
       "a\0\xFC\0"s,
       "aü"},
      {TextEncoding::WindowsCP1250, "\xB9", "ą"},
      {TextEncoding::WindowsCP1251, "\xC6", "Ж"},
      {TextEncoding::WindowsCP1252, "\x80", "€"},
      {TextEncoding::WindowsCP1253, "\xE1", "α"},
      {TextEncoding::WindowsCP1254, "\xFD", "ı"},
      {TextEncoding::ISO2022JP, "\x1B$BF|\x1B(B", "日"},
      {TextEncoding::MacOSRoman, "\x8A", "ä"},
      {TextEncoding::UTF16BigEndian, "\0a"s, "a"},
      {TextEncoding::UTF16LittleEndian, "\x3D\xD8\x00\xDE"s, "😀"},
      {TextEncoding::UTF32, "\xFF\xFE\0\0a\0\0\0"s, "a"},
      {TextEncoding::UTF32BigEndian, "\0\0\0a"s, "a"},
      {TextEncoding::UTF32LittleEndian, "a\0\0\0"s, "a"},
  };
  for (const Sample& sample : samples) {
    EXPECT_EQ(decodeText(sample.bytes, sample.encoding), sample.text)
        << static_cast<std::uint32_t>(sample.encoding);
    EXPECT_EQ(decodeText("", sample.encoding), "");
  }
}

TEST(TextEncoding, KeepsCharactersThatEndTextsInC) {
  EXPECT_EQ(decodeText("a\0b\0"s, TextEncoding::UTF8), "a\0b\0"s);
  EXPECT_EQ(decodeText("a\0b\0"s, TextEncoding::ISOLatin1), "a\0b\0"s);
  EXPECT_EQ(decodeText("a\0\xFF"s, TextEncoding::UTF8), std::nullopt);
}

TEST(TextEncoding, RefusesWhatDoesNotDecode) {
  EXPECT_EQ(decodeText("a\x80", TextEncoding::ASCII), std::nullopt);
  EXPECT_EQ(decodeText("a\xC3", TextEncoding::UTF8), std::nullopt);
  EXPECT_EQ(decodeText("\xED\xA0\x80", TextEncoding::UTF8), std::nullopt);  // a surrogate
  EXPECT_EQ(decodeText("\x93", TextEncoding::ShiftJIS), std::nullopt);
  EXPECT_EQ(decodeText("abc", TextEncoding::UTF16LittleEndian), std::nullopt);
  EXPECT_EQ(decodeText("\x3D\xD8", TextEncoding::UTF16LittleEndian), std::nullopt);
  EXPECT_EQ(decodeText("text", TextEncoding{2}), std::nullopt);
  EXPECT_EQ(decodeText("text", TextEncoding{0xFFFFFFFF}), std::nullopt);
}

}  // namespace
}  // namespace hoist
