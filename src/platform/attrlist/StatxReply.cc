// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/attrlist/StatxReply.h"

#include <dirent.h>
#include <sys/sysmacros.h>

#include "values/AbstractFile.h"

namespace hoist::attrlist {
namespace {

constexpr unsigned kBlock = 512;  // what stx_blocks counts, whatever the file system's own size
constexpr std::uint64_t kKnownFlagAttributes =
    STATX_ATTR_NODUMP | STATX_ATTR_COMPRESSED | STATX_ATTR_IMMUTABLE | STATX_ATTR_APPEND;

constexpr std::uint32_t number(VnodeType type) {
  return static_cast<std::uint32_t>(type);
}

void translateCommon(const struct statx& item, ItemAttributes& reply) {
  reply.device = deviceNumber(item);
  reply.modifiedTime = timeOf(item.stx_mtime);
  reply.attributeChangedTime = timeOf(item.stx_ctime);
  reply.ownerID = item.stx_uid;
  reply.groupID = item.stx_gid;
  reply.accessMask = item.stx_mode;
  reply.fileID = item.stx_ino;
  reply.returned.common = ATTR_CMN_DEVID | ATTR_CMN_OBJTYPE | ATTR_CMN_MODTIME | ATTR_CMN_CHGTIME |
                          ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK | ATTR_CMN_FILEID;
  if (item.stx_mask & STATX_BTIME) {
    reply.createdTime = timeOf(item.stx_btime);
    reply.returned.common |= ATTR_CMN_CRTIME;
  }
  if (item.stx_attributes_mask & kKnownFlagAttributes) {
    reply.flags = flagsOfAttributes(item.stx_attributes);
    reply.returned.common |= ATTR_CMN_FLAGS;
  }
}

void translateDirectory(const struct statx& item, ItemAttributes& reply) {
  reply.directory.linkCount = 1;
  reply.directory.mountStatus = (item.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
  reply.returned.directory = ATTR_DIR_LINKCOUNT | ATTR_DIR_MOUNTSTATUS;
}

void translateFile(const struct statx& item, ItemAttributes& reply) {
  reply.file.linkCount = item.stx_nlink;
  reply.file.totalSize = item.stx_size;
  reply.file.allocatedSize = item.stx_blocks * kBlock;
  reply.file.dataLength = item.stx_size;
  reply.returned.file =
      ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE | ATTR_FILE_DATALENGTH;
}

}  // namespace

unsigned statxMask(const AttributeSet& request) {
  constexpr auto kMoreThanType =
      ~(ATTR_CMN_RETURNED_ATTRS | ATTR_CMN_OBJTYPE | ATTR_CMN_NAME | ATTR_CMN_FULLPATH);
  if ((request.common & kMoreThanType) == 0 && request.directory == 0 && request.file == 0) {
    return STATX_TYPE;
  }
  return STATX_BASIC_STATS | STATX_BTIME;
}

void translate(const struct statx& item, const AttributeSet& request, ItemAttributes& reply) {
  reply.objectType = vnodeTypeOfMode(item.stx_mode);
  reply.returned.common = ATTR_CMN_OBJTYPE;
  if (statxMask(request) == STATX_TYPE) return;
  translateCommon(item, reply);
  if (reply.objectType == number(VnodeType::Directory)) {
    translateDirectory(item, reply);
  } else {
    translateFile(item, reply);
  }
  reply.returned.common &= request.common;
  reply.returned.directory &= request.directory;
  reply.returned.file &= request.file;
}

std::uint32_t vnodeTypeOfMode(unsigned mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return number(VnodeType::Regular);
    case S_IFDIR:
      return number(VnodeType::Directory);
    case S_IFBLK:
      return number(VnodeType::BlockDevice);
    case S_IFCHR:
      return number(VnodeType::CharacterDevice);
    case S_IFLNK:
      return number(VnodeType::SymbolicLink);
    case S_IFSOCK:
      return number(VnodeType::Socket);
    case S_IFIFO:
      return number(VnodeType::NamedPipe);
    default:
      return number(VnodeType::None);
  }
}

std::uint32_t vnodeTypeOfEntry(unsigned char entryType) {
  // The type byte of an entry is the mode's type bits; unknown (0) and whiteout (14) are none.
  return vnodeTypeOfMode(DTTOIF(static_cast<unsigned>(entryType)));
}

std::uint32_t deviceNumber(const struct statx& item) {
  // The kernel's own numbers have 12 and 20 bits, which makedev packs into 32.
  return static_cast<std::uint32_t>(::makedev(item.stx_dev_major, item.stx_dev_minor));
}

std::uint32_t flagsOfAttributes(std::uint64_t attributes) {
  std::uint32_t flags = 0;
  if (attributes & STATX_ATTR_NODUMP) flags |= UF_NODUMP;
  if (attributes & STATX_ATTR_COMPRESSED) flags |= UF_COMPRESSED;
  if (attributes & STATX_ATTR_IMMUTABLE) flags |= SF_IMMUTABLE;
  if (attributes & STATX_ATTR_APPEND) flags |= SF_APPEND;
  return flags;
}

timespec timeOf(const statx_timestamp& time) {
  return {static_cast<time_t>(time.tv_sec), static_cast<long>(time.tv_nsec)};
}

}  // namespace hoist::attrlist
