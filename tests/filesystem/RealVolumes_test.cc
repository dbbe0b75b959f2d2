// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Volumes as the kernel mounts them: every kind of them, covered, vanished, bound, in a chroot.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXSymbolicLink.h"
#include "filesystem/PXVolumeInfo.h"
#include "platform/FileDescriptor.h"
#include "platform/ResourceValues.h"
#include "platform/volumes/FileSystemAttributes.h"
#include "support/PlainCoders.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TestVolumes.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

using namespace volumes;

class RealVolumes : public testing::Test {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
  }
  static Ref<PXVolumeInfo> at(const std::string& path) {
    return PXVolumeInfo::initWithPath(path.c_str());
  }
  static Ref<PXVolumeInfo> listed(const std::string& path) {
    for (auto& volume : PXVolumeInfo::allVolumes()) {
      if (volume->path() == path) return volume;
    }
    return nullptr;
  }
  std::optional<TestVolumes> volumes_;
};

class EveryVolume : public RealVolumes, public testing::WithParamInterface<std::string> {};

TEST_P(EveryVolume, IsFoundListedAndMeasured) {
  auto point = volumes_->make(GetParam(), "vol");
  ::mkdir((point + "/sub").c_str(), 0755);
  auto volume = at(point + "/sub");
  EXPECT_EQ(volume->path(), point);
  EXPECT_TRUE(volume->isEqual(*listed(point)));
  EXPECT_TRUE(volume->isBrowsable() && volume->isWritable() && volume->isLocal());
  EXPECT_EQ(std::string(volume->cFilesystemType()), GetParam());
  EXPECT_FALSE(volume->hasGetDirEntriesAttr());
  EXPECT_FALSE(volume->hasExchangeData());
  EXPECT_FALSE(volume->isEqual(*at("/")));
  struct statvfs status;
  ASSERT_EQ(::statvfs(point.c_str(), &status), 0);
  EXPECT_EQ(volume->totalBytes(), status.f_blocks * status.f_frsize);
  EXPECT_EQ(volume->blockSize(), status.f_frsize);
  EXPECT_EQ(volume->optimalXferSize(), status.f_bsize);
  EXPECT_EQ(volume->maxFileSize(), 0x7FFFFFFFFFFFFFFFu);
  EXPECT_NE(volume->wholeDeviceIdentifier(), 0u);
  auto root = volume->rootDirectory();
  ASSERT_TRUE(root);
  EXPECT_EQ(root->volumeInfo(), volume);
  EXPECT_TRUE(root->isMountPoint());
}

TEST_P(EveryVolume, SwapsTwoItemsExactlyWhenItSaysSo) {
  auto point = volumes_->make(GetParam(), "vol");
  std::ofstream(point + "/a") << "a";
  std::ofstream(point + "/b") << "b";
  constexpr unsigned kExchange = 2;
  int result =
      ::renameat2(AT_FDCWD, (point + "/a").c_str(), AT_FDCWD, (point + "/b").c_str(), kExchange);
  EXPECT_EQ(result == 0, at(point)->hasSwapping());
}

TEST_P(EveryVolume, LocatesPathsRelativeToItsRoot) {
  auto point = volumes_->make(GetParam(), "vol");
  ::mkdir((point + "/sub").c_str(), 0755);
  std::ofstream(point + "/sub/x") << "x";
  auto volume = at(point);
  auto relative = [&](const std::string& path) {
    return volume->relativePathOfPath(PXPath::initWithCPath(path));
  };
  EXPECT_EQ(relative(point), "");
  EXPECT_EQ(relative(point + "/sub/x"), "sub/x");
  EXPECT_EQ(relative("/etc"), std::nullopt);
  EXPECT_EQ(PXFileInfo::infoForPath(point + "/sub/x")->volumeRelativePath(), "sub/x");
}

