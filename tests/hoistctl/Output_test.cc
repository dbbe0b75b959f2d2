// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "hoistctl/Output.h"

#include <gtest/gtest.h>

namespace hoist::ctl {
namespace {

TEST(Shown, LeavesPrintableTextAlone) {
  EXPECT_EQ(shown("plain name.txt"), "plain name.txt");
  EXPECT_EQ(shown("Gr\xc3\xb6\xc3\x9f\x65"), "Gr\xc3\xb6\xc3\x9f\x65");
  EXPECT_EQ(shown(""), "");
}

TEST(Shown, LetsNothingReachTheTerminalThatControlsIt) {
  EXPECT_EQ(shown("a\nb\tc"), "a\\012b\\011c");
  EXPECT_EQ(shown("\x1b[31mred"), "\\033[31mred");
  // A control character of two bytes, and the one that turns the direction of writing.
  EXPECT_EQ(shown("\xc2\x9b"), "\\302\\233");
  EXPECT_EQ(shown("\xe2\x80\xae"), "\\342\\200\\256");
}

TEST(Shown, TellsForeignBytesAndBackslashesApart) {
  EXPECT_EQ(shown("\xff"), "\\377");
  EXPECT_EQ(shown("\\377"), "\\\\377");
  // The replacement character itself is a character like any other.
  EXPECT_EQ(shown("\xef\xbf\xbd"), "\xef\xbf\xbd");
}

TEST(SizeText, HasAtMostFourCharacters) {
  EXPECT_EQ(sizeText(0), "0");
  EXPECT_EQ(sizeText(1023), "1023");
  EXPECT_EQ(sizeText(1024), "1.0K");
  EXPECT_EQ(sizeText(1536), "1.5K");
  EXPECT_EQ(sizeText(10 * 1024), "10K");
  EXPECT_EQ(sizeText(std::uint64_t{3} << 40), "3.0T");
  EXPECT_EQ(sizeText(UINT64_MAX), "16E");
}

TEST(Table, AlignsItsColumnsByCharacters) {
  Table table({{"Name"}, {"Size", Align::Right}, {"Where"}});
  table.add({"\xc3\xa4", "1", "here"});
  table.add({"longer", "1000", ""});
  testing::internal::CaptureStdout();
  table.print();
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Name    Size  Where\n"
            "\xc3\xa4          1  here\n"
            "longer  1000  \n");
}

}  // namespace
}  // namespace hoist::ctl
