// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXVolumeInfo.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXSymbolicLink.h"
#include "platform/FileDescriptor.h"
#include "platform/ResourceValues.h"
#include "platform/volumes/FileSystemAttributes.h"
#include "platform/volumes/VolumeCalls.h"
#include "support/PlainCoders.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TestVolumes.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

using namespace volumes;

// Volumes that no machine has, described as a test likes.
class ImaginaryVolumes : public VolumeCalls {
 public:
  int getfsstat(std::vector<VolumeStatistics>* records) override {
    int error = records ? errorOfStats : errorOfCount;
    if (error != 0) return fail(error);
    if (records) *records = statistics;
    return static_cast<int>(statistics.size());
  }
  int statfs(const char*, VolumeStatistics& record) override {
    if (statistics.empty()) return fail(EIO);
    record = statistics.front();
    return 0;
  }
  int refresh(VolumeStatistics&) override { return fail(ESTALE); }
  int getattrlist(const VolumeStatistics& volume, VolumeAttributes& answer) override {
    if (volume.filesystemType == "bad") return fail(EIO);
    answer = attributes;
    return 0;
  }
  int getsizes(const VolumeStatistics&, VolumeAttributes& sizes) override {
    if (!newSizes) return fail(ESTALE);
    sizes = *newSizes;
    return 0;
  }
  int unmount(const VolumeStatistics&, bool forcibly) override {
    lastForcibly = forcibly;
    return fail(EBUSY);
  }

  std::vector<VolumeStatistics> statistics;
  VolumeAttributes attributes;
  std::optional<VolumeAttributes> newSizes;
  int errorOfCount = 0;
  int errorOfStats = 0;
  bool lastForcibly = false;

 private:
  static int fail(int error) {
    errno = error;
    return -1;
  }
};

class ImaginaryVolume : public testing::Test {
 protected:
  ImaginaryVolume() {
    calls_.statistics.push_back({.filesystemID = {0x8, 0xabc},
                                 .flags = MNT_FLAG_LOCAL,
                                 .blockSize = 512,
                                 .ioSize = 4096,
                                 .filesystemType = "ext4",
                                 .mountPoint = "/mnt/disk",
                                 .mountedFrom = "/dev/sdx1"});
  }
  Ref<PXVolumeInfo> volume() { return PXVolumeInfo::initWithPath("/mnt/disk/x"); }

  ImaginaryVolumes calls_;
  VolumeCallsOverride override_{calls_};
};

TEST_F(ImaginaryVolume, HasASyntheticIdentityWithoutAUUID) {
  EXPECT_EQ(volume()->uuidCStr(), nullptr);
  EXPECT_EQ(volume()->syntheticUUID(), "FSID-0008-0abc");
  calls_.statistics[0].filesystemID = {0x12345678, 0xfedcba98};
  EXPECT_EQ(volume()->syntheticUUID(), "FSID-12345678-fedcba98");
}

TEST_F(ImaginaryVolume, ShowsItsUUIDInUpperCase) {
  calls_.attributes.uuid = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef,
                            0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
  auto volume = this->volume();
  EXPECT_STREQ(volume->uuidCStr(), "01234567-89AB-CDEF-0123-456789ABCDEF");
  EXPECT_EQ(volume->syntheticUUID(), volume->uuidCStr());
  EXPECT_EQ(volume->uuidCStr(), volume->uuidCStr());
}

TEST_F(ImaginaryVolume, EqualsAnotherOfTheSameFileSystemAndHashesSignExtended) {
  auto a = volume();
  calls_.statistics[0].mountPoint = "/elsewhere";
  auto b = volume();
  EXPECT_TRUE(a->isEqual(*b));
  EXPECT_EQ(a->hash(), b->hash());
  EXPECT_EQ(a->hash(), (std::size_t{0xabc} << 32) + 8);
  calls_.statistics[0].filesystemID = {0x80000001, 2};
  EXPECT_FALSE(a->isEqual(*volume()));
  EXPECT_EQ(volume()->hash(), 0xFFFFFFFF80000001 + (std::size_t{2} << 32));
  EXPECT_FALSE(a->isEqual(*a->pathObject()));
}

