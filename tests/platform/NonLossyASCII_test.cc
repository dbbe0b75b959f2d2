// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/NonLossyASCII.h"

#include <gtest/gtest.h>

namespace hoist {
namespace {

TEST(NonLossyASCII, LeavesASCIIAlone) {
  EXPECT_EQ(nonLossyASCII("a line\twith\ncontrols \x7f"), "a line\twith\ncontrols \x7f");
  EXPECT_EQ(nonLossyASCII(""), "");
}

TEST(NonLossyASCII, DoublesBackslashes) {
  EXPECT_EQ(nonLossyASCII("a\\b\\"), "a\\\\b\\\\");
}

TEST(NonLossyASCII, WritesLatin1InOctal) {
  EXPECT_EQ(nonLossyASCII("\u0080\u00e9\u00ff"), "\\200\\351\\377");
}

TEST(NonLossyASCII, WritesUTF16UnitsInHexadecimal) {
  EXPECT_EQ(nonLossyASCII("\u0100\u20ac\uffff"), "\\u0100\\u20ac\\uffff");
  EXPECT_EQ(nonLossyASCII("\U00010000\U0001F600\U0010FFFF"),
            "\\ud800\\udc00\\ud83d\\ude00\\udbff\\udfff");
}

TEST(NonLossyASCII, ShowsBytesThatAreNoCharacters) {
  EXPECT_EQ(nonLossyASCII("a\xff!"), "a\\ufffd!");
}

}  // namespace
}  // namespace hoist
