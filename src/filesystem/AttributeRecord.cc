// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/AttributeRecord.h"

namespace hoist {

CommonAttributes::CommonAttributes(const attrlist::ItemAttributes& attributes)
    : script(attributes.script),
      createdTime(attributes.createdTime),
      modifiedTime(attributes.modifiedTime),
      attributeChangedTime(attributes.attributeChangedTime),
      ownerID(attributes.ownerID),
      groupID(attributes.groupID),
      fileFlags(attributes.flags),
      access(static_cast<std::uint16_t>(attributes.accessMask & kAccessBits)),
      fileID(attributes.fileID),
      device(attributes.device) {}

FileAttributes::FileAttributes(const attrlist::ItemAttributes& attributes)
    : linkCount(attributes.file.linkCount),
      totalSize(attributes.file.totalSize),
      allocatedSize(attributes.file.allocatedSize),
      dataLength(attributes.file.dataLength) {}

DirectoryAttributes::DirectoryAttributes(const attrlist::ItemAttributes& attributes)
    : entryCount(attributes.directory.entryCount),
      linkCount(attributes.directory.linkCount),
      mountStatus(attributes.directory.mountStatus) {}

}  // namespace hoist
