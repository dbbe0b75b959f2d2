// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Mutex.h"
#include "platform/volumes/VolumeRecords.h"
#include "values/Coder.h"
#include "values/Date.h"
#include "values/Object.h"

namespace hoist {

class PXDirectory;
class PXPath;

// One mounted volume: its sizes, name, identity and what it can do. The facts are those of the
// moment when it was made, but for what reloadStats and reloadSizes read again.
//
// rootDirectory and the reloads: one object from one thread at a time. Everything else is safe from
// any thread.
class PXVolumeInfo : public Object {
  struct Private {
    explicit Private() = default;
  };

 public:
  explicit PXVolumeInfo(Private) {}

  // Every mounted volume; those meant for a file browser. A volume that cannot be described is
  // logged for debugging and left out. Raise "IO" / "cannot get count of mounted volumes" or
  // "cannot get stats of mounted volumes".
  static std::vector<Ref<PXVolumeInfo>> allVolumes();
  static std::vector<Ref<PXVolumeInfo>> browsableVolumes();
  // The volume that holds the item at the path. Raise as initWithPath.
  static Ref<PXVolumeInfo> volumeInfoForPath(std::string_view path);
  static Ref<PXVolumeInfo> volumeInfoForPathObject(const PXPath& path);
  // Raises "IO" / "problem getting volume statfs" or "problem getting volume attributes".
  static Ref<PXVolumeInfo> initWithPath(const char* cPath) {
    return initWithPathOrStat(cPath, nullptr);
  }
  // One of the two is given.
  static Ref<PXVolumeInfo> initWithPathOrStat(const char* cPath,
                                              const volumes::VolumeStatistics* statistics);

  // ---- Where ----
  // The mount point, under the volume's name.
  const Ref<PXPath>& pathObject() const { return pathObj_; }
  const char* cName() const;
  const char* cPath() const;
  std::string name() const;
  std::string displayName() const;
  std::string path() const;
  std::string url() const;
  // The display name and ":".
  std::string displayPath() const;
  // Null when a file is mounted over a file.
  Ref<PXDirectory> rootDirectory() const;
  // Always null: no volume is split on Linux.
  Ref<PXVolumeInfo> dataVolumeInfo() const { return nullptr; }
  // Where on the volume the path is; nothing when it is on another one. Raises what making the
  // volumes of the path and its parents raises.
  std::optional<std::string> relativePathOfPath(const Ref<PXPath>& path) const;

  // ---- Identity ----
  volumes::FilesystemID filesystemID() const { return stat_.filesystemID; }
  // The device, as the file system's attributes have it; 0 when they cannot be had.
  std::uint64_t wholeDeviceIdentifier() const;
  const char* cDeviceName() const { return stat_.mountedFrom.c_str(); }
  std::string deviceName() const;
  const char* cFilesystemType() const { return stat_.filesystemType.c_str(); }
  // All zero when the volume has none.
  const std::array<std::uint8_t, 16>& uuid() const { return uuid_; }
  // 36 characters in upper case; null without a UUID. Valid as long as the object.
  const char* uuidCStr() const;
  // The same; without a UUID "FSID-" and the two halves of the file-system ID.
  std::string syntheticUUID() const;
  timespec createdTimeSpec() const { return createTimeSpec_; }
  Date createdDate() const { return Date::fromTimeSpec(createTimeSpec_); }

  // ---- Sizes, in bytes ----
  std::uint64_t totalBytes() const { return totalBytes_; }
  std::uint64_t freeBytes() const;
  // To ordinary users; what is free when that is not known.
  std::uint64_t availableBytes() const;
  std::uint64_t blockSize() const { return stat_.blockSize; }
  std::uint64_t optimalXferSize() const { return stat_.ioSize; }
  std::uint64_t maxFileSize() const;
  // What the file manager knows of the file system: sizes, nodes and number; nothing, and a line
  // for debugging, when it cannot be asked.
  std::optional<Dictionary> nsAttributes() const;

  // Read again; trouble is logged for debugging and leaves what was known.
  void reloadStats();
  void reloadSizes();

  // Raises "IO" / "cannot unmount volume". Never says it did while the volume is still mounted.
  void unmount() { unmountForcibly(false); }
  void unmountForcibly(bool forcibly);

  // ---- How it is mounted ----
  std::uint32_t flags() const { return stat_.flags; }
  bool isWritable() const { return !hasFlag(volumes::MNT_FLAG_RDONLY); }
  bool isLocal() const { return hasFlag(volumes::MNT_FLAG_LOCAL); }
  bool allowsExec() const { return !hasFlag(volumes::MNT_FLAG_NOEXEC); }
  bool allowsSUID() const { return !hasFlag(volumes::MNT_FLAG_NOSUID); }
  bool usesOwnership() const { return !hasFlag(volumes::MNT_FLAG_IGNORE_OWNERSHIP); }
  bool isBrowsable() const { return !hasFlag(volumes::MNT_FLAG_DONTBROWSE); }

  // ---- What it can do ----
  // All of the bits, valid and set.
  bool hasFormatCapability(std::uint32_t bits) const {
    return (capabilities_.format & capabilities_.validFormat & bits) == bits;
  }
  bool hasInterfaceCapability(std::uint32_t bits) const {
    return (capabilities_.interfaces & capabilities_.validInterfaces & bits) == bits;
  }
  const volumes::Capabilities& capabilities() const { return capabilities_; }

