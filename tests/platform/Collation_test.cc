// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Collation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace hoist {
namespace {

TEST(FinderLikeCompare, OrdersNumbersByTheirValueAndIgnoresCase) {
  std::vector<std::string> names = {"file10", "File2", "file1", "alpha", "Beta"};
  std::sort(names.begin(), names.end(),
            [](auto& a, auto& b) { return finderLikeCompare(a, b) < 0; });
  EXPECT_EQ(names, (std::vector<std::string>{"alpha", "Beta", "file1", "File2", "file10"}));
}

TEST(FinderLikeCompare, BreaksTiesByBytesSoThatOnlyEqualNamesAreEqual) {
  EXPECT_TRUE(finderLikeCompare("File", "file") < 0);
  EXPECT_TRUE(finderLikeCompare("file", "File") > 0);
  EXPECT_TRUE(finderLikeCompare("file", "file") == 0);
}

TEST(FinderLikeCompare, TakesNamesThatAreNoUTF8) {
  EXPECT_TRUE(finderLikeCompare("\xff", "\xfe") != 0);
  EXPECT_TRUE(finderLikeCompare("a\xc3", "a\xc3") == 0);
  EXPECT_TRUE(finderLikeCompare("", "a") < 0);
}

TEST(FinderLikeKey, OrdersAsTheComparisonDoes) {
  EXPECT_LT(finderLikeKey("file2"), finderLikeKey("FILE10"));
  EXPECT_EQ(finderLikeKey("a"), finderLikeKey("A"));
}

}  // namespace
}  // namespace hoist
