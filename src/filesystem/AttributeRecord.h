// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <ctime>

#include "platform/AccessControlList.h"
#include "platform/attrlist/Attributes.h"

namespace hoist {

// The attributes that every item has, as they were read or as they have been edited since. The
// order and the widths of the fields are fixed.
struct CommonAttributes {
  std::uint32_t modified = 0;  // the edited attributes, as ATTR_CMN_ bits
  std::uint32_t script = 0;
  timespec createdTime{};
  timespec modifiedTime{};
  timespec attributeChangedTime{};
  std::uint32_t ownerID = 0;
  std::uint32_t groupID = 0;
  std::uint32_t fileFlags = 0;
  std::uint16_t access = 0;           // 12 bits: no type
  std::uint16_t effectiveAccess = 0;  // read 4, write 2, execute 1; asked for on demand
  AccessControlList acl;              // asked for on demand
  std::uint64_t fileID = 0;
  std::uint32_t device = 0;

  static constexpr std::uint32_t kAccessBits = 07777;

  CommonAttributes() = default;
  explicit CommonAttributes(const attrlist::ItemAttributes& attributes);

  attrlist::ItemIdentity identity() const {
    bool knowsCreation = (modified & attrlist::ATTR_CMN_CRTIME) == 0;
    return {device, fileID, knowsCreation ? createdTime : timespec{}};
  }
};

// What the record of a file has besides.
struct FileAttributes {
  FileAttributes() = default;
  explicit FileAttributes(const attrlist::ItemAttributes& attributes);

  std::uint32_t linkCount = 0;
  std::uint64_t totalSize = 0;      // bytes
  std::uint64_t allocatedSize = 0;  // bytes
  std::uint64_t dataLength = 0;     // bytes
};

// What the record of a folder has besides.
struct DirectoryAttributes {
  DirectoryAttributes() = default;
  explicit DirectoryAttributes(const attrlist::ItemAttributes& attributes);

  std::uint64_t entryCount = 0;
  std::uint32_t linkCount = 0;
  std::uint32_t mountStatus = 0;  // bit 1: the root of a mount
};

static_assert(sizeof(CommonAttributes) == 96);
static_assert(sizeof(FileAttributes) == 32);
static_assert(sizeof(DirectoryAttributes) == 16);

}  // namespace hoist