  bool hasPersistentObjects() const { return hasFormatCapability(0x1); }
  bool hasSymbolicLinks() const { return hasFormatCapability(0x2); }
  bool hasHardLinks() const { return hasFormatCapability(0x4); }
  bool hasJournal() const { return hasFormatCapability(0x8); }
  bool hasActiveJournal() const { return hasFormatCapability(0x10); }
  bool hasUnreliableRootTimes() const { return hasFormatCapability(0x20); }
  bool hasSparseFiles() const { return hasFormatCapability(0x40); }
  bool hasZeroRuns() const { return hasFormatCapability(0x80); }
  bool isCaseSensitive() const { return hasFormatCapability(0x100); }
  bool isCasePreserving() const { return hasFormatCapability(0x200); }
  bool hasFastStatfs() const { return hasFormatCapability(0x400); }
  bool has2TBFiles() const { return hasFormatCapability(0x800); }
  bool hasOpenDeny() const { return hasFormatCapability(0x1000); }
  bool hasHiddenFiles() const { return hasFormatCapability(0x2000); }
  bool hasPathFromID() const { return hasFormatCapability(0x4000); }
  bool hasVolumeSizes() const { return !hasFormatCapability(0x8000); }
  bool has64BitObjects() const { return hasFormatCapability(0x20000); }
  bool hasGetAttrList() const { return hasInterfaceCapability(0x2); }
  bool hasGetDirEntriesAttr() const { return hasInterfaceCapability(0x8); }
  bool hasExchangeData() const { return hasInterfaceCapability(0x10); }
  bool hasPreallocation() const { return hasInterfaceCapability(0x40); }
  bool canRename() const { return hasInterfaceCapability(0x80); }
  bool hasAdvisoryLocking() const { return hasInterfaceCapability(0x100); }
  bool hasFileLocking() const { return hasInterfaceCapability(0x200); }
  bool hasACLs() const { return hasInterfaceCapability(0x400); }
  bool hasUserAccess() const { return hasInterfaceCapability(0x800); }
  bool hasMandatoryLocking() const { return hasInterfaceCapability(0x1000); }
  bool hasExtendedAttributes() const { return hasInterfaceCapability(0x4000); }
  bool hasFileCloning() const { return hasInterfaceCapability(0x10000); }
  bool hasSnapshots() const { return hasInterfaceCapability(0x20000); }
  bool hasSwapping() const { return hasInterfaceCapability(0x40000); }
  bool hasExclusiveRenaming() const { return hasInterfaceCapability(0x80000); }

  // Whether the items have every attribute of the mask; whether the volume keeps them itself.
  bool supportsTheseCommonAttributes(std::uint32_t mask) const {
    return (validAttributes_.common & mask) == mask;
  }
  bool supportsTheseVolumeAttributes(std::uint32_t mask) const {
    return (validAttributes_.volume & mask) == mask;
  }
  bool supportsTheseDirectoryAttributes(std::uint32_t mask) const {
    return (validAttributes_.directory & mask) == mask;
  }
  bool supportsTheseFileAttributes(std::uint32_t mask) const {
    return (validAttributes_.file & mask) == mask;
  }
  bool supportsTheseCommonAttributesNatively(std::uint32_t mask) const {
    return (nativeAttributes_.common & mask) == mask;
  }
  bool supportsTheseVolumeAttributesNatively(std::uint32_t mask) const {
    return (nativeAttributes_.volume & mask) == mask;
  }
  bool supportsTheseDirectoryAttributesNatively(std::uint32_t mask) const {
    return (nativeAttributes_.directory & mask) == mask;
  }
  bool supportsTheseFileAttributesNatively(std::uint32_t mask) const {
    return (nativeAttributes_.file & mask) == mask;
  }

  // A new object with the same facts, without root directory.
  Ref<PXVolumeInfo> copy() const;

  std::string className() const override { return "PXVolumeInfo"; }
  // "PXVolumeInfo("DISPLAY NAME",PATH)".
  std::string description() const override;
  // The same file-system ID.
  bool isEqual(const Object& other) const override;
  std::size_t hash() const override;

  bool isCodable() const override { return true; }
  // The mount point alone, under "mountpoint" when keyed: whoever decodes it asks the volume anew.
  // A mount point that is no text goes as bytes beside it.
  void encodeWithCoder(Encoder& encoder) const override;
  static void registerClass();

 private:
  bool hasFlag(std::uint32_t flag) const { return (stat_.flags & flag) != 0; }
  void describe();

  Ref<PXPath> pathObj_;
  mutable Ref<PXDirectory> rootDirectory_;
  volumes::VolumeStatistics stat_;
  std::uint64_t totalBytes_ = 0;
  timespec createTimeSpec_{};
  volumes::Capabilities capabilities_;
  volumes::AttributeSets validAttributes_;
  volumes::AttributeSets nativeAttributes_;
  std::array<std::uint8_t, 16> uuid_{};

  mutable SpinLock propLock_;
  std::uint64_t freeBytes_ GUARDED_BY(propLock_) = 0;
  std::uint64_t availBytes_ GUARDED_BY(propLock_) = 0;
  mutable std::optional<std::string> deviceName_ GUARDED_BY(propLock_);
  mutable std::optional<Dictionary> nsAttributes_ GUARDED_BY(propLock_);
  mutable std::unique_ptr<std::array<char, 37>> uuidStr_ GUARDED_BY(propLock_);
};

}  // namespace hoist
