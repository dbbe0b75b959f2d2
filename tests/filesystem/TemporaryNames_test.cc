// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Names that are made of random numbers: here the numbers are given, so that a name can be taken.

#include <gtest/gtest.h>
#include <sys/random.h>
#include <unistd.h>

#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "platform/files/ExchangeCalls.h"
#include "support/Raised.h"
#include "support/TemporaryFolder.h"

namespace {

std::deque<std::uint32_t>& givenNumbers() {
  static auto& numbers = *new std::deque<std::uint32_t>;
  return numbers;
}

}  // namespace

// Takes the place of the C library's in this program.
extern "C" std::uint32_t arc4random() noexcept {
  std::uint32_t number = 0;
  if (givenNumbers().empty()) {
    (void)!::getrandom(&number, sizeof number, 0);
  } else {
    number = givenNumbers().front();
    givenNumbers().pop_front();
  }
  return number;
}

namespace hoist {
namespace {

class TemporaryNames : public testing::Test {
 protected:
  void TearDown() override { givenNumbers().clear(); }
};

TEST_F(TemporaryNames, OfTheTemporaryFolderPassOverWhatIsThere) {
  auto prefix = "hoist-" + std::to_string(::getpid());
  auto taken = PXPath::tempPath()->pathOfChild(prefix + "-0000001a.ext");
  std::ofstream(taken->path()) << "taken";
  givenNumbers() = {0x1a, 0x1a, 0xfeedbeef};
  auto path = PXPath::tempPathWithPrefix(prefix, "ext");
  EXPECT_EQ(path->name(), prefix + "-feedbeef.ext");
  taken->deleteFile();
}

// Leaves the first item under its temporary name.
class OnlyTheFirstRename : public files::ExchangeCalls {
 public:
  int swap(const char*, const char*) override { return -1; }
  int rename(const char* from, const char* to) override {
    return ++renames == 1 ? ExchangeCalls::rename(from, to) : -1;
  }
  int renames = 0;
};

TEST_F(TemporaryNames, OfAnExchangePassOverWhatIsThere) {
  TemporaryFolder folder;
  folder.write("a", "");
  folder.write("b", "b");
  folder.write("_xchng_0000001a_a", "taken");
  OnlyTheFirstRename calls;
  files::ExchangeCallsOverride override(calls);
  givenNumbers() = {0x1a, 0x2b};
  EXPECT_ANY_THROW(
      PXPath::initWithCPath(folder / "a")->swapWith(*PXPath::initWithCPath(folder / "b")));
  EXPECT_EQ(std::filesystem::file_size(folder / "_xchng_0000001a_a"), 5u);
  EXPECT_EQ(std::filesystem::file_size(folder / "_xchng_0000002b_a"), 1u);
}

class UniqueFolder : public TemporaryNames {
 protected:
  Ref<PXDirectory> directory() const { return PXDirectory::directoryWithPath(folder_.path()); }
  TemporaryFolder folder_;
};

TEST_F(UniqueFolder, HasTheNextNameThatIsFree) {
  folder_.write("p.0000abcd", "a file");
  folder_.write("p.0000abce/x", "in a folder");
  givenNumbers() = {0xabcd, 0xabce, 0xabcf};
  auto made = directory()->createUniqueSubdirectoryWithPrefix("p", std::nullopt, 0700);
  EXPECT_EQ(made->name(), "p.0000abcf");
  EXPECT_EQ(made->count(), 0u);

  givenNumbers() = {0xabcf};
  EXPECT_EQ(directory()->createUniqueSubdirectoryWithPrefix("p", "ext", 0700)->name(),
            "p.0000abcf.ext");
}

TEST_F(UniqueFolder, IsTriedOnceWhenItIsRefusedForAnotherReason) {
  givenNumbers() = {1, 2};
  auto exception = raisedBy(
      [&] { directory()->createUniqueSubdirectoryWithPrefix("no/p", std::nullopt, 0700); });
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ENOENT));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "no/p.00000001");
  EXPECT_EQ(givenNumbers().size(), 1u);
}

}  // namespace
}  // namespace hoist