TEST_F(ImaginaryVolume, IsNamedByItsLabelOrElseByItsMountPoint) {
  EXPECT_EQ(volume()->name(), "disk");
  calls_.attributes.name = "Label";
  auto volume = this->volume();
  EXPECT_EQ(volume->name(), "Label");
  EXPECT_STREQ(volume->cName(), "Label");
  EXPECT_EQ(volume->path(), "/mnt/disk");
  EXPECT_EQ(volume->url(), "file:///mnt/disk");
  EXPECT_EQ(volume->displayPath(), "Label:");
  EXPECT_EQ(volume->description(), "PXVolumeInfo(\"Label\",/mnt/disk)");
  EXPECT_EQ(volume->deviceName(), "/dev/sdx1");
  EXPECT_STREQ(volume->cDeviceName(), "/dev/sdx1");
  EXPECT_STREQ(volume->cFilesystemType(), "ext4");
  EXPECT_EQ(volume->blockSize(), 512u);
  EXPECT_EQ(volume->optimalXferSize(), 4096u);
}

TEST_F(ImaginaryVolume, HasAsMuchAvailableAsFreeWhenNothingElseIsKnown) {
  calls_.attributes.totalBytes = 1000;
  calls_.attributes.freeBytes = 500;
  calls_.attributes.availableBytes = 0;
  EXPECT_EQ(volume()->totalBytes(), 1000u);
  EXPECT_EQ(volume()->freeBytes(), 500u);
  EXPECT_EQ(volume()->availableBytes(), 500u);
  calls_.attributes.availableBytes = 400;
  EXPECT_EQ(volume()->availableBytes(), 400u);
}

TEST_F(ImaginaryVolume, KnowsALimitOfItsFiles) {
  EXPECT_EQ(volume()->maxFileSize(), 4294967296u);
  calls_.attributes.capabilities = {.format = 0x800, .validFormat = 0x800};
  EXPECT_EQ(volume()->maxFileSize(), 0u);
  calls_.statistics[0].mountPoint = "/";
  EXPECT_GT(volume()->maxFileSize(), 4294967296u);
}

TEST_F(ImaginaryVolume, TellsHowItIsMounted) {
  auto set = [&](std::uint32_t flags) {
    calls_.statistics[0].flags = flags;
    return volume();
  };
  auto plain = set(0);
  EXPECT_TRUE(plain->isWritable() && plain->allowsExec() && plain->allowsSUID());
  EXPECT_TRUE(plain->usesOwnership() && plain->isBrowsable());
  EXPECT_FALSE(plain->isLocal());
  EXPECT_FALSE(set(1 << 0)->isWritable());
  EXPECT_FALSE(set(1 << 2)->allowsExec());
  EXPECT_FALSE(set(1 << 3)->allowsSUID());
  EXPECT_TRUE(set(1 << 12)->isLocal());
  EXPECT_FALSE(set(1 << 20)->isBrowsable());
  EXPECT_FALSE(set(1 << 21)->usesOwnership());
}

TEST_F(ImaginaryVolume, HasACapabilityWhenAllItsBitsAreValidAndSet) {
  calls_.attributes.capabilities = {
      .format = 0x7, .interfaces = 0x40002, .validFormat = 0x3, .validInterfaces = 0xFFFFF};
  auto volume = this->volume();
  EXPECT_TRUE(volume->hasPersistentObjects());
  EXPECT_TRUE(volume->hasSymbolicLinks());
  EXPECT_FALSE(volume->hasHardLinks());
  EXPECT_TRUE(volume->hasFormatCapability(0x3));
  EXPECT_FALSE(volume->hasFormatCapability(0x7));
  EXPECT_TRUE(volume->hasVolumeSizes());
  EXPECT_TRUE(volume->hasGetAttrList() && volume->hasSwapping());
  EXPECT_FALSE(volume->hasExchangeData());
  calls_.attributes.capabilities.format = calls_.attributes.capabilities.validFormat = 0x8000;
  EXPECT_FALSE(this->volume()->hasVolumeSizes());
}

