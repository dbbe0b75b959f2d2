// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/FolderNesting.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <optional>

#include "platform/FileDescriptor.h"
#include "platform/files/FileManager.h"
#include "support/AsUser.h"
#include "support/TestVolumes.h"

namespace hoist::files {
namespace {

namespace fs = std::filesystem;

bool isInside(const std::string& folder, const std::string& other) {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;
  FileDescriptor inner(::open(folder.c_str(), kFlags)), outer(::open(other.c_str(), kFlags));
  EXPECT_TRUE(inner && outer);
  return isInsideFolder(inner.get(), outer.get());
}

TEST(FolderNesting, IsSeenFromBelowOnly) {
  TemporaryFolder folder;
  fs::create_directories(folder / "t/a/b");
  fs::create_directories(folder / "tt");
  EXPECT_TRUE(isInside(folder / "t/a/b", folder / "t"));
  EXPECT_TRUE(isInside(folder / "t", folder / "t"));
  EXPECT_TRUE(isInside(folder / "t", "/"));
  EXPECT_TRUE(isInside("/", "/"));
  EXPECT_FALSE(isInside(folder / "t", folder / "t/a"));
  EXPECT_FALSE(isInside(folder / "tt", folder / "t"));
  EXPECT_FALSE(isInside(folder / "t", "/proc"));
}

TEST(FolderNesting, IsSeenWhereAnOrdinaryUserMayNotClimb) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  fs::create_directories(folder / "closed/his/sub");
  fs::create_directory(folder / "other");
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  ASSERT_EQ(::chown((folder / "closed/his").c_str(), 65534, 65534), 0);
  ASSERT_EQ(::chmod((folder / "closed").c_str(), 0700), 0);
  auto before = fs::current_path();
  fs::current_path(folder / "closed/his");
  {
    AsUser user(65534);
    EXPECT_TRUE(isInside("sub", "."));
    EXPECT_FALSE(isInside(".", "sub"));
    EXPECT_TRUE(isInside("sub", folder.path()));
    EXPECT_FALSE(isInside("sub", folder / "other"));
    EXPECT_FALSE(copyItem("./sub", "./copy"));
    EXPECT_EQ(copyItem("./sub", "./sub/copy")->code(), EINVAL);
  }
  fs::current_path(before);
}

class ThroughBindMounts : public testing::Test {
 protected:
  // "vol" holds "t/a/x"; "vol/t/a" is mounted once more at "bound".
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
    volume_ = volumes_->make("tmpfs", "vol", 16);
    fs::create_directories(volume_ + "/t/a");
    fs::create_directories(volume_ + "/t/ab");
    std::ofstream(volume_ + "/t/a/x") << "precious";
    bound_ = volumes_->bind(volume_ + "/t/a", "bound");
  }
  std::optional<TestVolumes> volumes_;
  std::string volume_, bound_;
};

TEST_F(ThroughBindMounts, AFolderIsWhereItIsInTheFileSystem) {
  EXPECT_TRUE(isInside(bound_, volume_ + "/t"));
  EXPECT_TRUE(isInside(bound_, volume_));
  EXPECT_TRUE(isInside(bound_, volume_ + "/t/a"));
  EXPECT_FALSE(isInside(bound_, volume_ + "/t/ab"));
  EXPECT_FALSE(isInside(volume_ + "/t/ab", bound_));
  auto whole = volumes_->bind(volume_, "whole");
  EXPECT_TRUE(isInside(bound_, whole));
  EXPECT_TRUE(isInside(bound_, whole + "/t"));
  EXPECT_TRUE(isInside(whole + "/t/a", bound_));
  EXPECT_FALSE(isInside(whole + "/t", bound_));
  // The same places in another file system.
  auto other = volumes_->make("tmpfs", "other", 16);
  fs::create_directories(other + "/t/a");
  EXPECT_FALSE(isInside(bound_, other + "/t"));
}

TEST_F(ThroughBindMounts, ASubvolumeIsWhereItIsInTheFileSystem) {
  auto point = volumes_->make("btrfs", "btrfs");
  fs::create_directory(point + "/t");
  TestVolumes::run("btrfs subvolume create " + point + "/t/sub");
  auto apart = volumes_->newPoint("apart");
  volumes_->mountImage(volumes_->folder() / "btrfs.img", apart, "loop,subvol=t/sub");
  EXPECT_TRUE(isInside(apart, point + "/t"));
  EXPECT_TRUE(isInside(apart, point + "/t/sub"));
  EXPECT_FALSE(isInside(point + "/t", apart));
}

TEST_F(ThroughBindMounts, NothingIsCopiedOrMovedIntoItself) {
  EXPECT_EQ(copyItem(volume_ + "/t", bound_ + "/copy")->code(), EINVAL);
  EXPECT_EQ(moveItem(volume_ + "/t", bound_ + "/copy")->code(), EINVAL);
  EXPECT_FALSE(fs::exists(bound_ + "/copy"));
  EXPECT_FALSE(copyItem(volume_ + "/t/ab", bound_ + "/copy"));
}

TEST_F(ThroughBindMounts, TheSourceIsNotRemovedWithTheTarget) {
  EXPECT_TRUE(refusalToReplace(bound_ + "/x", volume_ + "/t"));
  EXPECT_TRUE(refusalToReplace(bound_ + "/x", volume_ + "/t/a"));
  EXPECT_FALSE(refusalToReplace(bound_ + "/x", volume_ + "/t/ab"));
}

}  // namespace
}  // namespace hoist::files
