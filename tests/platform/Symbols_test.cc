// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Symbols.h"

#include <gmock/gmock.h>
#include <gnu/libc-version.h>
#include <gtest/gtest.h>

namespace hoist {
namespace {

TEST(Symbols, NameSymbolAndImageWithTheirAddresses) {
  auto address = reinterpret_cast<std::uintptr_t>(&::gnu_get_libc_version);
  EXPECT_THAT(describeSymbol(address + 1),
              testing::MatchesRegex(" *0x[0-9a-f]+ gnu_get_libc_version "
                                    "\\(.*libc\\.so\\.6@ *0x[0-9a-f]+\\)"));
}

TEST(Symbols, OfNoImageAreUnknown) {
  EXPECT_EQ(describeSymbol(0), "(unknown image)");
  EXPECT_EQ(describeSymbol(16), "(unknown image)");
}

TEST(Symbols, AddressesAre18Wide) {
  EXPECT_EQ(describeAddress(0), "               0x0");
  EXPECT_EQ(describeAddress(0xABC), "             0xabc");
  EXPECT_EQ(describeAddress(~std::uintptr_t{0}), "0xffffffffffffffff");
}

}  // namespace
}  // namespace hoist
