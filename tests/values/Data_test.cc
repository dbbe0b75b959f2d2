// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "values/Data.h"

#include <gtest/gtest.h>

namespace hoist {
namespace {

TEST(Data, IsEmptyUnlessItWasGivenBytes) {
  EXPECT_TRUE(Data().empty());
  EXPECT_EQ(Data().size(), 0u);
  EXPECT_EQ(Data().view(), "");
  EXPECT_TRUE(Data().bytes().empty());
  EXPECT_EQ(Data().description(), "<>");
  EXPECT_EQ(Data(), Data::fromString(""));
}

TEST(Data, KeepsEveryByte) {
  std::vector<std::uint8_t> bytes(256);
  for (int i = 0; i < 256; ++i) bytes[i] = static_cast<std::uint8_t>(i);
  Data data(bytes);
  ASSERT_EQ(data.size(), 256u);
  for (int i = 0; i < 256; ++i) EXPECT_EQ(data.data()[i], i);
  EXPECT_EQ(data, Data(std::span<const std::uint8_t>(bytes)));
}

TEST(Data, CopiesTheBytesOfASpanAndSharesThemWithItsCopies) {
  std::vector<std::uint8_t> bytes{1, 2, 3};
  Data data{std::span<const std::uint8_t>(bytes)};
  Data copy = data;
  bytes[0] = 9;
  EXPECT_EQ(data.data()[0], 1);
  EXPECT_EQ(copy.data(), data.data());
}

TEST(Data, IsEqualByItsBytes) {
  EXPECT_EQ(Data::fromString("ab"), Data::fromString("ab"));
  EXPECT_FALSE(Data::fromString("ab") == Data::fromString("ac"));
  EXPECT_FALSE(Data::fromString("ab") == Data::fromString("abc"));
  EXPECT_FALSE(Data::fromString("ab") == Data());
}

TEST(Data, DescribesItselfInHexadecimal) {
  EXPECT_EQ(Data::fromString(std::string("\0\x7F\xFF", 3)).description(), "<007fff>");
}

}  // namespace
}  // namespace hoist
