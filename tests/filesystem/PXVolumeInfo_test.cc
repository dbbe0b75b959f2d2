// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXVolumeInfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "filesystem/PXPath.h"
#include "platform/volumes/VolumeCalls.h"
#include "support/PlainCoders.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
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
    ++asked;
    if (statistics.empty()) return fail(EIO);
    record = statistics.front();
    return 0;
  }
  int refresh(VolumeStatistics& record) override {
    if (!newStatistics) return fail(ESTALE);
    record = *newStatistics;
    return 0;
  }
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
  std::optional<VolumeStatistics> newStatistics;
  std::optional<VolumeAttributes> newSizes;
  std::atomic<int> asked = 0;
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
  // Whose files can have 32 bits, as far as the system knows.
  calls_.statistics[0].mountPoint = "/proc";
  EXPECT_EQ(volume()->maxFileSize(), 4294967295u);
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

TEST_F(ImaginaryVolume, HasEachCapabilityByItsOwnBit) {
  using Fact = bool (PXVolumeInfo::*)() const;
  using V = PXVolumeInfo;
  const std::vector<std::pair<std::uint32_t, Fact>> format = {
      {0x1, &V::hasPersistentObjects}, {0x2, &V::hasSymbolicLinks},
      {0x4, &V::hasHardLinks},         {0x8, &V::hasJournal},
      {0x10, &V::hasActiveJournal},    {0x20, &V::hasUnreliableRootTimes},
      {0x40, &V::hasSparseFiles},      {0x80, &V::hasZeroRuns},
      {0x100, &V::isCaseSensitive},    {0x200, &V::isCasePreserving},
      {0x400, &V::hasFastStatfs},      {0x800, &V::has2TBFiles},
      {0x1000, &V::hasOpenDeny},       {0x2000, &V::hasHiddenFiles},
      {0x4000, &V::hasPathFromID},     {0x20000, &V::has64BitObjects}};
  const std::vector<std::pair<std::uint32_t, Fact>> interfaces = {
      {0x2, &V::hasGetAttrList},
      {0x8, &V::hasGetDirEntriesAttr},
      {0x10, &V::hasExchangeData},
      {0x40, &V::hasPreallocation},
      {0x80, &V::canRename},
      {0x100, &V::hasAdvisoryLocking},
      {0x200, &V::hasFileLocking},
      {0x400, &V::hasACLs},
      {0x800, &V::hasUserAccess},
      {0x1000, &V::hasMandatoryLocking},
      {0x4000, &V::hasExtendedAttributes},
      {0x10000, &V::hasFileCloning},
      {0x20000, &V::hasSnapshots},
      {0x40000, &V::hasSwapping},
      {0x80000, &V::hasExclusiveRenaming}};
  constexpr std::uint32_t kAll = ~0U;
  auto trueOf = [](const V& volume, auto& facts) {
    std::uint32_t bits = 0;
    for (auto [bit, fact] : facts) {
      if ((volume.*fact)()) bits |= bit;
    }
    return bits;
  };
  for (auto [bit, fact] : format) {
    calls_.attributes.capabilities = {.format = bit, .validFormat = kAll, .validInterfaces = kAll};
    EXPECT_EQ(trueOf(*volume(), format), bit);
    EXPECT_EQ(trueOf(*volume(), interfaces), 0u);
    calls_.attributes.capabilities.validFormat = kAll & ~bit;
    EXPECT_EQ(trueOf(*volume(), format), 0u);
  }
  for (auto [bit, fact] : interfaces) {
    calls_.attributes.capabilities = {
        .interfaces = bit, .validFormat = kAll, .validInterfaces = kAll};
    EXPECT_EQ(trueOf(*volume(), interfaces), bit);
    EXPECT_EQ(trueOf(*volume(), format), 0u);
    calls_.attributes.capabilities.validInterfaces = kAll & ~bit;
    EXPECT_EQ(trueOf(*volume(), interfaces), 0u);
  }
  calls_.attributes.capabilities = {.format = 0x8000, .validFormat = 0};
  EXPECT_TRUE(volume()->hasVolumeSizes());
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

TEST_F(ImaginaryVolume, ReadsItsStatisticsAnew) {
  auto volume = this->volume();
  calls_.newStatistics = calls_.statistics[0];
  calls_.newStatistics->flags = MNT_FLAG_RDONLY;
  EXPECT_TRUE(volume->isWritable());
  volume->reloadStats();
  EXPECT_FALSE(volume->isWritable());
}

TEST_F(ImaginaryVolume, AsksForTheFileManagersAttributesOnceAndAfterAReloadAgain) {
  auto volume = this->volume();
  calls_.asked = 0;
  EXPECT_EQ((*volume->nsAttributes())["NSFileSystemNumber"].integerValue(), 8);
  EXPECT_EQ(volume->wholeDeviceIdentifier(), 8u);
  EXPECT_EQ(calls_.asked, 1);
  volume->reloadSizes();
  EXPECT_TRUE(volume->nsAttributes());
  EXPECT_EQ(calls_.asked, 2);
  volume->reloadStats();
  EXPECT_TRUE(volume->nsAttributes());
  EXPECT_EQ(calls_.asked, 3);
  EXPECT_TRUE(volume->copy()->nsAttributes());
  EXPECT_EQ(calls_.asked, 3);
}

TEST_F(ImaginaryVolume, HasNoFileManagersAttributesUntilTheyCanBeHad) {
  auto volume = this->volume();
  auto kept = std::exchange(calls_.statistics, {});
  LogRecorder log;
  EXPECT_EQ(volume->nsAttributes(), std::nullopt);
  EXPECT_EQ(volume->wholeDeviceIdentifier(), 0u);
  auto texts = log.texts(classification::Debug);
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_THAT(texts[0],
              testing::StartsWith("-[PXVolumeInfo nsAttributes] problem obtaining NSFileManager "
                                  "attributes for filesystem at /mnt/disk: "));
  calls_.statistics = kept;
  EXPECT_TRUE(volume->nsAttributes());
}

TEST_F(ImaginaryVolume, CopiesItsFactsButNotItsRoot) {
  calls_.attributes.uuid = {1};
  calls_.attributes.freeBytes = 500;
  calls_.attributes.availableBytes = 400;
  calls_.attributes.totalBytes = 1000;
  calls_.attributes.createdTime = {12, 34};
  calls_.attributes.capabilities = {
      .format = 0x1, .interfaces = 0x2, .validFormat = 0x1, .validInterfaces = 0x2};
  calls_.attributes.validAttributes.common = 0x3;
  calls_.attributes.nativeAttributes.common = 0x1;
  auto volume = this->volume();
  volume->uuidCStr();
  auto copy = volume->copy();
  EXPECT_TRUE(copy->isEqual(*volume));
  EXPECT_EQ(copy->pathObject(), volume->pathObject());
  EXPECT_STREQ(copy->uuidCStr(), volume->uuidCStr());
  EXPECT_NE(copy->uuidCStr(), volume->uuidCStr());
  EXPECT_EQ(copy->freeBytes(), 500u);
  EXPECT_EQ(copy->availableBytes(), 400u);
  EXPECT_EQ(copy->totalBytes(), 1000u);
  EXPECT_EQ(copy->createdDate(), Date(12, 34));
  EXPECT_EQ(copy->deviceName(), "/dev/sdx1");
  EXPECT_TRUE(copy->hasPersistentObjects() && copy->hasGetAttrList());
  EXPECT_TRUE(copy->supportsTheseCommonAttributes(0x3));
  EXPECT_TRUE(copy->supportsTheseCommonAttributesNatively(0x1));
  EXPECT_FALSE(copy->supportsTheseCommonAttributesNatively(0x3));
}

TEST_F(ImaginaryVolume, IsAskedAndCopiedByManyThreadsAtOnce) {
  calls_.attributes.uuid = {1};
  calls_.attributes.freeBytes = 500;
  auto volume = this->volume();
  calls_.asked = 0;
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      auto copy = volume->copy();
      bool same = volume->uuidCStr() == volume->uuidCStr() &&
                  copy->syntheticUUID() == volume->syntheticUUID() &&
                  copy->deviceName() == volume->deviceName() &&
                  volume->nsAttributes() == volume->nsAttributes();
      if (same && volume->availableBytes() == 500) ++right;
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(right, 8);
  EXPECT_EQ(calls_.asked, 1);
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

}  // namespace
}  // namespace hoist
