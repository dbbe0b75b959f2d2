// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The file objects where a mount, or who asks, sets limits: read-only and nosuid mounts, ordinary
// users, volumes and folders that go away while they are looked at, disks that are full.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <set>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXNonexistentFile.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "platform/attrlist/AttributeCalls.h"
#include "support/AsUser.h"
#include "support/DeepTree.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kUser = 65534;

std::string contentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

Ref<PXPath> at(const std::string& path) {
  return PXPath::initWithCPath(path);
}

std::string errorOf(const KLException& exception) {
  return detailOf(exception, "POSIXErr");
}

class Mounts : public testing::Test {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
    ::chmod(volumes_->folder().path().c_str(), 0755);
  }
  std::string readOnly() {
    auto point = volumes_->make("ext4", "vol");
    std::ofstream(point + "/a") << "a";
    std::ofstream(point + "/b") << "b";
    return volumes_->bind(point, "ro", MS_RDONLY);
  }
  std::optional<TestVolumes> volumes_;
};

// ---- Which volume ----

TEST_F(Mounts, AreThatOfTheFolderForALinkThatLeadsElsewhere) {
  auto point = volumes_->make("tmpfs", "vol");
  fs::create_symlink(point, volumes_->folder() / "link");
  auto folder = PXDirectory::directoryWithPath(volumes_->folder().path());
  auto link = folder->objectMatchingName("link");
  EXPECT_EQ(link->volumeInfo(), folder->volumeInfo());
}

TEST_F(Mounts, AreNotWhereAMissingItemIsThatWasTheirRoot) {
  auto point = volumes_->make("tmpfs", "vol");
  auto folder = PXDirectory::directoryWithPath(volumes_->folder().path());
  auto mounted = folder->subdirectoryMatchingName("vol");
  ASSERT_NE(mounted->deviceID(), folder->deviceID());
  auto missing = PXNonexistentFile::initWithPathObject(mounted->pathObject());
  EXPECT_EQ(missing->deviceID(), folder->deviceID());
  auto probed = PXDirectory::directoryWithPath(point);
  EXPECT_EQ(PXNonexistentFile::initWithPathObject(probed->pathObject())->deviceID(), 0u);
}

TEST_F(Mounts, MayChangeForAnItemWithEditsThatAreNotWritten) {
  auto point = volumes_->make("tmpfs", "vol");
  auto info = PXFileInfo::infoForPath(volumes_->folder().write("x", "x"));
  info->setAccess(0600);
  info->moveToDirectory(point, std::nullopt, false);
  info->setCommonAttributes(attrlist::ATTR_CMN_ACCESSMASK | attrlist::ATTR_CMN_CRTIME |
                            attrlist::ATTR_CMN_CHGTIME);
  EXPECT_EQ(PXFileInfo::infoForPath(point + "/x")->access(), 0600);
  info->setAccess(0640);
  info->moveTo("y", false);
  info->setCommonAttributes(attrlist::ATTR_CMN_ACCESSMASK | attrlist::ATTR_CMN_CHGTIME);
  EXPECT_EQ(PXFileInfo::infoForPath(point + "/y")->access(), 0640);
}

// ---- Read-only ----

TEST_F(Mounts, ThatAreReadOnlyRefuseEveryChange) {
  auto point = readOnly();
  auto a = at(point + "/a");
  auto readOnlyError = std::to_string(EROFS);
  EXPECT_EQ(errorOf(raisedBy([&] { a->moveTo("c", true); })), readOnlyError);
  EXPECT_EQ(errorOf(raisedBy([&] { a->moveTo("c", false); })), readOnlyError);
  EXPECT_EQ(errorOf(raisedBy([&] { a->copyTo("c", false); })), readOnlyError);
  EXPECT_EQ(errorOf(raisedBy([&] { a->copyTo("b", true); })), readOnlyError);
  EXPECT_EQ(errorOf(raisedBy([&] { a->deleteFile(); })), readOnlyError);
  EXPECT_EQ(errorOf(raisedBy([&] { a->swapWith(*at(point + "/b")); })), readOnlyError);
  EXPECT_FALSE(a->tryToDeleteFile());
  auto root = PXDirectory::directoryWithPath(point);
  EXPECT_EQ(errorOf(raisedBy([&] { root->createSubdirectoryWithName("d", 0755); })), readOnlyError);
  auto info = a->fileInfo();
  info->setAccess(0600);
  EXPECT_EQ(errorOf(raisedBy([&] { info->setModifiedAttributes(); })), readOnlyError);
  EXPECT_EQ(info->modifiedAttributes(), attrlist::ATTR_CMN_ACCESSMASK);
  EXPECT_EQ(contentOf(point + "/a") + contentOf(point + "/b"), "ab");
}