TEST_F(ImaginaryVolume, SupportsAttributesWhenEveryBitIsThere) {
  calls_.attributes.validAttributes = {.common = 0x7, .volume = 0x3, .directory = 0x1, .file = 0x2};
  calls_.attributes.nativeAttributes = {.common = 0x1, .volume = 0x2};
  auto volume = this->volume();
  EXPECT_TRUE(volume->supportsTheseCommonAttributes(0x5));
  EXPECT_FALSE(volume->supportsTheseCommonAttributes(0x9));
  EXPECT_FALSE(volume->supportsTheseCommonAttributesNatively(0x5));
  EXPECT_TRUE(volume->supportsTheseCommonAttributesNatively(0x1));
  EXPECT_TRUE(volume->supportsTheseVolumeAttributes(0x1));
  EXPECT_TRUE(volume->supportsTheseVolumeAttributesNatively(0x2));
  EXPECT_TRUE(volume->supportsTheseDirectoryAttributes(0x1));
  EXPECT_FALSE(volume->supportsTheseDirectoryAttributesNatively(0x1));
  EXPECT_TRUE(volume->supportsTheseFileAttributes(0x2));
  EXPECT_FALSE(volume->supportsTheseFileAttributesNatively(0x2));
}

TEST_F(ImaginaryVolume, LeavesOutOfTheListWhatCannotBeDescribedAndGoesOn) {
  calls_.statistics.push_back({.filesystemType = "bad", .mountPoint = "/bad"});
  calls_.statistics.push_back(
      {.flags = MNT_FLAG_DONTBROWSE, .filesystemType = "proc", .mountPoint = "/proc"});
  LogRecorder log;
  auto all = PXVolumeInfo::allVolumes();
  ASSERT_EQ(all.size(), 2u);
  EXPECT_EQ(all[0]->path(), "/mnt/disk");
  EXPECT_EQ(all[1]->path(), "/proc");
  ASSERT_FALSE(log.lines().empty());
  EXPECT_EQ(log.lines()[0].classification, classification::Debug);
  EXPECT_EQ(log.lines()[0].text, "problem getting volume attributes");
  EXPECT_EQ(PXVolumeInfo::browsableVolumes().size(), 1u);
}

TEST_F(ImaginaryVolume, RaisesWhatGoesWrongInMakingAndListing) {
  calls_.statistics[0].filesystemType = "bad";
  auto attributes = raisedBy([&] { volume(); });
  EXPECT_EQ(attributes.name(), "IO");
  EXPECT_EQ(attributes.reason(), "problem getting volume attributes");
  EXPECT_EQ(detailOf(attributes, "Path"), "/mnt/disk");
  EXPECT_EQ(detailOf(attributes, "POSIXErr"), std::to_string(EIO));
  calls_.statistics.clear();
  auto statistics = raisedBy([&] { volume(); });
  EXPECT_EQ(statistics.reason(), "problem getting volume statfs");
  EXPECT_EQ(detailOf(statistics, "Path"), "/mnt/disk/x");
  calls_.errorOfStats = EIO;
  EXPECT_EQ(raisedBy([&] { PXVolumeInfo::allVolumes(); }).reason(),
            "cannot get stats of mounted volumes");
  calls_.errorOfCount = EIO;
  EXPECT_EQ(raisedBy([&] { PXVolumeInfo::allVolumes(); }).reason(),
            "cannot get count of mounted volumes");
}

TEST_F(ImaginaryVolume, RaisesWhenItCannotBeUnmounted) {
  calls_.attributes.name = "Label";
  auto volume = this->volume();
  auto exception = raisedBy([&] { volume->unmountForcibly(true); });
  EXPECT_EQ(exception.reason(), "cannot unmount volume");
  EXPECT_EQ(detailOf(exception, "name"), "Label");
  EXPECT_EQ(detailOf(exception, "Path"), "/mnt/disk");
  EXPECT_EQ(detailOf(exception, "forcably"), "1");
  EXPECT_TRUE(calls_.lastForcibly);
  EXPECT_EQ(detailOf(raisedBy([&] { volume->unmount(); }), "forcably"), "0");
  EXPECT_FALSE(calls_.lastForcibly);
}

