// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// How the contents of a folder come into its object. Large folders stand in BulkReading_test.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXRegularFile.h"
#include "filesystem/PXVolumeInfo.h"
#include "platform/FacilityLevel.h"
#include "support/AsUser.h"
#include "support/Raised.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using namespace attrlist;
using Names = std::vector<std::string>;

class BulkCalls : public AttributeCalls {
 public:
  int getattrlist(const char* path, const AttributeSet& request, ItemAttributes& reply,
                  std::uint32_t options) override {
    ++singleReads;
    return AttributeCalls::getattrlist(path, request, reply, options);
  }
  int getattrlistbulk(int folder, const AttributeSet& request, BulkBuffer& buffer,
                      std::uint32_t options) override {
    ++bulkReads;
    lastRequest = request;
    if (failuresFrom >= 0 && bulkReads > failuresFrom && bulkReads <= failuresFrom + failures) {
      errno = error;
      return -1;
    }
    return AttributeCalls::getattrlistbulk(folder, request, buffer, options);
  }
  int singleReads = 0;
  int bulkReads = 0;
  AttributeSet lastRequest;
  // After so many calls, so many fail.
  int failuresFrom = -1;
  int failures = 0;
  int error = 0;
};

Names namesOf(const PXDirectory& directory) {
  Names names;
  for (auto& child : directory) names.push_back(child->cName());
  return names;
}

std::set<std::string> namesAsSet(const PXDirectory& directory) {
  auto names = namesOf(directory);
  return {names.begin(), names.end()};
}

class DirectoryBeingRead : public testing::Test {
 protected:
  Ref<PXDirectory> directory(const std::string& name = "") {
    return PXDirectory::directoryWithPath(name.empty() ? folder_.path() : folder_ / name);
  }
  TemporaryFolder folder_;
  BulkCalls calls_;
  AttributeCallsOverride override_{calls_};
};

TEST_F(DirectoryBeingRead, ListsItsChildrenWithTypesAndAttributesInOnePass) {
  folder_.write("file", "abc");
  folder_.write("sub/x", "");
  ASSERT_EQ(::symlink("file", (folder_ / "link").c_str()), 0);
  auto directory = this->directory();
  calls_.singleReads = 0;
  EXPECT_EQ(namesAsSet(*directory), (std::set<std::string>{"file", "sub", "link"}));
  EXPECT_EQ(directory->count(), 3u);
  EXPECT_EQ(directory->objectMatchingName("file")->asRegularFile()->logicalSize(), 3u);
  EXPECT_TRUE(directory->objectMatchingName("link")->isSymbolicLink());
  EXPECT_EQ(directory->subdirectoryMatchingName("sub")->ownerID(), ::geteuid());
  EXPECT_EQ(calls_.singleReads, 0);
  EXPECT_EQ(calls_.lastRequest.common, 0x2278F0B | ATTR_CMN_RETURNED_ATTRS);
  EXPECT_EQ(calls_.lastRequest.directory, 7u);
  EXPECT_EQ(calls_.lastRequest.file, 0x207u);
}

TEST_F(DirectoryBeingRead, ThatIsEmptyIsReadOnceUntilFlushed) {
  auto directory = this->directory();
  EXPECT_EQ(directory->count(), 0u);
  EXPECT_EQ(calls_.bulkReads, 0);
  EXPECT_FALSE(directory->firstObject());
  EXPECT_EQ(directory->count(), 0u);
  EXPECT_TRUE(directory->contentsAreRead());
  int reads = calls_.bulkReads;
  EXPECT_FALSE(directory->firstObject());
  EXPECT_EQ(calls_.bulkReads, reads);
  folder_.write("new", "");
  EXPECT_EQ(directory->count(), 0u);
  directory->flushDirectoryContents();
  EXPECT_EQ(namesOf(*directory), Names{"new"});
}

TEST_F(DirectoryBeingRead, CountsNamesBeforeItIsRead) {
  for (int i = 0; i < 7; ++i) folder_.write("x" + std::to_string(i), "");
  auto directory = this->directory();
  EXPECT_EQ(directory->count(), 7u);
  EXPECT_FALSE(directory->contentsAreRead());
  directory->lazyDirectoryRead();
  EXPECT_EQ(directory->count(), 7u);
}

TEST_F(DirectoryBeingRead, ThatDisappearsIsEmptyAndTriedAgain) {
  folder_.write("sub/x", "");
  auto sub = directory("sub");
  ASSERT_EQ(::rename((folder_ / "sub").c_str(), (folder_ / "away").c_str()), 0);
  EXPECT_FALSE(sub->firstObject());
  EXPECT_FALSE(sub->contentsAreRead());
  EXPECT_EQ(sub->count(), 0u);
  ASSERT_EQ(::rename((folder_ / "away").c_str(), (folder_ / "sub").c_str()), 0);
  EXPECT_EQ(namesOf(*sub), Names{"x"});
}

TEST_F(DirectoryBeingRead, IsNotReadThroughALinkThatTookItsPlace) {
  folder_.write("sub/x", "");
  auto sub = directory("sub");
  ASSERT_EQ(::rename((folder_ / "sub").c_str(), (folder_ / "away").c_str()), 0);
  ASSERT_EQ(::symlink("away", (folder_ / "sub").c_str()), 0);
  EXPECT_FALSE(sub->firstObject());
  EXPECT_FALSE(sub->contentsAreRead());
}

TEST_F(DirectoryBeingRead, ThatMayNotBeReadIsUnreadRatherThanEmpty) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  folder_.write("sub/x", "");
  ASSERT_EQ(::chmod((folder_ / "sub").c_str(), 0711), 0);
  auto sub = directory("sub");
  {
    AsUser user(65534);
    EXPECT_FALSE(sub->firstObject());
    EXPECT_FALSE(sub->contentsAreRead());
  }
  EXPECT_TRUE(sub->firstObject());
}

