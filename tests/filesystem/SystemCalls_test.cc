// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What reading folders costs, counted where it costs: by the kernel.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <optional>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXRegularFile.h"
#include "support/OneProcessor.h"
#include "support/TemporaryFolder.h"
#include "support/TracedCalls.h"

namespace hoist {
namespace {

using testing::IsEmpty;

constexpr int kFiles = 1500;
constexpr int kFolders = 20;

class ReadingAFolder : public testing::Test {
 protected:
  void SetUp() override {
#ifdef HOIST_SANITIZED
    GTEST_SKIP() << "sanitizers make calls of their own";
#endif
    if (!systemCallsOf([] { return [] {}; })) GTEST_SKIP() << "no process may be traced here";
    for (int i = 0; i < kFiles; ++i) folder_.write("file" + std::to_string(i), "");
    for (int i = 0; i < kFolders; ++i) folder_.write("folder" + std::to_string(i) + "/x", "");
    ASSERT_EQ(::symlink("file0", (folder_ / "link").c_str()), 0);
  }
  Ref<PXDirectory> directory() {
    return PXDirectory::directoryWithPath(folder_.path());
  }

  // One thread is traced, in a child process that has no other: it shall do everything.
  OneProcessor one_;
  TemporaryFolder folder_;
};

// Everything about a child that does not depend on who asks.
std::uint64_t askEverything(PXFileInfo& child) {
  auto sum = child.script() + child.ownerID() + child.groupID() + child.access() +
             child.fileFlags() + child.localIdentifier() + child.deviceID() + child.linkCount();
  sum +=
      static_cast<std::uint64_t>(child.createdTimeSpec().tv_sec + child.modifiedTimeSpec().tv_sec +
                                 child.attributeChangedTimeSpec().tv_sec);
  if (auto file = child.asRegularFile()) sum += file->logicalSize() + file->physicalSize();
  if (auto folder = child.asDirectory()) sum += folder->isMountPoint();
  return sum + child.isHardLink() + child.isPersistentObject();
}

TEST_F(ReadingAFolder, TakesOneCallForAnItemAndFewBesides) {
  auto calls =
      systemCallsOf([&] { return [directory = directory()] { directory->lazyDirectoryRead(); }; });
  ASSERT_TRUE(calls);
  EXPECT_LE(countOf(*calls, SYS_openat), 1u);
  EXPECT_LE(countOf(*calls, SYS_getdents64), 10u);
  EXPECT_GE(countOf(*calls, SYS_statx), kFiles + kFolders + 1u);
  EXPECT_LE(countOf(*calls, SYS_statx), kFiles + kFolders + 2u);
  // Memory for the children, and the end of the descriptor.
  EXPECT_LE(calls->size(), kFiles + kFolders + 200u);
}

TEST_F(ReadingAFolder, BringsTheAttributesAlong) {
  auto calls = systemCallsOf([&] {
    auto directory = this->directory();
    directory->lazyDirectoryRead();
    return [directory] {
      for (auto child = directory->firstObject().get(); child; child = child->nextObj().get())
        askEverything(*child);
    };
  });
  ASSERT_TRUE(calls);
  EXPECT_THAT(*calls, IsEmpty());
}

TEST_F(ReadingAFolder, LeavesOneQuestionOpenUntilItIsAsked) {
  auto calls = systemCallsOf([&] {
    auto directory = this->directory();
    auto child = directory->objectMatchingName("file7");
    return [directory, child] {
      child->effectiveAccess();
      child->effectiveAccess();
    };
  });
  ASSERT_TRUE(calls);
  // Reading, writing, executing: the kernel answers one at a time.
  EXPECT_EQ(calls->size(), 3u);
}

TEST_F(ReadingAFolder, HappensOnceUntilItIsFlushed) {
  auto calls = systemCallsOf([&] {
    auto directory = this->directory();
    directory->lazyDirectoryRead();
    return [directory] {
      directory->lazyDirectoryRead();
      directory->firstObject();
      directory->objectMatchingName("no such child");
      directory->count();
    };
  });
  ASSERT_TRUE(calls);
  EXPECT_THAT(*calls, IsEmpty());
}

}  // namespace
}  // namespace hoist
