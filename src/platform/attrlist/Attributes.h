// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>

namespace hoist::attrlist {

// The attribute bits, option bits and file flags of the original platform (its sys/attr.h and
// sys/stat.h): they are what callers, details and logs are expected to show.

inline constexpr std::uint32_t ATTR_CMN_NAME = 0x1;
inline constexpr std::uint32_t ATTR_CMN_DEVID = 0x2;
inline constexpr std::uint32_t ATTR_CMN_OBJTYPE = 0x8;
inline constexpr std::uint32_t ATTR_CMN_SCRIPT = 0x100;
inline constexpr std::uint32_t ATTR_CMN_CRTIME = 0x200;
inline constexpr std::uint32_t ATTR_CMN_MODTIME = 0x400;
inline constexpr std::uint32_t ATTR_CMN_CHGTIME = 0x800;
inline constexpr std::uint32_t ATTR_CMN_OWNERID = 0x8000;
inline constexpr std::uint32_t ATTR_CMN_GRPID = 0x10000;
inline constexpr std::uint32_t ATTR_CMN_ACCESSMASK = 0x20000;
inline constexpr std::uint32_t ATTR_CMN_FLAGS = 0x40000;
inline constexpr std::uint32_t ATTR_CMN_USERACCESS = 0x200000;
inline constexpr std::uint32_t ATTR_CMN_FILEID = 0x2000000;
inline constexpr std::uint32_t ATTR_CMN_FULLPATH = 0x8000000;
inline constexpr std::uint32_t ATTR_CMN_RETURNED_ATTRS = 0x80000000;
// What setattrlist can be asked to write.
inline constexpr std::uint32_t kWritableCommonAttributes =
    ATTR_CMN_SCRIPT | ATTR_CMN_CRTIME | ATTR_CMN_MODTIME | ATTR_CMN_CHGTIME | ATTR_CMN_OWNERID |
    ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS;

inline constexpr std::uint32_t ATTR_DIR_LINKCOUNT = 0x1;
inline constexpr std::uint32_t ATTR_DIR_ENTRYCOUNT = 0x2;
inline constexpr std::uint32_t ATTR_DIR_MOUNTSTATUS = 0x4;

inline constexpr std::uint32_t ATTR_FILE_LINKCOUNT = 0x1;
inline constexpr std::uint32_t ATTR_FILE_TOTALSIZE = 0x2;
inline constexpr std::uint32_t ATTR_FILE_ALLOCSIZE = 0x4;
inline constexpr std::uint32_t ATTR_FILE_DATALENGTH = 0x200;

inline constexpr std::uint32_t FSOPT_NOFOLLOW = 0x1;
inline constexpr std::uint32_t FSOPT_REPORT_FULLSIZE = 0x4;
inline constexpr std::uint32_t FSOPT_PACK_INVAL_ATTRS = 0x8;

inline constexpr std::uint32_t UF_NODUMP = 0x1;
inline constexpr std::uint32_t UF_IMMUTABLE = 0x2;
inline constexpr std::uint32_t UF_APPEND = 0x4;
inline constexpr std::uint32_t UF_COMPRESSED = 0x20;
inline constexpr std::uint32_t SF_IMMUTABLE = 0x20000;
inline constexpr std::uint32_t SF_APPEND = 0x40000;

// What a request asks for, and what a reply returned: one set of bits for each group.
struct AttributeSet {
  std::uint32_t common = 0;
  std::uint32_t directory = 0;
  std::uint32_t file = 0;
};

// The attributes of one item. A value whose bit is not in the returned set is zero.
struct ItemAttributes {
  AttributeSet returned;

  std::uint32_t device = 0;
  // A VnodeType; 0 when the file system does not tell.
  std::uint32_t objectType = 0;
  // Linux keeps no text-encoding hint: always zero and never returned.
  std::uint32_t script = 0;
  timespec createdTime{};
  timespec modifiedTime{};
  timespec attributeChangedTime{};
  std::uint32_t ownerID = 0;
  std::uint32_t groupID = 0;
  // Type and permission bits, as in st_mode.
  std::uint32_t accessMask = 0;
  // Immutable and append-only are reported as the system's flags (SF_...).
  std::uint32_t flags = 0;
  std::uint64_t fileID = 0;

  struct {
    // 1, because a folder has no hard links on Linux; what stat counts there is the sub-folders.
    std::uint32_t linkCount = 0;
    // Never returned: no file system of Linux keeps it.
    std::uint32_t entryCount = 0;
    // Bit 1: the folder is the root of a mount.
    std::uint32_t mountStatus = 0;
  } directory;

  struct {
    std::uint32_t linkCount = 0;
    std::uint64_t totalSize = 0;      // bytes
    std::uint64_t allocatedSize = 0;  // bytes
    std::uint64_t dataLength = 0;     // bytes
  } file;
};

// An item whichever name it has. File systems give the number of an item that has gone to the next
// one, so the time of its creation belongs to it.
struct ItemIdentity {
  std::uint32_t device = 0;
  std::uint64_t fileID = 0;
  // Zero when it is not known.
  timespec createdTime{};
};

// Values for the writable common attributes; only those in the set of the call are looked at.
struct CommonValues {
  std::uint32_t script = 0;
  timespec createdTime{};
  timespec modifiedTime{};
  timespec attributeChangedTime{};
  std::uint32_t ownerID = 0;
  std::uint32_t groupID = 0;
  // Permission bits with set-user-ID, set-group-ID and sticky bits.
  std::uint32_t access = 0;
  // User's and system's flags are accepted alike.
  std::uint32_t flags = 0;
};

}  // namespace hoist::attrlist