TEST_F(Mounts, ThatAreReadOnlyCanBeCopiedFrom) {
  auto point = readOnly();
  at(point)->copyTo(volumes_->folder() / "copy", false);
  EXPECT_EQ(contentOf(volumes_->folder() / "copy/a"), "a");
  EXPECT_FALSE(PXFileInfo::infoForPath(point + "/a")->effectiveAccess() & 2);
}

// ---- nosuid ----

TEST_F(Mounts, ThatAreNoSuidKeepTheBitsAllTheSame) {
  auto point = volumes_->bind(volumes_->make("tmpfs", "vol"), "nosuid", MS_NOSUID);
  std::ofstream(point + "/tool") << "tool";
  ::chmod((point + "/tool").c_str(), 04755);
  EXPECT_FALSE(PXVolumeInfo::volumeInfoForPath(point)->allowsSUID());
  EXPECT_EQ(PXFileInfo::infoForPath(point + "/tool")->access(), 04755);
  at(point + "/tool")->copyTo("copy", false);
  EXPECT_EQ(PXFileInfo::infoForPath(point + "/copy")->access(), 04755);
}

// ---- Overlays ----

TEST_F(Mounts, ThatAreOverlaysHaveTheSameItemAfterItWasCopiedUp) {
  auto layers = volumes_->make("tmpfs", "layers");
  for (auto layer : {"/lower", "/upper", "/work"}) fs::create_directory(layers + layer);
  std::ofstream(layers + "/lower/x") << "x";
  auto point = volumes_->newPoint("vol");
  volumes_->mount(
      "overlay", point, "overlay", 0,
      "lowerdir=" + layers + "/lower,upperdir=" + layers + "/upper,workdir=" + layers + "/work");
  auto info = PXFileInfo::infoForPath(point + "/x"), other = PXFileInfo::infoForPath(point + "/x");
  other->setModifiedTimeSpec({3, 0});
  for (time_t time : {1, 2}) {
    info->setModifiedTimeSpec({time, 0});
    info->setCommonAttributes(attrlist::kWritableCommonAttributes);
    EXPECT_EQ(PXFileInfo::infoForPath(point + "/x")->modifiedTimeSpec().tv_sec, time);
  }
  other->setModifiedAttributes();
  EXPECT_EQ(PXFileInfo::infoForPath(point + "/x")->modifiedTimeSpec().tv_sec, 3);
}

// ---- An ordinary user ----

TEST_F(Mounts, AreDescribedToAnOrdinaryUserAsToRoot) {
  for (std::string kind : {"ext4", "xfs", "btrfs", "tmpfs", "overlay"}) {
    auto point = volumes_->make(kind, "v" + kind);
    auto roots = PXVolumeInfo::volumeInfoForPath(point);
    AsUser user(kUser);
    auto users = PXVolumeInfo::volumeInfoForPath(point);
    EXPECT_TRUE(users->isEqual(*roots)) << kind;
    EXPECT_EQ(users->syntheticUUID(), roots->syntheticUUID()) << kind;
    EXPECT_EQ(users->name(), roots->name()) << kind;
    EXPECT_EQ(users->totalBytes(), roots->totalBytes()) << kind;
    EXPECT_EQ(users->capabilities().format, roots->capabilities().format) << kind;
    EXPECT_EQ(users->capabilities().interfaces, roots->capabilities().interfaces) << kind;
    EXPECT_EQ(errorOf(raisedBy([&] { users->unmount(); })), std::to_string(EPERM)) << kind;
  }
}

