// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/DirectoryReading.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "exceptions/KLException.h"
#include "filesystem/PXPath.h"
#include "platform/FacilityLevel.h"
#include "platform/FileDescriptor.h"
#include "platform/attrlist/AttributeCalls.h"

namespace hoist {

using namespace attrlist;

namespace {

constexpr std::uint32_t kBulkReadSince = packedVersion(10, 10);
constexpr AttributeSet kBulkRequest = {
    .common = 0x2278F0B | ATTR_CMN_RETURNED_ATTRS,  // what PXFileInfo asks for, and the name
    .directory = ATTR_DIR_LINKCOUNT | ATTR_DIR_ENTRYCOUNT | ATTR_DIR_MOUNTSTATUS,
    .file = ATTR_FILE_LINKCOUNT | ATTR_FILE_TOTALSIZE | ATTR_FILE_ALLOCSIZE | ATTR_FILE_DATALENGTH};

FileDescriptor openFolder(const char* cPath) {
  return FileDescriptor(::open(cPath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// The next batch; its size, 0 at the end.
int readBatch(int folder, BulkBuffer& buffer, const Ref<PXPath>& path) {
  auto& calls = AttributeCalls::current();
  int count = calls.getattrlistbulk(folder, kBulkRequest, buffer, FSOPT_PACK_INVAL_ATTRS);
  if (count < 0 && errno == ERANGE) {
    count = calls.getattrlistbulk(folder, kBulkRequest, buffer, FSOPT_PACK_INVAL_ATTRS);
  }
  if (count < 0) {
    KLException::errnoWithName("IO", "failed to read directory")
        .setPathObject(*path)
        .setAPI("getattrlistbulk")
        .raise();
  }
  return count;
}

ChildList readInBulk(int folder, const Ref<PXPath>& path) {
  ChildList children;
  BulkBuffer buffer;
  while (readBatch(folder, buffer, path) > 0) {
    for (auto& entry : buffer.entries()) {
      if (auto child = PXFileInfo::initWithBatchAttr(entry, path)) {
        children.append(std::move(child));
      }
    }
  }
  return children;
}

// Names and types only; what has no known type is left out.
ChildList readPlainly(FileDescriptor folder, const Ref<PXPath>& path) {
  ChildList children;
  std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(folder.get()), ::closedir);
  if (!stream) return children;
  (void)folder.release();
  while (auto entry = ::readdir(stream.get())) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    if (auto child = PXFileInfo::initWithDirEntry(entry->d_name, entry->d_type, path)) {
      children.append(std::move(child));
    }
  }
  return children;
}

}  // namespace

std::optional<ChildList> readChildren(const Ref<PXPath>& path) {
  auto folder = openFolder(path->cPath());
  if (!folder) return std::nullopt;
  if (facilityLevel() < kBulkReadSince) return readPlainly(std::move(folder), path);
  return readInBulk(folder.get(), path);
}

std::uint64_t countChildren(const char* cPath) {
  auto folder = openFolder(cPath);
  std::uint64_t count = 0;
  if (folder) countEntries(folder.get(), count);
  return count;
}

}  // namespace hoist
