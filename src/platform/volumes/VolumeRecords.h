// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace hoist::volumes {

// Mount flags, with the original platform's bits (its sys/mount.h).
inline constexpr std::uint32_t MNT_FLAG_RDONLY = 0x1;
inline constexpr std::uint32_t MNT_FLAG_NOEXEC = 0x4;
inline constexpr std::uint32_t MNT_FLAG_NOSUID = 0x8;
inline constexpr std::uint32_t MNT_FLAG_NODEV = 0x10;
inline constexpr std::uint32_t MNT_FLAG_LOCAL = 0x1000;
inline constexpr std::uint32_t MNT_FLAG_ROOTFS = 0x4000;
inline constexpr std::uint32_t MNT_FLAG_DONTBROWSE = 0x100000;
inline constexpr std::uint32_t MNT_FLAG_IGNORE_OWNERSHIP = 0x200000;
inline constexpr std::uint32_t MNT_FLAG_JOURNALED = 0x800000;
inline constexpr std::uint32_t MNT_FLAG_NOATIME = 0x10000000;

// Capability bits, likewise (its sys/attr.h): the format word.
inline constexpr std::uint32_t VOL_CAP_FMT_PERSISTENTOBJECTIDS = 0x1;
inline constexpr std::uint32_t VOL_CAP_FMT_SYMBOLICLINKS = 0x2;
inline constexpr std::uint32_t VOL_CAP_FMT_HARDLINKS = 0x4;
inline constexpr std::uint32_t VOL_CAP_FMT_JOURNAL = 0x8;
inline constexpr std::uint32_t VOL_CAP_FMT_JOURNAL_ACTIVE = 0x10;
inline constexpr std::uint32_t VOL_CAP_FMT_NO_ROOT_TIMES = 0x20;
inline constexpr std::uint32_t VOL_CAP_FMT_SPARSE_FILES = 0x40;
inline constexpr std::uint32_t VOL_CAP_FMT_ZERO_RUNS = 0x80;
inline constexpr std::uint32_t VOL_CAP_FMT_CASE_SENSITIVE = 0x100;
inline constexpr std::uint32_t VOL_CAP_FMT_CASE_PRESERVING = 0x200;
inline constexpr std::uint32_t VOL_CAP_FMT_FAST_STATFS = 0x400;
inline constexpr std::uint32_t VOL_CAP_FMT_2TB_FILESIZE = 0x800;
inline constexpr std::uint32_t VOL_CAP_FMT_OPENDENYMODES = 0x1000;
inline constexpr std::uint32_t VOL_CAP_FMT_HIDDEN_FILES = 0x2000;
inline constexpr std::uint32_t VOL_CAP_FMT_PATH_FROM_ID = 0x4000;
inline constexpr std::uint32_t VOL_CAP_FMT_NO_VOLUME_SIZES = 0x8000;
inline constexpr std::uint32_t VOL_CAP_FMT_64BIT_OBJECT_IDS = 0x20000;

// The interfaces word.
inline constexpr std::uint32_t VOL_CAP_INT_ATTRLIST = 0x2;
inline constexpr std::uint32_t VOL_CAP_INT_READDIRATTR = 0x8;
inline constexpr std::uint32_t VOL_CAP_INT_EXCHANGEDATA = 0x10;
inline constexpr std::uint32_t VOL_CAP_INT_ALLOCATE = 0x40;
inline constexpr std::uint32_t VOL_CAP_INT_VOL_RENAME = 0x80;
inline constexpr std::uint32_t VOL_CAP_INT_ADVLOCK = 0x100;
inline constexpr std::uint32_t VOL_CAP_INT_FLOCK = 0x200;
inline constexpr std::uint32_t VOL_CAP_INT_EXTENDED_SECURITY = 0x400;
inline constexpr std::uint32_t VOL_CAP_INT_USERACCESS = 0x800;
inline constexpr std::uint32_t VOL_CAP_INT_MANLOCK = 0x1000;
inline constexpr std::uint32_t VOL_CAP_INT_EXTENDED_ATTR = 0x4000;
inline constexpr std::uint32_t VOL_CAP_INT_CLONE = 0x10000;
inline constexpr std::uint32_t VOL_CAP_INT_SNAPSHOT = 0x20000;
inline constexpr std::uint32_t VOL_CAP_INT_RENAME_SWAP = 0x40000;
inline constexpr std::uint32_t VOL_CAP_INT_RENAME_EXCL = 0x80000;

// Volume attributes of a request, and of the returned set.
inline constexpr std::uint32_t ATTR_VOL_SIZE = 0x4;
inline constexpr std::uint32_t ATTR_VOL_SPACEFREE = 0x8;
inline constexpr std::uint32_t ATTR_VOL_SPACEAVAIL = 0x10;
inline constexpr std::uint32_t ATTR_VOL_NAME = 0x2000;
inline constexpr std::uint32_t ATTR_VOL_CAPABILITIES = 0x20000;
inline constexpr std::uint32_t ATTR_VOL_UUID = 0x40000;
inline constexpr std::uint32_t ATTR_VOL_ATTRIBUTES = 0x40000000;
inline constexpr std::uint32_t ATTR_VOL_INFO = 0x80000000;

// The identity of a file system as long as it is mounted: the device of the mount's root and a
// digest of the type. What the kernel calls so is zero for every FUSE mount, equal for a copied
// image and different inside a subvolume; this is equal for bind mounts and different for
// everything else.
struct FilesystemID {
  std::uint32_t device = 0;
  std::uint32_t typeDigest = 0;
  friend bool operator==(const FilesystemID&, const FilesystemID&) = default;
};

// The statistics of one mounted volume.
struct VolumeStatistics {
  FilesystemID filesystemID;
  // Which mount it is, so that it is not mistaken for another one at the same place.
  std::uint64_t mountID = 0;
  std::uint32_t flags = 0;      // MNT_FLAG_ bits
  std::uint64_t blockSize = 0;  // bytes; the unit of the counts of blocks
  std::uint64_t ioSize = 0;     // bytes; the best size of a transfer
  std::uint64_t totalBlocks = 0;
  std::uint64_t freeBlocks = 0;
  std::uint64_t availableBlocks = 0;  // to ordinary users
  std::uint64_t totalFiles = 0;
  std::uint64_t freeFiles = 0;
  std::string filesystemType;  // as in the mount table, "fuse.sshfs"
  std::string mountPoint;      // bytes
  std::string mountedFrom;     // bytes; a device, a server's path, or a word
  std::string options;         // of the file system, comma-separated
};

struct Capabilities {
  std::uint32_t format = 0;
  std::uint32_t interfaces = 0;
  // Which of the bits say anything.
  std::uint32_t validFormat = 0;
  std::uint32_t validInterfaces = 0;
};

// Sets of attributes that the volume's items can have.
struct AttributeSets {
  std::uint32_t common = 0;
  std::uint32_t volume = 0;
  std::uint32_t directory = 0;
  std::uint32_t file = 0;
  std::uint32_t fork = 0;
};

// What getattrlist tells of a volume. Absent: not returned.
struct VolumeAttributes {
  std::optional<timespec> createdTime;
  std::optional<std::uint64_t> totalBytes;
  std::optional<std::uint64_t> freeBytes;
  std::optional<std::uint64_t> availableBytes;
  std::optional<std::string> name;  // bytes
  std::optional<std::array<std::uint8_t, 16>> uuid;
  Capabilities capabilities;
  AttributeSets validAttributes;
  AttributeSets nativeAttributes;
};

}  // namespace hoist::volumes