TEST_F(Mounts, ArePrivateWhereOnlyTheirOwnerMayLook) {
  auto point = volumes_->make("ext4", "vol");
  fs::create_directories(point + "/closed/inner");
  fs::permissions(point + "/closed", fs::perms::owner_all);
  AsUser user(kUser);
  EXPECT_EQ(errorOf(raisedBy([&] { PXFileInfo::infoForPath(point + "/closed/inner"); })),
            std::to_string(EACCES));
  EXPECT_EQ(errorOf(raisedBy([&] { PXVolumeInfo::volumeInfoForPath(point + "/closed/inner"); })),
            std::to_string(EACCES));
  auto copied = raisedBy([&] { at(point + "/closed")->copyTo("/tmp/hoist-no-copy", false); });
  EXPECT_EQ(copied.reason(), "cannot copy item");
  EXPECT_EQ(errorOf(copied), std::to_string(EACCES));
  EXPECT_FALSE(fs::exists("/tmp/hoist-no-copy"));
  EXPECT_EQ(errorOf(raisedBy([&] { at(point + "/closed")->deleteFile(); })),
            std::to_string(EACCES));
}

TEST_F(Mounts, LetAnOrdinaryUserChangeWhatIsHis) {
  auto point = volumes_->make("xfs", "vol");
  fs::create_directory(point + "/his");
  ASSERT_EQ(::chown((point + "/his").c_str(), kUser, kUser), 0);
  std::ofstream(point + "/roots") << "root's";
  AsUser user(kUser);
  at(point + "/roots")->copyTo(point + "/his/copy", false);
  EXPECT_EQ(PXFileInfo::infoForPath(point + "/his/copy")->ownerID(), kUser);
  EXPECT_EQ(errorOf(raisedBy([&] { at(point + "/his/copy")->swapWith(*at(point + "/roots")); })),
            std::to_string(EACCES));
  EXPECT_EQ(errorOf(raisedBy([&] { at(point + "/roots")->deleteFile(); })), std::to_string(EACCES));
  EXPECT_EQ(PXDirectory::directoryWithPath(point + "/his")->count(), 1u);
}

// ---- What goes away ----

TEST_F(Mounts, ThatVanishAfterTheyWereListedAreGoneAndNothingWorse) {
  auto point = volumes_->make("ext4", "vol");
  std::ofstream(point + "/x") << "x";
  fs::create_directory(point + "/sub");
  auto root = PXDirectory::directoryWithPath(point);
  root->lazyDirectoryRead();
  auto volume = root->volumeInfo();
  auto child = root->objectMatchingName("x");
  volumes_->detach(point);
  LogRecorder log;
  // What was read stays.
  EXPECT_EQ(child->asRegularFile() != nullptr, true);
  EXPECT_EQ(child->access(), 0644);
  EXPECT_GT(volume->totalBytes(), 0u);
  child->flushAttributes();
  EXPECT_EQ(errorOf(raisedBy([&] { child->access(); })), std::to_string(ENOENT));
  EXPECT_FALSE(child->reevaluateType()->exists());
  EXPECT_EQ(errorOf(raisedBy([&] { child->copyTo("/tmp/hoist-no-copy", false); })),
            std::to_string(ENOENT));
  EXPECT_FALSE(child->tryToDeleteFile());
  root->flushDirectoryContents();
  EXPECT_FALSE(root->firstObject());
  EXPECT_EQ(root->subdirectoryMatchingName("sub"), nullptr);
  EXPECT_EQ(raisedBy([&] { volume->unmount(); }).reason(), "cannot unmount volume");
  EXPECT_FALSE(PXVolumeInfo::volumeInfoForPath(point)->isEqual(*volume));
}

