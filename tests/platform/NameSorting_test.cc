// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/NameSorting.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <numeric>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Collation.h"

namespace hoist {
namespace {

using Names = std::vector<std::string>;
using Order = std::vector<std::uint32_t>;

Order orderOf(const Names& names) {
  NameSorting sorting;
  for (auto& name : names) sorting.add(name.c_str());
  return sorting.order();
}

// What a sort that compares the names themselves makes of them.
Order orderByComparing(const Names& names) {
  Order order(names.size());
  std::iota(order.begin(), order.end(), 0);
  std::ranges::stable_sort(
      order, [&](auto a, auto b) { return finderLikeCompare(names[a], names[b]) < 0; });
  return order;
}

// Few pieces, so that names are equal, differ only in case or zeros, or agree in long beginnings.
Names randomNames(std::minstd_rand& random, std::size_t count) {
  static const Names kPieces = {
      "a",        "A",         "Z",    "_",    " ", ".", "..",   "0",
      "00",       "007",       "7",    "10",   "9", "-", "\x01", "\x7f",
      "document", "DOCUMENT ", "\xff", "\xc3", "é", "É", "日本", "a long piece of a name"};
  Names names(count);
  for (auto& name : names) {
    for (auto pieces = random() % 7; pieces > 0; --pieces)
      name += kPieces[random() % kPieces.size()];
  }
  return names;
}

// In the locale of the test program and in another one.
class NameSortingIn : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!std::setlocale(LC_ALL, GetParam())) GTEST_SKIP() << "no locale " << GetParam();
  }
  void TearDown() override { std::setlocale(LC_ALL, before_.c_str()); }

 private:
  const std::string before_ = std::setlocale(LC_ALL, nullptr);
};

TEST_P(NameSortingIn, IsTheSortThatComparesNames) {
  std::minstd_rand random(1);
  for (std::size_t count : {0, 1, 2, 3, 5, 10, 100, 3000}) {
    for (int round = 0; round < 10; ++round) {
      auto names = randomNames(random, count);
      ASSERT_EQ(orderOf(names), orderByComparing(names));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Locales, NameSortingIn, testing::Values("C", "C.UTF-8"));

TEST(NameSorting, OrdersNamesThatAgreeInManyPieces) {
  Names names;
  for (int i = 0; i < 300; ++i) {
    names.push_back(std::string(static_cast<std::size_t>(i) * 37 % 251, 'x') + (i % 2 ? "" : "Y"));
    names.push_back(std::string(static_cast<std::size_t>(i) * 7 % 251, '0'));
  }
  EXPECT_EQ(orderOf(names), orderByComparing(names));
}

TEST(NameSorting, KeepsTheOrderOfEqualNames) {
  EXPECT_EQ(orderOf({"b", "a", "b", "a", "A", "b"}), (Order{4, 1, 3, 0, 2, 5}));
}

}  // namespace
}  // namespace hoist
