// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/PrintableText.h"

#include <gtest/gtest.h>

namespace hoist::sample {
namespace {

TEST(PrintableText, KeepsWhatCanBePrinted) {
  EXPECT_EQ(printableText("a b/c (deleted) \"'<&>"), "a b/c (deleted) \"'<&>");
  EXPECT_EQ(printableText("Z\u00fcrich \u65e5\u672c \U0001f600"),
            "Z\u00fcrich \u65e5\u672c \U0001f600");
}

TEST(PrintableText, ReplacesWhatWouldSteerATerminalOrDisguiseALine) {
  EXPECT_EQ(printableText("a\x1b[2Jb\nc\rd\te\x7f"), "a?[2Jb?c?d?e?");
  EXPECT_EQ(printableText(std::string_view("\0x", 2)), "?x");
  EXPECT_EQ(printableText("\u0085\u200b\u202ex\u2066"), "????????x???");  // one for each byte
}

TEST(PrintableText, ReplacesBytesThatAreNoUTF8) {
  EXPECT_EQ(printableText("a\xff\xc0\x80z"), "a???z");
  EXPECT_EQ(printableText("\xed\xa0\x80"), "???");       // a surrogate
  EXPECT_EQ(printableText("\xf4\x90\x80\x80"), "????");  // above U+10FFFF
  EXPECT_EQ(printableText("\xe6\x97"), "??");            // cut off
}

TEST(PrintableText, CutsAtTheLimitBetweenCharacters) {
  EXPECT_EQ(printableText("abcdef", 4), "abcd...");
  EXPECT_EQ(printableText("ab\u65e5\u672c", 4), "ab...");
}

TEST(FunctionName, DemanglesAndDropsVersions) {
  EXPECT_EQ(functionName("_ZN7kitchen4stirEj"), "kitchen::stir(unsigned int)");
  EXPECT_EQ(functionName("read@@GLIBC_2.2.5"), "read");
  EXPECT_EQ(functionName("_Znonsense"), "_Znonsense");
  EXPECT_EQ(functionName("@odd"), "@odd");
  EXPECT_EQ(functionName("a\nb"), "a?b");
}

TEST(FunctionName, IsNotBlownUpByAForgedOne) {
  // Each substitution doubles the text: 2 to the 60th characters, were it written out.
  std::string name = "_Z1fSt4pairI";
  for (int i = 0; i < 60; ++i) name += "S_S_E";
  EXPECT_LT(functionName(name.c_str()).size(), 2000u);
  EXPECT_LT(functionName(("_Z" + std::string(100'000, 'P')).c_str()).size(), 2000u);
}

}  // namespace
}  // namespace hoist::sample