// Does something after the first batch of a folder has been read.
class AfterFirstBatch : public attrlist::AttributeCalls {
 public:
  explicit AfterFirstBatch(std::function<void()> happens) : happens_(std::move(happens)) {}
  int getattrlistbulk(int folder, const attrlist::AttributeSet& request,
                      attrlist::BulkBuffer& buffer, std::uint32_t options) override {
    int count = AttributeCalls::getattrlistbulk(folder, request, buffer, options);
    std::call_once(happened_, happens_);
    return count;
  }

 private:
  std::function<void()> happens_;
  std::once_flag happened_;
};

class FolderBeingRead : public Mounts {
 protected:
  void SetUp() override {
    Mounts::SetUp();
    if (IsSkipped()) return;
    folder_ = volumes_->folder() / "folder";
    for (int i = 0; i < kFiles; ++i)
      volumes_->folder().write("folder/file" + std::to_string(i), "content");
    ASSERT_EQ(::chown(folder_.c_str(), kUser, kUser), 0);
  }
  // The names that a read finds while something happens to the folder.
  std::set<std::string> namesWhen(std::function<void()> happens) {
    AfterFirstBatch calls(std::move(happens));
    attrlist::AttributeCallsOverride override(calls);
    auto directory = PXDirectory::directoryWithPath(folder_);
    std::set<std::string> names;
    for (auto& child : *directory) names.insert(child->cName());
    read_ = directory;
    return names;
  }
  static constexpr int kFiles = 1500;
  std::string folder_;
  Ref<PXDirectory> read_;
};

TEST_F(FolderBeingRead, MayLoseItsPermissions) {
  AsUser user(kUser);
  auto names = namesWhen([&] { ::chmod(folder_.c_str(), 0); });
  // The names can still be read from what is open, their attributes cannot.
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kFiles));
  std::size_t refused = 0;
  for (auto& child : *read_) {
    EXPECT_TRUE(child->isRegularFile());
    try {
      child->ownerID();
    } catch (const KLException& exception) {
      EXPECT_EQ(exception.reason(), "failed to get attributes");
      ++refused;
    }
  }
  EXPECT_GT(refused, 0u);
  EXPECT_LT(refused, static_cast<std::size_t>(kFiles));
}

TEST_F(FolderBeingRead, MayVanish) {
  AfterFirstBatch calls([&] { fs::remove_all(folder_); });
  attrlist::AttributeCallsOverride override(calls);
  auto directory = PXDirectory::directoryWithPath(folder_);
  auto exception = raisedBy([&] { directory->firstObject(); });
  EXPECT_EQ(exception.reason(), "failed to read directory");
  EXPECT_EQ(errorOf(exception), std::to_string(ENOENT));
  EXPECT_FALSE(directory->contentsAreRead());
  EXPECT_FALSE(directory->firstObject());
}

TEST_F(FolderBeingRead, MayBeMovedAway) {
  auto names = namesWhen([&] { fs::rename(folder_, folder_ + ".moved"); });
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kFiles));
}

// ---- Full disks, deep trees ----

TEST_F(Mounts, ThatAreFullGetNoHalfFile) {
  for (std::string kind : {"ext4", "tmpfs"}) {
    auto point = volumes_->make(kind, "small" + kind, 16);
    auto source = volumes_->folder().write("large", std::string(32 << 20, 'x'));
    auto exception = raisedBy([&] { at(source)->copyTo(point + "/large", false); });
    EXPECT_EQ(exception.reason(), "cannot copy item");
    EXPECT_EQ(errorOf(exception), std::to_string(ENOSPC)) << kind;
    EXPECT_EQ(detailOf(exception, "target"), point + "/large");
    EXPECT_FALSE(fs::exists(point + "/large")) << kind;
    // Neither is anything moved that does not fit.
    EXPECT_EQ(errorOf(raisedBy([&] { at(source)->moveTo(point + "/large", false); })),
              std::to_string(ENOSPC));
    EXPECT_TRUE(fs::exists(source));
    EXPECT_FALSE(fs::exists(point + "/large")) << kind;
  }
}

