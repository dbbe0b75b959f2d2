// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/DirectoryReading.h"

#include <dirent.h>
#include <fcntl.h>

#include <cstring>
#include <memory>

#include "filesystem/BulkReading.h"
#include "filesystem/PXPath.h"
#include "platform/FacilityLevel.h"
#include "platform/FileDescriptor.h"
#include "platform/attrlist/AttributeCalls.h"

namespace hoist {

namespace {

constexpr std::uint32_t kBulkReadSince = packedVersion(10, 10);

FileDescriptor openFolder(const char* cPath) {
  return FileDescriptor(::open(cPath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
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
  if (folder) attrlist::countEntries(folder.get(), count);
  return count;
}

}  // namespace hoist
