// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Large folders, which two threads read. What a read is like otherwise stands in PXDirectory_test.

#include <dirent.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXRegularFile.h"
#include "platform/UserIdentity.h"
#include "support/Moment.h"
#include "support/OneProcessor.h"
#include "support/Raised.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using namespace attrlist;
using Names = std::vector<std::string>;

constexpr int kFiles = 4000;
// A buffer of 16 KiB holds 409 names like these; a batch has 64 of them.
constexpr int kBatchesOfABuffer = 7;

// Lets something happen before each batch, and knows whose it is.
class WatchedCalls : public AttributeCalls {
 public:
  int getattrlistbulk(int folder, const AttributeSet& request, BulkBuffer& buffer,
                      std::uint32_t options) override {
    bool isReader = std::this_thread::get_id() == reader_;
    auto batch = isReader ? ++readersBatches : ++helpersBatches;
    int error = before ? before(isReader, batch) : 0;
    if (error == 0) return AttributeCalls::getattrlistbulk(folder, request, buffer, options);
    errno = error;
    return -1;
  }

  // Answers an error for the call to fail with, or 0. The batches of either thread count from 1.
  std::function<int(bool isReader, int batch)> before;
  std::atomic<int> readersBatches = 0;
  std::atomic<int> helpersBatches = 0;

 private:
  const std::thread::id reader_ = std::this_thread::get_id();
};

Names namesOf(const PXDirectory& directory) {
  Names names;
  for (auto child = directory.firstObject().get(); child; child = child->nextObj().get()) {
    names.emplace_back(child->cName());
  }
  return names;
}

class LargeFolder : public testing::Test {
 protected:
  void SetUp() override {
    if (processorsOfThisThread() < 2) GTEST_SKIP() << "needs two processors";
    for (int i = 0; i < kFiles; ++i) folder_.write(name(i), std::string(i % 7, 'x'));
  }
  static std::string name(int file) { return "file of many " + std::to_string(file); }
  Ref<PXDirectory> directory() { return PXDirectory::directoryWithPath(folder_.path()); }
  Names namesInOrder() {
    Names names;
    std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(folder_.path().c_str()), ::closedir);
    while (auto entry = ::readdir(stream.get())) {
      if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
    }
    return names;
  }
  // From now on the reader waits for the helper's first batch before it reads more than the names
  // that it already has. That batch meets with the given error.
  void haveItHelped(int error = 0) {
    calls_.before = [this, error](bool isReader, int batch) {
      if (isReader && batch == kBatchesOfABuffer + 1) helps_.await();
      if (isReader || batch != 1) return 0;
      helps_.comes();
      return error;
    };
  }

  TemporaryFolder folder_;
  Moment helps_;
  WatchedCalls calls_;
  AttributeCallsOverride override_{calls_};
};

TEST_F(LargeFolder, IsReadByTwoThreadsInItsOwnOrder) {
  haveItHelped();
  auto directory = this->directory();
  EXPECT_EQ(namesOf(*directory), namesInOrder());
  EXPECT_EQ(directory->count(), static_cast<std::uint64_t>(kFiles));
  EXPECT_GT(calls_.helpersBatches, 0);
  for (auto& child : *directory) {
    auto number = std::stoul(std::string(child->cName()).substr(name(0).size() - 1));
    ASSERT_EQ(child->asRegularFile()->logicalSize(), number % 7) << child->cName();
    ASSERT_EQ(child->livingParent(), directory);
  }
}

TEST_F(LargeFolder, IsReadAlikeByOneThread) {
  OneProcessor one;
  auto directory = this->directory();
  EXPECT_EQ(namesOf(*directory), namesInOrder());
  EXPECT_EQ(calls_.helpersBatches, 0);
}

TEST_F(LargeFolder, IsNotReadByAThreadWithOtherRights) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to take another user's rights";
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
  auto directory = this->directory();
  {
    platform::UsersFileRights rights({54321, 54322, {}});
    directory->lazyDirectoryRead();
  }
  EXPECT_EQ(namesOf(*directory), namesInOrder());
  EXPECT_EQ(calls_.helpersBatches, 0);
}

