// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "codesign/PathText.h"

#include <gmock/gmock.h>

namespace hoist::codesign {
namespace {

TEST(PathText, WritesEveryByteSoThatItCanBeReadBack) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) all += static_cast<char>(byte);
  EXPECT_THAT(pathOfText(textOfPath(all)), testing::Optional(all));
}

TEST(PathText, LeavesPrintableNamesAlone) {
  EXPECT_EQ(textOfPath("Contents/My Tool-1.0_(a)"), "Contents/My Tool-1.0_(a)");
  EXPECT_EQ(textOfPath("100%\n\xC3\xBC\x7F"), "100%25%0A%C3%BC%7F");
}

TEST(PathText, AcceptsOneSpellingOfEachPath) {
  for (const char* text : {"%41", "%0a", "%", "%1", "%zz", "a%+1", "\xC3\xBC", "a\nb", "%-1"}) {
    EXPECT_EQ(pathOfText(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace hoist::codesign
