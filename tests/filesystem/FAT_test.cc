// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// File systems without owners, modes, links and distinct cases: what can be kept is kept, what
// cannot is left out or refused, and nothing is lost.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "support/Raised.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

Ref<PXPath> at(const std::string& path) {
  return PXPath::initWithCPath(path);
}

class FAT : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    if (auto reason = TestVolumes::reasonAgainst(GetParam())) GTEST_SKIP() << *reason;
    volumes_.emplace();
    point_ = volumes_->make(GetParam(), "vol");
  }
  std::optional<TestVolumes> volumes_;
  std::string point_;
};

TEST_P(FAT, IsAVolumeLikeAnyOther) {
  auto volume = PXVolumeInfo::volumeInfoForPath(point_);
  EXPECT_EQ(volume->path(), point_);
  EXPECT_TRUE(volume->isBrowsable() && volume->isWritable() && volume->isLocal());
  EXPECT_FALSE(volume->isCaseSensitive() || volume->hasSymbolicLinks());
  EXPECT_FALSE(volume->hasACLs() || volume->hasFileCloning() || volume->hasSnapshots());
  EXPECT_GT(volume->totalBytes(), 0u);
  EXPECT_EQ(volume->relativePathOfPath(at(point_ + "/x")), "x");
}

TEST_P(FAT, ListsWhatItHolds) {
  fs::create_directory(point_ + "/Folder");
  std::ofstream(point_ + "/Umlaut \xc3\xa4.txt") << "content";
  auto root = PXDirectory::directoryWithPath(point_);
  EXPECT_TRUE(root->isMountPoint());
  EXPECT_EQ(root->count(), 2u);
  EXPECT_TRUE(root->subdirectoryMatchingName("Folder"));
  auto file = root->objectMatchingName("Umlaut \xc3\xa4.txt");
  ASSERT_TRUE(file);
  EXPECT_TRUE(file->isRegularFile());
  EXPECT_EQ(file->linkCount(), 1u);
}

TEST_P(FAT, TakesACopyOfATreeWithoutWhatItCannotKeep) {
  auto source = volumes_->folder() / "tree";
  volumes_->folder().write("tree/sub/x", "content");
  fs::create_hard_link(source + "/sub/x", source + "/twin");
  ::chmod((source + "/sub/x").c_str(), 0640);
  ASSERT_EQ(::chown((source + "/sub/x").c_str(), 1234, 1234), 0);
  timespec times[2] = {{1'000'000'000, 0}, {1'100'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, (source + "/sub/x").c_str(), times, 0), 0);
  at(source)->copyTo(point_ + "/copy", false);
  EXPECT_EQ(contentOf(point_ + "/copy/sub/x"), "content");
  EXPECT_EQ(contentOf(point_ + "/copy/twin"), "content");
  auto modified = PXFileInfo::infoForPath(point_ + "/copy/sub/x")->modifiedTimeSpec().tv_sec;
  // Kept to two seconds.
  EXPECT_LE(std::labs(modified - 1'100'000'000), 2);
}

TEST_P(FAT, RefusesALinkAndNamesIt) {
  auto source = volumes_->folder() / "tree";
  volumes_->folder().write("tree/x", "content");
  fs::create_symlink("x", source + "/link");
  auto exception = raisedBy([&] { at(source)->copyTo(point_ + "/copy", false); });
  EXPECT_EQ(exception.reason(), "cannot copy item");
  EXPECT_EQ(detailOf(exception, "target"), point_ + "/copy");
}

TEST_P(FAT, MovesAndRemoves) {
  std::ofstream(point_ + "/a") << "a";
  std::ofstream(point_ + "/b") << "b";
  EXPECT_EQ(raisedBy([&] { at(point_ + "/a")->moveTo("b", false); }).reason(), "cannot move item");
  EXPECT_EQ(contentOf(point_ + "/b"), "b");
  at(point_ + "/a")->moveTo("c", false);
  at(point_ + "/c")->moveTo("b", true);
  EXPECT_EQ(contentOf(point_ + "/b"), "a");
  auto away = at(point_ + "/b")->moveToDirectory(volumes_->folder().path(), "b", false);
  EXPECT_EQ(contentOf(away->path()), "a");
  fs::create_directories(point_ + "/tree/sub");
  at(point_ + "/tree")->deleteFile();
  EXPECT_EQ(PXDirectory::directoryWithPath(point_)->count(), 0u);
}

TEST_P(FAT, ExchangesInOneWayOrAnother) {
  std::ofstream(point_ + "/a") << "a";
  std::ofstream(point_ + "/b") << "b";
  at(point_ + "/a")->swapWith(*at(point_ + "/b"));
  EXPECT_EQ(contentOf(point_ + "/a") + contentOf(point_ + "/b"), "ba");
  EXPECT_EQ(PXDirectory::directoryWithPath(point_)->count(), 2u);
}

INSTANTIATE_TEST_SUITE_P(Kinds, FAT, testing::Values("vfat", "exfat"),
                         [](auto& info) { return info.param; });

}  // namespace
}  // namespace hoist
