// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Folders of unique names when the names that chance picks are taken.

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/random.h>

#include <cstdint>
#include <deque>

#include "filesystem/PXDirectory.h"
#include "support/Raised.h"
#include "support/TemporaryFolder.h"

namespace {

// What arc4random answers next.
std::deque<std::uint32_t> numbersToCome;

}  // namespace

// Stands in front of the C library's.
extern "C" std::uint32_t arc4random() noexcept {
  std::uint32_t number = 0;
  if (numbersToCome.empty()) {
    EXPECT_EQ(::getrandom(&number, sizeof number, 0), static_cast<ssize_t>(sizeof number));
    return number;
  }
  number = numbersToCome.front();
  numbersToCome.pop_front();
  return number;
}

namespace hoist {
namespace {

class UniqueFolder : public testing::Test {
 protected:
  void TearDown() override { numbersToCome.clear(); }
  Ref<PXDirectory> directory() const { return PXDirectory::directoryWithPath(folder_.path()); }
  TemporaryFolder folder_;
};

TEST_F(UniqueFolder, HasTheNextNameThatIsFree) {
  folder_.write("p.0000abcd", "a file");
  folder_.write("p.0000abce/x", "in a folder");
  numbersToCome = {0xabcd, 0xabce, 0xabcf};
  auto made = directory()->createUniqueSubdirectoryWithPrefix("p", std::nullopt, 0700);
  EXPECT_EQ(made->name(), "p.0000abcf");
  EXPECT_EQ(made->count(), 0u);

  numbersToCome = {0xabcf};
  EXPECT_EQ(directory()->createUniqueSubdirectoryWithPrefix("p", "ext", 0700)->name(),
            "p.0000abcf.ext");
}

TEST_F(UniqueFolder, IsTriedOnceWhenItIsRefusedForAnotherReason) {
  numbersToCome = {1, 2};
  auto exception = raisedBy(
      [&] { directory()->createUniqueSubdirectoryWithPrefix("no/p", std::nullopt, 0700); });
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ENOENT));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "no/p.00000001");
  EXPECT_EQ(numbersToCome.size(), 1u);
}

}  // namespace
}  // namespace hoist