class MountsOfEveryKind : public Mounts, public testing::WithParamInterface<std::string> {};

TEST_P(MountsOfEveryKind, HoldTreesThousandsOfLevelsDeep) {
  // This FUSE program itself reaches items by their paths.
  const int levels = GetParam() == "fuse" ? 300 : 4000;
  auto point = volumes_->make(GetParam(), "vol", GetParam() == "ext4" ? 256 : 0);
  makeDeepTree(point + "/tree", levels);
  auto copy = at(point + "/tree")->copyTo("copy", false);
  EXPECT_EQ(depthOfTree(point + "/copy"), levels);
  at(point + "/tree")->deleteFile();
  copy->deleteFile();
  EXPECT_EQ(PXDirectory::directoryWithPath(point)->subdirectoryMatchingName("tree"), nullptr);
  EXPECT_EQ(PXDirectory::directoryWithPath(point)->subdirectoryMatchingName("copy"), nullptr);
}

TEST_P(MountsOfEveryKind, MoveTreesToEachOther) {
  auto point = volumes_->make(GetParam(), "vol");
  auto other = volumes_->make("tmpfs", "other");
  fs::create_directories(point + "/tree/sub");
  std::ofstream(point + "/tree/sub/x") << "x";
  fs::create_symlink("sub/x", point + "/tree/link");
  fs::create_hard_link(point + "/tree/sub/x", point + "/tree/twin");
  auto moved = at(point + "/tree")->moveToDirectory(other, std::nullopt, false);
  EXPECT_EQ(moved->path(), other + "/tree");
  EXPECT_FALSE(fs::exists(point + "/tree"));
  EXPECT_EQ(contentOf(other + "/tree/link"), "x");
  EXPECT_TRUE(fs::equivalent(other + "/tree/twin", other + "/tree/sub/x"));
  EXPECT_TRUE(moved->fileInfo()->volumeInfo()->isEqual(*PXVolumeInfo::volumeInfoForPath(other)));
}

TEST_P(MountsOfEveryKind, KeepWhatIsWrittenBackToAnyItem) {
  auto point = volumes_->make(GetParam(), "vol");
  std::ofstream(point + "/file") << "file";
  fs::create_directory(point + "/folder");
  fs::create_symlink("file", point + "/link");
  ASSERT_EQ(::mkfifo((point + "/pipe").c_str(), 0600), 0);
  auto root = PXDirectory::directoryWithPath(point);
  for (auto& item : *root) {
    // What comes with a new file system.
    if (std::string_view(item->cName()) == "lost+found") continue;
    SCOPED_TRACE(item->cName());
    auto probed = PXFileInfo::infoForPath(item->path());
    probed->setModifiedTimeSpec({900'000'000, 1});
    item->setOwnerID(11);
    item->setGroupID(12);
    if (!item->isSymbolicLink()) item->setAccess(04751);
    item->setModifiedTimeSpec({1'000'000'000, 123'456'789});
    item->setModifiedAttributes();
    auto now = PXFileInfo::infoForPath(item->path());
    EXPECT_EQ(now->ownerID(), 11u);
    EXPECT_EQ(now->groupID(), 12u);
    EXPECT_EQ(now->access(), item->access());
    EXPECT_EQ(now->modifiedTimeSpec().tv_sec, 1'000'000'000);
    EXPECT_EQ(now->modifiedTimeSpec().tv_nsec, 123'456'789);
    // It is still the item that others have read.
    probed->setModifiedAttributes();
    now->flushAttributes();
    EXPECT_EQ(now->modifiedTimeSpec().tv_sec, 900'000'000);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, MountsOfEveryKind, testing::ValuesIn(TestVolumes::kinds()),
                         [](auto& info) { return info.param; });

}  // namespace
}  // namespace hoist
