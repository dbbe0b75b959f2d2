// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// File systems that a program outside the kernel reads from a device: the mount table says
// "fuseblk" of them all.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <string>

#include "filesystem/PXVolumeInfo.h"
#include "platform/volumes/FileSystemTypes.h"
#include "platform/volumes/MountCapabilities.h"
#include "platform/volumes/VolumeCalls.h"
#include "platform/volumes/VolumeIdentity.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

using namespace volumes;

class OnADevice : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    if (auto reason = TestVolumes::reasonAgainst(GetParam())) GTEST_SKIP() << *reason;
    volumes_.emplace();
    point_ = volumes_->make(GetParam(), "vol");
    volume_ = PXVolumeInfo::volumeInfoForPath(point_);
    if (volume_->cFilesystemType() != std::string_view("fuseblk")) {
      GTEST_SKIP() << "the kernel itself mounts " << GetParam();
    }
  }
  std::optional<TestVolumes> volumes_;
  std::string point_;
  Ref<PXVolumeInfo> volume_;
};

TEST_P(OnADevice, SaysWhatTheFileSystemThereCanDo) {
  auto name = point_ + "/Name";
  ASSERT_TRUE(std::ofstream(name) << "content");
  EXPECT_EQ(volume_->hasSymbolicLinks(), ::symlink("Name", (point_ + "/link").c_str()) == 0);
  EXPECT_EQ(volume_->hasHardLinks(), ::link(name.c_str(), (point_ + "/twin").c_str()) == 0);
  EXPECT_EQ(volume_->hasExtendedAttributes(),
            ::setxattr(name.c_str(), "user.test", "x", 1, 0) == 0);
  EXPECT_EQ(volume_->isCaseSensitive(), ::access((point_ + "/nAME").c_str(), F_OK) != 0);
  ASSERT_EQ(::truncate(name.c_str(), 1 << 20), 0);
  struct stat status;
  ASSERT_EQ(::stat(name.c_str(), &status), 0);
  EXPECT_EQ(volume_->hasSparseFiles(), status.st_blocks * 512 < status.st_size);
  // Whether or not the file system there can, the programs cannot.
  EXPECT_FALSE(volume_->hasACLs() || volume_->hasFileCloning() || volume_->hasSwapping());
  EXPECT_FALSE(volume_->hasFastStatfs() || volume_->usesOwnership());
  EXPECT_TRUE(volume_->isCasePreserving() && volume_->has2TBFiles());
}

TEST_P(OnADevice, HasItsLabelAndIsThereToBeSeen) {
  EXPECT_EQ(volume_->name(), "VOL");
  // A short serial number is no UUID.
  EXPECT_EQ(volume_->uuidCStr(), nullptr);
  EXPECT_EQ(volume_->path(), point_);
  EXPECT_TRUE(volume_->isBrowsable() && volume_->isLocal() && volume_->isWritable());
}

TEST_P(OnADevice, IsKnownByTheDeviceOfTheMountOnly) {
  VolumeStatistics statistics;
  ASSERT_EQ(VolumeCalls::current().statfs(point_.c_str(), statistics), 0);
  EXPECT_EQ(volumeIdentity(-1, statistics).typeOnDevice, GetParam());
  // The device that was called so may have been replaced by another one.
  ++statistics.filesystemID.device;
  EXPECT_EQ(volumeIdentity(-1, statistics).typeOnDevice, "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, OnADevice, testing::Values("ntfs", "exfat"),
                         [](auto& info) { return info.param; });

// What the kinds differ in.
TEST(FUSEBlock, IsNTFSOrExFATByWhatTheDeviceHolds) {
  VolumeStatistics volume{.filesystemType = "fuseblk"};
  auto ntfs = capabilitiesOfMount(-1, volume, "ntfs");
  auto exfat = capabilitiesOfMount(-1, volume, "exfat");
  EXPECT_TRUE(ntfs.format & VOL_CAP_FMT_HARDLINKS);
  EXPECT_FALSE(exfat.format & VOL_CAP_FMT_HARDLINKS);
  EXPECT_TRUE(ntfs.format & VOL_CAP_FMT_PERSISTENTOBJECTIDS);
  EXPECT_FALSE(exfat.format & VOL_CAP_FMT_PERSISTENTOBJECTIDS);
  EXPECT_TRUE(ntfs.interfaces & VOL_CAP_INT_EXTENDED_ATTR);
  EXPECT_FALSE(exfat.interfaces & VOL_CAP_INT_EXTENDED_ATTR);
}

TEST(FUSEBlock, IsWhatFUSEIsWhenTheDeviceDoesNotSay) {
  VolumeStatistics volume{.filesystemType = "fuseblk"};
  auto& type = fileSystemType("fuseblk");
  for (auto held : {"", "apfs"}) {
    auto can = capabilitiesOfMount(-1, volume, held);
    EXPECT_EQ(can.format, type.format);
    EXPECT_EQ(can.interfaces, type.interfaces);
  }
  // As some programs name themselves.
  EXPECT_EQ(fileSystemType("fuseblk.exfat").name, "fuseblk");
}

}  // namespace
}  // namespace hoist
