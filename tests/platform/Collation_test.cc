// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Collation.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
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

std::string glibKey(const std::string& name) {
  char* folded = g_utf8_casefold(name.c_str(), -1);
  char* made = g_utf8_collate_key_for_filename(folded, -1);
  std::string key = made;
  g_free(made);
  g_free(folded);
  return key;
}

// The keys that are not made by GLib are sorted among those that are.
TEST(FinderLikeKey, IsGLibsKeyToTheByte) {
  constexpr std::string_view kLetters = "aB.0019 _-z\x01\n\x7f";
  std::minstd_rand random(1);
  for (int round = 0; round < 20'000; ++round) {
    std::string name(random() % 12, 'x');
    for (char& c : name) c = kLetters[random() % kLetters.size()];
    EXPECT_EQ(finderLikeKey(name), glibKey(name)) << testing::PrintToString(name);
  }
  for (std::size_t zeros : {255, 256, 257, 512}) {
    auto name = std::string(zeros, '0') + "7a007";
    EXPECT_EQ(finderLikeKey(name), glibKey(name)) << zeros << " zeros";
  }
}

}  // namespace
}  // namespace hoist
