// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ResourceValues.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "support/TemporaryFolder.h"

namespace hoist::resource {
namespace {

constexpr std::string_view kTag = "Signature: 8a477f597d28d172789f06886806bc55\n";

class ResourceValues : public testing::Test {
 protected:
  bool excluded(const std::string& name) {
    return isExcludedFromBackup((folder_ / name).c_str()).value.value();
  }
  TemporaryFolder folder_;
};

TEST_F(ResourceValues, CallHiddenWhatBeginsWithADot) {
  EXPECT_EQ(isHidden(folder_.write(".x", "").c_str()).value, true);
  EXPECT_EQ(isHidden(folder_.write("x", "").c_str()).value, false);
  EXPECT_EQ(isHiddenExtension((folder_ / "x").c_str()).value, false);
}

TEST_F(ResourceValues, AnswerTheErrorOfAMissingItem) {
  auto missing = folder_ / "missing";
  EXPECT_EQ(isHidden(missing.c_str()).value, std::nullopt);
  EXPECT_EQ(isHidden(missing.c_str()).error->code(), ENOENT);
  EXPECT_EQ(localizedName(missing.c_str()).error->code(), ENOENT);
  EXPECT_EQ(isExcludedFromBackup(missing.c_str()).error->code(), ENOENT);
  EXPECT_EQ(isPackage(missing.c_str()).error->code(), ENOENT);
  EXPECT_EQ(volumeIdentifier(missing.c_str()).error->code(), ENOENT);
}

TEST_F(ResourceValues, ExcludeFromBackupsWhatTheAttributeSaysFalseOf) {
  auto file = folder_.write("x", "");
  EXPECT_FALSE(excluded("x"));
  if (::setxattr(file.c_str(), "user.xdg.robots.backup", "false", 5, 0) != 0)
    GTEST_SKIP() << "no extended attributes here";
  EXPECT_TRUE(excluded("x"));
  ::setxattr(file.c_str(), "user.xdg.robots.backup", "true", 4, 0);
  EXPECT_FALSE(excluded("x"));
}

TEST_F(ResourceValues, ExcludeFromBackupsAFolderWithAValidCacheTag) {
  folder_.write("cache/CACHEDIR.TAG", kTag);
  folder_.write("other/CACHEDIR.TAG", "Signature: something else, of the same length as it was");
  folder_.write("short/CACHEDIR.TAG", "Sig");
  EXPECT_TRUE(excluded("cache"));
  EXPECT_FALSE(excluded("other"));
  EXPECT_FALSE(excluded("short"));
}

TEST_F(ResourceValues, ReadNoCacheTagThroughALinkAndNeverWaitForAPipe) {
  ::mkdir((folder_ / "link").c_str(), 0755);
  ::mkdir((folder_ / "pipe").c_str(), 0755);
  auto tag = folder_.write("TAG", kTag);
  ASSERT_EQ(::symlink(tag.c_str(), (folder_ / "link/CACHEDIR.TAG").c_str()), 0);
  ASSERT_EQ(::mkfifo((folder_ / "pipe/CACHEDIR.TAG").c_str(), 0644), 0);
  EXPECT_FALSE(excluded("link"));
  EXPECT_FALSE(excluded("pipe"));
}

TEST_F(ResourceValues, LookAtALinkItself) {
  folder_.write("cache/CACHEDIR.TAG", kTag);
  ASSERT_EQ(::symlink("cache", (folder_ / "link").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", (folder_ / "dangling").c_str()), 0);
  EXPECT_FALSE(excluded("link"));
  EXPECT_EQ(localizedName((folder_ / "dangling").c_str()).value, "dangling");
}

TEST_F(ResourceValues, CallAPackageAFolderNamedAppWithItsPropertyList) {
  folder_.write("X.app/Contents/Info.plist", "");
  folder_.write("Y.app/readme", "");
  folder_.write("Z/Contents/Info.plist", "");
  folder_.write("file.app", "");
  EXPECT_EQ(isPackage((folder_ / "X.app").c_str()).value, true);
  EXPECT_EQ(isPackage((folder_ / "Y.app").c_str()).value, false);
  EXPECT_EQ(isPackage((folder_ / "Z").c_str()).value, false);
  EXPECT_EQ(isPackage((folder_ / "file.app").c_str()).value, false);
}

TEST_F(ResourceValues, IdentifyTheMountOfAnItem) {
  auto file = folder_.write("x", "");
  EXPECT_EQ(volumeIdentifier(file.c_str()).value, volumeIdentifier(folder_.path().c_str()).value);
  EXPECT_NE(volumeIdentifier("/proc").value, volumeIdentifier("/").value);
}

}  // namespace
}  // namespace hoist::resource