TEST_F(ImaginaryVolume, KeepsWhatItKnowsWhenAReloadFails) {
  calls_.attributes.freeBytes = 500;
  auto volume = this->volume();
  LogRecorder log;
  volume->reloadStats();
  volume->reloadSizes();
  auto stale = std::to_string(ESTALE) + "(" + std::strerror(ESTALE) + ")";
  EXPECT_EQ(
      log.texts(classification::Debug),
      (std::vector<std::string>{
          "-[PXVolumeInfo reloadStats] problem getting stats for device /mnt/disk: " + stale,
          "-[PXVolumeInfo reloadSizes] problem getting sizes for device /mnt/disk: " + stale}));
  EXPECT_EQ(volume->freeBytes(), 500u);
  EXPECT_EQ(volume->blockSize(), 512u);
  calls_.newSizes = VolumeAttributes{.freeBytes = 7, .availableBytes = 6};
  volume->reloadSizes();
  EXPECT_EQ(volume->freeBytes(), 7u);
  EXPECT_EQ(volume->availableBytes(), 6u);
}

TEST_F(ImaginaryVolume, CopiesItsFactsButNotItsRoot) {
  calls_.attributes.uuid = {1};
  calls_.attributes.freeBytes = 500;
  calls_.attributes.createdTime = {12, 34};
  auto volume = this->volume();
  volume->uuidCStr();
  auto copy = volume->copy();
  EXPECT_TRUE(copy->isEqual(*volume));
  EXPECT_EQ(copy->pathObject(), volume->pathObject());
  EXPECT_STREQ(copy->uuidCStr(), volume->uuidCStr());
  EXPECT_NE(copy->uuidCStr(), volume->uuidCStr());
  EXPECT_EQ(copy->freeBytes(), 500u);
  EXPECT_EQ(copy->createdDate(), Date(12, 34));
}

TEST_F(ImaginaryVolume, HasNoDataVolume) {
  EXPECT_FALSE(volume()->dataVolumeInfo());
}

TEST(VolumeCoding, MakesTheVolumeAnewFromItsMountPoint) {
  PXVolumeInfo::registerClass();
  auto volume = PXVolumeInfo::initWithPath("/proc/self");
  auto decode = ClassRegistry::shared().find("PXVolumeInfo")->decode;
  PlainKeyedEncoder keyed;
  volume->encodeWithCoder(keyed);
  EXPECT_EQ(keyed.fields, (Dictionary{{"mountpoint", "/proc"}}));
  PlainKeyedDecoder keyedDecoder(keyed.fields);
  EXPECT_TRUE(decode(keyedDecoder)->isEqual(*volume));
  PlainSequence sequence;
  volume->encodeWithCoder(sequence);
  EXPECT_EQ(sequence.values.size(), 1u);
  PlainSequenceReader reader(sequence.values);
  EXPECT_TRUE(decode(reader)->isEqual(*volume));
}

TEST(VolumeCoding, RefusesAVolumeThatIsNotHere) {
  PXVolumeInfo::registerClass();
  auto decode = ClassRegistry::shared().find("PXVolumeInfo")->decode;
  PlainKeyedDecoder gone(Dictionary{{"mountpoint", "/no such place"}});
  EXPECT_THROW(decode(gone), DecodeError);
  PlainKeyedDecoder empty({});
  EXPECT_THROW(decode(empty), DecodeError);
}

// ---- Real ones ----

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
  ::mkdir((point + "/sub").c_str(), 0755);
  std::ofstream(point + "/sub/x") << "x";
  auto bound = volumes_->bind(point + "/sub", "bound");
  EXPECT_EQ(at(point)->relativePathOfPath(PXPath::initWithCPath(bound + "/x")), "x");
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