TEST_F(LargeFolder, IsUnreadAfterTheHelperFailed) {
  haveItHelped(EIO);
  auto directory = this->directory();
  auto exception = raisedBy([&] { directory->firstObject(); });
  EXPECT_EQ(exception.reason(), "failed to read directory");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EIO));
  EXPECT_EQ(detailOf(exception, "API"), "getattrlistbulk");
  EXPECT_EQ(detailOf(exception, "Path"), folder_.path());
  EXPECT_FALSE(directory->contentsAreRead());
  calls_.before = nullptr;
  EXPECT_EQ(namesOf(*directory), namesInOrder());
}

TEST_F(LargeFolder, IsLeftByTheHelperWhenTheReaderFails) {
  calls_.before = [this](bool isReader, int batch) {
    if (!isReader) helps_.comes();
    if (!isReader || batch <= kBatchesOfABuffer) return 0;
    helps_.await();
    return EIO;
  };
  auto directory = this->directory();
  EXPECT_EQ(detailOf(raisedBy([&] { directory->firstObject(); }), "POSIXErr"), std::to_string(EIO));
  EXPECT_FALSE(directory->contentsAreRead());
  int batches = calls_.helpersBatches;
  EXPECT_GT(batches, 0);
  calls_.before = nullptr;
  EXPECT_FALSE(directory->contentsAreRead());
  EXPECT_EQ(calls_.helpersBatches, batches);
}

TEST_F(LargeFolder, IsReadOnAfterTheHelpersBufferWasTooSmallOnce) {
  haveItHelped(ERANGE);
  EXPECT_EQ(namesOf(*directory()), namesInOrder());
  EXPECT_GT(calls_.helpersBatches, 1);
}

TEST_F(LargeFolder, MayChangeWhileTwoThreadsReadIt) {
  haveItHelped();
  auto change = [&, before = calls_.before](bool isReader, int batch) {
    if (!isReader && batch == 1) {
      for (int i = 0; i < kFiles; i += 3) ::unlink((folder_ / name(i)).c_str());
      for (int i = 0; i < 100; ++i) folder_.write("later " + std::to_string(i), "");
    }
    return before(isReader, batch);
  };
  calls_.before = change;
  auto names = namesOf(*directory());
  std::set<std::string> once(names.begin(), names.end());
  EXPECT_EQ(once.size(), names.size());
  for (int i = 0; i < kFiles; ++i) {
    if (i % 3 == 0) continue;
    ASSERT_TRUE(once.contains(name(i))) << i;
  }
}

TEST_F(LargeFolder, IsReadOnceByManyThreads) {
  auto directory = this->directory();
  auto names = namesInOrder();
  std::vector<std::jthread> threads;
  for (int i = 0; i < 4; ++i) threads.emplace_back([&] { EXPECT_EQ(namesOf(*directory), names); });
  threads.clear();
  EXPECT_LE(calls_.readersBatches + calls_.helpersBatches, kFiles / 64 * 2);
}

TEST_F(LargeFolder, LivesOnFromTheChildThatSomebodyHolds) {
  haveItHelped();
  auto directory = this->directory();
  auto names = namesInOrder();
  WeakRef<PXFileInfo> first = directory->firstObject();
  auto held = directory->objectMatchingCName(names[kFiles / 2]);
  directory = nullptr;
  while (!first.expired()) std::this_thread::yield();
  WeakRef<PXFileInfo> last;
  auto place = names.begin() + kFiles / 2;
  for (auto child = held; child; child = child->nextObj()) {
    ASSERT_EQ(child->cName(), *place++);
    ASSERT_EQ(child->path(), folder_ / child->cName());
    ASSERT_EQ(child->ownerID(), ::geteuid());
    last = child;
  }
  EXPECT_EQ(place, names.end());
  held = nullptr;
  while (!last.expired()) std::this_thread::yield();
}

TEST_F(LargeFolder, TakesLessThan400BytesAChild) {
#ifdef HOIST_SANITIZED
  GTEST_SKIP() << "sanitizers have a malloc of their own";
#endif
  auto inUse = [] {
    auto memory = ::mallinfo2();
    return memory.uordblks + memory.hblkhd;
  };
  auto directory = this->directory();
  auto before = inUse();
  directory->lazyDirectoryRead();
  EXPECT_LT(inUse() - before, 400u * kFiles);
}

}  // namespace
}  // namespace hoist