TEST_F(DirectoryBeingRead, ListsChildrenWhoseAttributesAreRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  folder_.write("sub/x", "abc");
  ASSERT_EQ(::chmod((folder_ / "sub").c_str(), 0744), 0);
  AsUser user(65534);
  auto file = directory("sub")->objectMatchingName("x");
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->isRegularFile());
  EXPECT_EQ(raisedBy([&] { file->ownerID(); }).reason(), "failed to get attributes");
}

TEST_F(DirectoryBeingRead, RetriesOnceWhenTheBufferWasTooSmallAndAgainAfterASuccess) {
  folder_.write("x", "");
  calls_.error = ERANGE;
  calls_.failuresFrom = 0;
  calls_.failures = 1;
  EXPECT_EQ(namesOf(*directory()), Names{"x"});
  calls_ = BulkCalls();
  calls_.error = ERANGE;
  calls_.failuresFrom = 1;
  calls_.failures = 1;
  EXPECT_EQ(namesOf(*directory()), Names{"x"});
}

TEST_F(DirectoryBeingRead, RaisesWhenReadingFails) {
  folder_.write("x", "");
  auto directory = this->directory();
  calls_.failuresFrom = 0;
  calls_.failures = 2;
  for (int error : {ERANGE, EIO}) {
    calls_.bulkReads = 0;
    calls_.error = error;
    auto exception = raisedBy([&] { directory->firstObject(); });
    EXPECT_EQ(exception.name(), "IO");
    EXPECT_EQ(exception.reason(), "failed to read directory");
    EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(error));
    EXPECT_EQ(detailOf(exception, "API"), "getattrlistbulk");
    EXPECT_EQ(detailOf(exception, "Path"), folder_.path());
    EXPECT_EQ(calls_.bulkReads, error == ERANGE ? 2 : 1);
  }
  calls_.failures = 0;
  EXPECT_EQ(namesOf(*directory), Names{"x"});
}

TEST_F(DirectoryBeingRead, LeavesOutWhatHasNoTypeOrABadOne) {
  class NoTypes : public AttributeCalls {
   public:
    int getattrlistbulk(int folder, const AttributeSet& request, BulkBuffer& buffer,
                        std::uint32_t options) override {
      int count = AttributeCalls::getattrlistbulk(folder, request, buffer, options);
      for (auto& entry : buffer.entries()) {
        if (*entry.name == 'n') entry.attributes.objectType = 0;
        if (*entry.name == 'b') entry.attributes.objectType = 8;
      }
      return count;
    }
  } calls;
  AttributeCallsOverride override(calls);
  for (auto name : {"none", "file", "bad"}) folder_.write(name, "");
  auto directory = this->directory();
  EXPECT_EQ(namesOf(*directory), Names{"file"});
  EXPECT_EQ(directory->count(), 1u);
}

TEST_F(DirectoryBeingRead, ListsPlainlyBelowTheLevelOfBulkReading) {
  FacilityLevelOverride level(packedVersion(10, 9));
  folder_.write("file", "abc");
  folder_.write("sub/x", "");
  auto directory = this->directory();
  EXPECT_EQ(namesAsSet(*directory), (std::set<std::string>{"file", "sub"}));
  EXPECT_EQ(calls_.bulkReads, 0);
  calls_.singleReads = 0;
  EXPECT_EQ(directory->objectMatchingName("file")->asRegularFile()->logicalSize(), 3u);
  EXPECT_EQ(calls_.singleReads, 1);
}

TEST_F(DirectoryBeingRead, MayGoBeforeItsChildren) {
  for (int i = 0; i < 100; ++i) folder_.write("x" + std::to_string(i), "abc");
  auto child = directory()->objectMatchingName("x42");
  calls_.singleReads = 0;
  EXPECT_STREQ(child->cName(), "x42");
  EXPECT_EQ(child->asRegularFile()->logicalSize(), 3u);
  EXPECT_EQ(child->path(), folder_ / "x42");
  EXPECT_FALSE(child->livingParent());
  EXPECT_EQ(calls_.singleReads, 0);
  child->moveTo("moved", false);
  EXPECT_STREQ(child->cName(), "moved");
}

TEST_F(DirectoryBeingRead, IsReadOnceByManyThreads) {
  for (int i = 0; i < 300; ++i) folder_.write("x" + std::to_string(i), "");
  auto directory = this->directory();
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        EXPECT_EQ(namesOf(*directory).size(), 300u);
        EXPECT_TRUE(directory->volumeInfo());
      });
    }
  }
  int reads = std::exchange(calls_.bulkReads, 0);
  EXPECT_EQ(namesOf(*this->directory()).size(), 300u);
  EXPECT_EQ(reads, calls_.bulkReads);
}

TEST_F(DirectoryBeingRead, ReadsWhileItsContentChanges) {
  for (int i = 0; i < 100; ++i) folder_.write("stays" + std::to_string(i), "");
  std::jthread churn([&](std::stop_token stop) {
    for (int i = 0; !stop.stop_requested(); ++i) {
      auto name = "goes" + std::to_string(i % 20);
      folder_.write(name, "");
      ::unlink((folder_ / name).c_str());
    }
  });
  auto directory = this->directory();
  for (int round = 0; round < 50; ++round) {
    directory->flushDirectoryContents();
    auto names = namesAsSet(*directory);
    EXPECT_TRUE(names.contains("stays0") && names.contains("stays99"));
  }
}

// ---- On real file systems ----

}  // namespace
}  // namespace hoist