TEST_P(EveryVolume, IsGoneAfterUnmountingAndBusyBefore) {
  auto point = volumes_->make(GetParam(), "vol");
  auto volume = at(point);
  {
    FileDescriptor open(::open(point.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    auto busy = raisedBy([&] { volume->unmount(); });
    EXPECT_EQ(detailOf(busy, "POSIXErr"), std::to_string(EBUSY));
  }
  volume->unmount();
  EXPECT_FALSE(listed(point));
  EXPECT_EQ(detailOf(raisedBy([&] { volume->unmountForcibly(true); }), "POSIXErr"),
            std::to_string(ENOENT));
}

std::vector<std::string> kinds() {
  return TestVolumes::kinds();
}
INSTANTIATE_TEST_SUITE_P(Kinds, EveryVolume, testing::ValuesIn(kinds()),
                         [](auto& info) { return info.param; });

TEST_F(RealVolumes, KnowLabelAndUUIDOfExt4XfsAndBtrfs) {
  for (std::string kind : {"ext4", "xfs", "btrfs"}) {
    auto volume = at(volumes_->make(kind, "v" + kind));
    std::string label = "V";
    for (char c : kind) label += static_cast<char>(std::toupper(c));
    EXPECT_EQ(volume->name(), label);
    EXPECT_NE(volume->uuidCStr(), nullptr) << kind;
    EXPECT_GT(volume->createdDate().seconds(), 1'000'000'000) << kind;
  }
}

TEST_F(RealVolumes, WithoutALabelAreNamedByTheirMountPoint) {
  auto image = volumes_->makeImage("ext4", "labelled");
  volumes_->run("tune2fs -L '' " + image);
  EXPECT_EQ(at(volumes_->mountImage(image, volumes_->newPoint("point")))->name(), "point");
}

TEST_F(RealVolumes, OfProgramsThatReachOtherMachinesAreNotLocal) {
  for (std::string kind : {"fuse.sshfs", "fuse.s3fs", "fuse.other"}) {
    auto volume = at(volumes_->make(kind, kind));
    EXPECT_EQ(volume->cFilesystemType(), kind);
    EXPECT_EQ(volume->isLocal(), kind == "fuse.other") << kind;
    EXPECT_TRUE(volume->isBrowsable()) << kind;
    EXPECT_TRUE(volume->hasSymbolicLinks()) << kind;
  }
}

TEST_F(RealVolumes, MountedToBeHiddenAreNotBrowsable) {
  // The tools of the system note that down there.
  volumes_->mount("tmpfs", "/run", "tmpfs", 0, "mode=755");
  auto image = volumes_->makeImage("ext4", "hidden");
  auto point = volumes_->mountImage(image, volumes_->newPoint("point"), "loop,x-gvfs-hide");
  EXPECT_FALSE(at(point)->isBrowsable());
  EXPECT_TRUE(listed(point));
  auto browsable = PXVolumeInfo::browsableVolumes();
  EXPECT_TRUE(std::none_of(browsable.begin(), browsable.end(),
                           [&](auto& volume) { return volume->path() == point; }));
}

TEST_F(RealVolumes, AreToldWhatTheirMountCanDo) {
  auto ext4 = at(volumes_->make("ext4", "e"));
  EXPECT_TRUE(ext4->hasJournal() && ext4->hasActiveJournal() && ext4->hasACLs());
  EXPECT_TRUE(ext4->isCaseSensitive() && ext4->hasHardLinks() && ext4->hasSwapping());
  EXPECT_FALSE(ext4->hasFileCloning() || ext4->hasSnapshots());
  auto xfs = at(volumes_->make("xfs", "x"));
  EXPECT_TRUE(xfs->hasJournal() && xfs->hasFileCloning());
  auto btrfs = at(volumes_->make("btrfs", "b"));
  EXPECT_TRUE(btrfs->hasFileCloning() && btrfs->hasSnapshots());
  auto tmpfs = at(volumes_->make("tmpfs", "t"));
  EXPECT_FALSE(tmpfs->hasPersistentObjects() || tmpfs->hasJournal());

  auto image = volumes_->makeImage("ext4", "plain");
  volumes_->run("tune2fs -O ^has_journal " + image);
  auto plain = at(volumes_->mountImage(image, volumes_->newPoint("p")));
  EXPECT_FALSE(plain->hasJournal() || plain->hasActiveJournal());
  image = volumes_->makeImage("btrfs", "listless");
  EXPECT_FALSE(at(volumes_->mountImage(image, volumes_->newPoint("l"), "loop,noacl"))->hasACLs());
}

TEST_F(RealVolumes, CannotSwapOrCloneWhereNothingCanBeWritten) {
  auto point = volumes_->make("btrfs", "b");
  auto readOnly = at(volumes_->bind(point, "ro", MS_RDONLY | MS_NOSUID | MS_NOEXEC));
  EXPECT_FALSE(readOnly->isWritable());
  EXPECT_FALSE(readOnly->allowsSUID());
  EXPECT_FALSE(readOnly->allowsExec());
  EXPECT_FALSE(readOnly->hasSwapping() || readOnly->hasFileCloning());
  EXPECT_TRUE(readOnly->hasExtendedAttributes());
}

TEST_F(RealVolumes, AreOneThroughABindMountAndTwoAsTwoCopiesOfAnImage) {
  auto image = volumes_->makeImage("ext4", "one");
  volumes_->run("cp --sparse=always " + image + " " + (volumes_->folder() / "two.img"));
  auto one = at(volumes_->mountImage(image, volumes_->newPoint("one")));
  auto two = at(volumes_->mountImage(volumes_->folder() / "two.img", volumes_->newPoint("two")));
  EXPECT_STREQ(one->uuidCStr(), two->uuidCStr());
  EXPECT_FALSE(one->isEqual(*two));
  auto bound = at(volumes_->bind(one->path(), "bound"));
  EXPECT_TRUE(bound->isEqual(*one));
  EXPECT_EQ(bound->hash(), one->hash());
  EXPECT_NE(bound->path(), one->path());
  EXPECT_NE(resource::volumeIdentifier(bound->cPath()).value,
            resource::volumeIdentifier(one->cPath()).value);
}

TEST_F(RealVolumes, AreTheSameInsideASubvolumeThatIsNoMount) {
  auto point = volumes_->make("btrfs", "b");
  volumes_->run("btrfs subvolume create " + point + "/sub");
  EXPECT_TRUE(at(point + "/sub")->isEqual(*at(point)));
  EXPECT_TRUE(PXPath::initWithCPath(point)->containsPath(*PXPath::initWithCPath(point + "/sub")));
}

TEST_F(RealVolumes, AreNotMistakenForWhatIsMountedOverThem) {
  auto point = volumes_->make("ext4", "e");
  auto covered = at(point);
  volumes_->mount("tmpfs", point, "tmpfs", 0, "");
  auto covering = at(point);
  EXPECT_FALSE(covering->isEqual(*covered));
  auto all = PXVolumeInfo::allVolumes();
  EXPECT_EQ(std::count_if(all.begin(), all.end(), [&](auto& v) { return v->path() == point; }), 1);
  EXPECT_TRUE(listed(point)->isEqual(*covering));
  EXPECT_EQ(covered->nsAttributes(), std::nullopt);
  EXPECT_EQ(covering->wholeDeviceIdentifier(), covering->filesystemID().device);
  // Whoever unmounts the covered one must not hit the other.
  EXPECT_EQ(raisedBy([&] { covered->unmount(); }).reason(), "cannot unmount volume");
  EXPECT_TRUE(at(point)->isEqual(*covering));
}

TEST_F(RealVolumes, ThatVanishAreNotMistakenForWhatIsBelow) {
  auto point = volumes_->make("tmpfs", "t");
  auto volume = at(point);
  auto size = volume->freeBytes();
  volumes_->detach(point);
  LogRecorder log;
  volume->reloadStats();
  volume->reloadSizes();
  EXPECT_EQ(log.texts(classification::Debug).size(), 2u);
  EXPECT_EQ(volume->freeBytes(), size);
  EXPECT_EQ(std::string(volume->cFilesystemType()), "tmpfs");
  EXPECT_EQ(volume->nsAttributes(), std::nullopt);
  EXPECT_EQ(volume->wholeDeviceIdentifier(), 0u);
}

TEST_F(RealVolumes, CanHaveAFileAsMountPoint) {
  auto file = volumes_->folder().write("file", "content");
  auto bound = volumes_->bind(file, "over");
  auto volume = at(bound);
  EXPECT_EQ(volume->path(), bound);
  EXPECT_FALSE(volume->rootDirectory());
  EXPECT_TRUE(listed(bound));
  EXPECT_EQ(volume->relativePathOfPath(PXPath::initWithCPath(bound)), "");
}

TEST_F(RealVolumes, KeepMountPointsThatAreNoTextThroughCoding) {
  PXVolumeInfo::registerClass();
  auto point = volumes_->newPoint("odd \xff\n name");
  volumes_->mount("tmpfs", point, "tmpfs", 0, "");
  auto volume = at(point);
  EXPECT_EQ(std::string(volume->cPath()), point);
  PlainKeyedEncoder keyed;
  volume->encodeWithCoder(keyed);
  EXPECT_EQ(keyed.fields.size(), 2u);
  PlainKeyedDecoder decoder(keyed.fields);
  EXPECT_TRUE(ClassRegistry::shared().find("PXVolumeInfo")->decode(decoder)->isEqual(*volume));
}

TEST_F(RealVolumes, AreNotTakenForOthersWhoseMountPointsAreShownAlike) {
  auto point = volumes_->newPoint("odd\xff"), other = volumes_->newPoint("odd\xfe");
  volumes_->mount("tmpfs", point, "tmpfs", 0, "");
  std::filesystem::create_directory(other + "/x");
  auto volume = at(point);
  EXPECT_EQ(volume->relativePathOfPath(PXPath::initWithCPath(other + "/x")), std::nullopt);
  EXPECT_EQ(volume->relativePathOfPath(PXPath::initWithCPath(point + "/x\xff")), "x\xef\xbf\xbd");
}

TEST_F(RealVolumes, OfTheKernelAreNotBrowsable) {
  EXPECT_FALSE(at("/proc")->isBrowsable());
  EXPECT_FALSE(at("/sys")->isBrowsable());
  auto browsable = PXVolumeInfo::browsableVolumes();
  EXPECT_TRUE(std::none_of(browsable.begin(), browsable.end(),
                           [](auto& volume) { return volume->path() == "/proc"; }));
}

TEST_F(RealVolumes, FindTheVolumeOfALinkWhereTheLinkIs) {
  auto point = volumes_->make("tmpfs", "t");
  ASSERT_EQ(::symlink("/etc", (point + "/link").c_str()), 0);
  auto link = PXFileInfo::infoForPath(point + "/link");
  EXPECT_EQ(link->volumeInfo()->path(), point);
  EXPECT_EQ(link->volumeRelativePath(), "link");
}

TEST_F(RealVolumes, LocateAPathThatReachesThemByAnotherMount) {
  auto point = volumes_->make("ext4", "e");
  std::filesystem::create_directories(point + "/sub/deep/deeper");
  auto bound = volumes_->bind(point + "/sub", "bound");
  auto volume = at(point);
  auto relative = [&](const std::string& path) {
    return volume->relativePathOfPath(PXPath::initWithCPath(path));
  };
  EXPECT_EQ(relative(bound + "/deep"), "deep");
  EXPECT_EQ(relative(bound + "/deep/deeper"), "deep/deeper");
  EXPECT_EQ(relative(bound), "");
}

TEST_F(RealVolumes, DoNotLocateAPathThatIsBelowNoMountOfTheirs) {
  // Up to the root, everything is on the same file system.
  auto bound = at(volumes_->bind("/", "bound"));
  ASSERT_TRUE(bound->isEqual(*at("/etc")));
  EXPECT_EQ(bound->relativePathOfPath(PXPath::initWithCPath("/etc")), std::nullopt);
  EXPECT_EQ(bound->relativePathOfPath(PXPath::initWithCPath("/")), std::nullopt);
}

TEST_F(RealVolumes, AnswerInAChrootWhoseRootIsNoMount) {
  auto point = volumes_->make("tmpfs", "t");
  ::mkdir((point + "/root").c_str(), 0755);
  ::mkdir((point + "/root/proc").c_str(), 0755);
  ::mkdir((point + "/root/sub").c_str(), 0755);
  volumes_->bind("/proc", "t/root/proc");
  pid_t child = ::fork();
  if (child == 0) {
    if (::chroot((point + "/root").c_str()) != 0 || ::chdir("/") != 0) ::_exit(1);
    try {
      auto volume = PXVolumeInfo::initWithPath("/sub");
      ::_exit(volume->path() == "/" && std::string(volume->cFilesystemType()) == "tmpfs" ? 0 : 2);
    } catch (...) {
      ::_exit(3);
    }
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST_F(RealVolumes, AnswerTheirAttributesAsTheFileManagerHasThem) {
  auto point = volumes_->make("tmpfs", "t");
  auto attributes = at(point)->nsAttributes();
  ASSERT_TRUE(attributes);
  EXPECT_EQ((*attributes)["NSFileSystemSize"].integerValue(), 64 << 20);
  EXPECT_TRUE(attributes->contains("NSFileSystemNodes"));
  auto result = attributesOfFileSystemForPath("/no such");
  EXPECT_FALSE(result.value);
  EXPECT_EQ(result.error->code(), ENOENT);
}

}  // namespace
}  // namespace hoist
