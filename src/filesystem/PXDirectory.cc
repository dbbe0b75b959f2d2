// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXDirectory.h"

#include "filesystem/PXPath.h"
#include "platform/ResourceValues.h"

namespace hoist {

using namespace attrlist;

namespace {

constexpr std::uint32_t kDirectoryRequest =
    ATTR_DIR_LINKCOUNT | ATTR_DIR_ENTRYCOUNT | ATTR_DIR_MOUNTSTATUS;
static_assert(kDirectoryRequest == 7);
constexpr std::uint32_t kDirectoryRequestSize = 12;  // bytes, as the original platform packs it
constexpr std::uint32_t kIsMountPoint = 1;

}  // namespace

Ref<PXDirectory> PXDirectory::directoryWithPath(std::string_view path) {
  auto info = infoForPath(path);
  return info ? info->asDirectory() : nullptr;
}

void PXDirectory::made() {
  // A location is represented by one folder object at most; a second object gets its own.
  if (pathObject()->directoryInfo()) setPathObject(pathObject()->copy());
  pathObject()->setDirectoryInfo(self<PXDirectory>());
}

bool PXDirectory::isMountPoint() const {
  return (attrs().as<DirectoryAttributes>().mountStatus & kIsMountPoint) != 0;
}

bool PXDirectory::isPackage() const {
  return resource::isPackage(cPath()).value.value_or(false);
}

std::uint32_t PXDirectory::linkCount() const {
  return attrs().as<DirectoryAttributes>().linkCount;
}

Ref<PXDirectory> PXDirectory::parentDirectoryInfo() const {
  return isMountPoint() ? nullptr : PXFileInfo::parentDirectoryInfo();
}

std::string PXDirectory::displayPath() const {
  return PXFileInfo::displayPath() + "/";
}

std::uint32_t PXDirectory::prepareAttrRequest(AttributeSet& request) const {
  auto size = PXFileInfo::prepareAttrRequest(request);
  request.directory = kDirectoryRequest;
  return size + kDirectoryRequestSize;
}

RecordRef PXDirectory::parseAttrs(const ItemAttributes& attributes) const {
  return RecordRef::make<DirectoryAttributes>(attributes);
}

}  // namespace hoist
