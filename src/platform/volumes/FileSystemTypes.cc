// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/volumes/FileSystemTypes.h"

#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "platform/volumes/VolumeRecords.h"

// Read off the kernel's sources (fs/*: which inode operations, rename flags and ioctls a file
// system has). Exchange of two items, clones and snapshots are what callers decide by; the rest is
// for people.

namespace hoist::volumes {
namespace {

constexpr std::uint32_t kUnixFormat =
    VOL_CAP_FMT_PERSISTENTOBJECTIDS | VOL_CAP_FMT_SYMBOLICLINKS | VOL_CAP_FMT_HARDLINKS |
    VOL_CAP_FMT_SPARSE_FILES | VOL_CAP_FMT_CASE_SENSITIVE | VOL_CAP_FMT_CASE_PRESERVING |
    VOL_CAP_FMT_FAST_STATFS | VOL_CAP_FMT_2TB_FILESIZE | VOL_CAP_FMT_64BIT_OBJECT_IDS;
constexpr std::uint32_t kMemoryFormat =
    (kUnixFormat & ~VOL_CAP_FMT_PERSISTENTOBJECTIDS) | VOL_CAP_FMT_NO_ROOT_TIMES;
constexpr std::uint32_t kRemoteFormat = kUnixFormat & ~VOL_CAP_FMT_FAST_STATFS;
constexpr std::uint32_t kFATFormat = VOL_CAP_FMT_CASE_PRESERVING | VOL_CAP_FMT_FAST_STATFS;
constexpr std::uint32_t kJournal = VOL_CAP_FMT_JOURNAL | VOL_CAP_FMT_JOURNAL_ACTIVE;

constexpr std::uint32_t kBasic =
    VOL_CAP_INT_ATTRLIST | VOL_CAP_INT_ADVLOCK | VOL_CAP_INT_FLOCK | VOL_CAP_INT_USERACCESS;
constexpr std::uint32_t kXattrs = VOL_CAP_INT_EXTENDED_ATTR;
constexpr std::uint32_t kLists = VOL_CAP_INT_EXTENDED_SECURITY;
constexpr std::uint32_t kAllocate = VOL_CAP_INT_ALLOCATE;
constexpr std::uint32_t kRename = VOL_CAP_INT_VOL_RENAME;
constexpr std::uint32_t kExclusive = VOL_CAP_INT_RENAME_EXCL;
constexpr std::uint32_t kSwap = VOL_CAP_INT_RENAME_SWAP | VOL_CAP_INT_RENAME_EXCL;
constexpr std::uint32_t kFull = kBasic | kXattrs | kLists | kAllocate | kSwap;

constexpr std::int64_t kXFS = 0x58465342;
constexpr std::int64_t kNTFS3 = 0x7366746e;
constexpr std::int64_t kZFS = 0x2fc12fc1;
constexpr std::int64_t kBcachefs = 0xca451a4e;
constexpr std::int64_t kVirtual9P = V9FS_MAGIC;

constexpr auto kZeroRuns = VOL_CAP_FMT_ZERO_RUNS;
constexpr auto kClone = VOL_CAP_INT_CLONE;
constexpr auto kSnapshot = VOL_CAP_INT_SNAPSHOT;

constexpr std::array<FileSystemType, 31> kTypes = {{
    {"ext4", EXT4_SUPER_MAGIC, kUnixFormat | kZeroRuns, kFull | kRename, true, 0},
    {"ext3", 0, kUnixFormat, kFull | kRename, true, 0},
    {"ext2", 0, kUnixFormat, kFull | kRename, true, 0},
    {"xfs", kXFS, kUnixFormat | kZeroRuns | kJournal, kFull, true, 64},
    {"btrfs", BTRFS_SUPER_MAGIC, kUnixFormat | kZeroRuns, kFull | kRename | kClone | kSnapshot,
     true, 64},
    {"bcachefs", kBcachefs, kUnixFormat | kZeroRuns | kJournal, kFull | kClone | kSnapshot, true,
     64},
    {"zfs", kZFS, kUnixFormat, kBasic | kXattrs | kLists | kExclusive | kSnapshot, true, 64},
    {"f2fs", F2FS_SUPER_MAGIC, kUnixFormat | kZeroRuns, kFull | kRename, true, 0},
    {"jfs", 0x3153464a, kUnixFormat | kJournal, kBasic | kXattrs | kLists, true, 0},
    {"tmpfs", TMPFS_MAGIC, kMemoryFormat, kFull, true, 64},
    {"ramfs", RAMFS_MAGIC, kMemoryFormat, kBasic | kExclusive, true, 64},
    {"overlay", OVERLAYFS_SUPER_MAGIC, kUnixFormat, kFull, true, 64},
    {"fuse", FUSE_SUPER_MAGIC, kRemoteFormat, kBasic | kXattrs, true, 64},
    {"virtiofs", 0, kRemoteFormat, kBasic | kXattrs, true, 64},
    {"9p", kVirtual9P, kRemoteFormat, kBasic | kXattrs, true, 64},
    {"nfs", NFS_SUPER_MAGIC, kRemoteFormat, kBasic, true, 64},
    {"nfs4", 0, kRemoteFormat, kBasic | kXattrs | kAllocate, true, 64},
    {"ceph", CEPH_SUPER_MAGIC, kRemoteFormat, kBasic | kXattrs | kLists | kAllocate | kSnapshot,
     true, 64},
    {"cifs", CIFS_SUPER_MAGIC,
     VOL_CAP_FMT_CASE_PRESERVING | VOL_CAP_FMT_2TB_FILESIZE | VOL_CAP_FMT_SPARSE_FILES,
     kBasic | kXattrs, false, 64},
    {"smb3", SMB2_SUPER_MAGIC,
     VOL_CAP_FMT_CASE_PRESERVING | VOL_CAP_FMT_2TB_FILESIZE | VOL_CAP_FMT_SPARSE_FILES,
     kBasic | kXattrs, false, 64},
    {"vfat", MSDOS_SUPER_MAGIC, kFATFormat, kBasic | kAllocate | kSwap, false, 32},
    {"msdos", 0, kFATFormat & ~VOL_CAP_FMT_CASE_PRESERVING, kBasic | kAllocate | kExclusive, false,
     32},
    {"exfat", EXFAT_SUPER_MAGIC, kFATFormat | VOL_CAP_FMT_2TB_FILESIZE, kBasic | kRename, false,
     64},
    {"ntfs3", kNTFS3, kUnixFormat | VOL_CAP_FMT_HIDDEN_FILES, kBasic | kXattrs | kAllocate, true,
     64},
    {"ntfs", 0, kUnixFormat | VOL_CAP_FMT_HIDDEN_FILES, kBasic | kXattrs | kAllocate, true, 64},
    {"fuseblk", 0, kRemoteFormat | VOL_CAP_FMT_HIDDEN_FILES, kBasic | kXattrs, false, 64},
    {"hfsplus", 0x482b, kUnixFormat & ~VOL_CAP_FMT_CASE_SENSITIVE, kBasic | kXattrs, true, 64},
    {"iso9660", ISOFS_SUPER_MAGIC, kUnixFormat & ~VOL_CAP_FMT_SPARSE_FILES, kBasic, true, 0},
    {"udf", UDF_SUPER_MAGIC, kUnixFormat, kBasic, true, 64},
    {"squashfs", SQUASHFS_MAGIC, kUnixFormat, kBasic | kXattrs, true, 64},
    {"erofs", EROFS_SUPER_MAGIC_V1, kUnixFormat, kBasic | kXattrs | kLists, true, 64},
}};

// Nothing is promised that a caller would decide by.
constexpr FileSystemType kUnknown = {
    "unknown", 0, kRemoteFormat & ~VOL_CAP_FMT_PERSISTENTOBJECTIDS, kBasic, true, 0};

template <class Test>
const FileSystemType& find(Test&& test) {
  auto type = std::find_if(kTypes.begin(), kTypes.end(), test);
  return type == kTypes.end() ? kUnknown : *type;
}

}  // namespace

const FileSystemType& fileSystemType(std::string_view name) {
  for (std::string_view kinds : {"fuse.", "fuseblk."}) {
    if (name.starts_with(kinds)) name = kinds.substr(0, kinds.size() - 1);
  }
  return find([&](const FileSystemType& type) { return type.name == name; });
}

const FileSystemType& fileSystemTypeOfMagic(std::int64_t magic) {
  return find([&](const FileSystemType& type) { return type.magic != 0 && type.magic == magic; });
}

long fileSizeBits(const char* path) {
  struct statfs status;
  if (::statfs(path, &status) != 0) return 0;
  // Magic numbers are 32 bits wide whatever the field is.
  auto& type = fileSystemTypeOfMagic(static_cast<std::uint32_t>(status.f_type));
  if (type.fileSizeBits != 0) return type.fileSizeBits;
  return std::max(::pathconf(path, _PC_FILESIZEBITS), 0L);
}

}  // namespace hoist::volumes
