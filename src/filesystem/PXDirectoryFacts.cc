// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <vector>

#include "filesystem/Describing.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "platform/ResourceValues.h"

// What a folder is itself. Whatever goes up the tree goes step by step in a loop: trees are deep
// and stacks are small.

namespace hoist {

using namespace attrlist;

namespace {

constexpr std::uint32_t kDirectoryRequest =
    ATTR_DIR_LINKCOUNT | ATTR_DIR_ENTRYCOUNT | ATTR_DIR_MOUNTSTATUS;
static_assert(kDirectoryRequest == 7);
constexpr std::uint32_t kDirectoryRequestSize = 12;  // bytes, as the original platform packs it
constexpr std::uint32_t kIsMountPoint = 1;

}  // namespace

template <class Field>
Field PXDirectory::field(Field DirectoryAttributes::*field) const {
  SpinLockHolder lock(attrLock_);
  return readRecord() ? directoryRecord_.*field : Field{};
}

bool PXDirectory::isMountPoint() const {
  return (field(&DirectoryAttributes::mountStatus) & kIsMountPoint) != 0;
}

bool PXDirectory::isPackage() const {
  return resource::isPackage(cPath()).value.value_or(false);
}

std::uint32_t PXDirectory::linkCount() const {
  return field(&DirectoryAttributes::linkCount);
}

Ref<PXDirectory> PXDirectory::parentDirectoryInfo() const {
  return isMountPoint() ? nullptr : PXFileInfo::parentDirectoryInfo();
}

Ref<PXDirectory> PXDirectory::folderAbove() const {
  auto parent = parentDirectoryInfo();
  return parent && !parent->isEqual(*this) ? parent : nullptr;
}

std::string PXDirectory::displayName() const {
  return describing("-[PXDirectory displayName]", *this, name(), [&] {
    return isMountPoint() ? volumeInfo()->displayName() : PXFileInfo::displayName();
  });
}

std::string PXDirectory::displayPath() const {
  std::string below;
  auto above = describing("-[PXDirectory displayPath]", *this, "?/", [&]() -> std::string {
    for (auto folder = self<PXDirectory>(); folder; folder = folder->folderAbove()) {
      auto name = folder->PXFileInfo::displayName() + "/";
      below.insert(0, name);
      if (!folder->isMountPoint()) continue;
      auto volume = folder->volumeInfo()->displayPath() + "/";
      below.erase(0, name.size());
      return volume;
    }
    return "?/";
  });
  return above + below;
}

std::string PXDirectory::logTypeDescription() const {
  return describing("-[PXDirectory logTypeDescription]", *this, "folder",
                    [&] { return isMountPoint() ? "volume" : "folder"; });
}

Ref<PXVolumeInfo> PXDirectory::volumeInfo() const {
  // Up to the first folder that knows its volume or is its root; then all on the way know it.
  std::vector<Ref<PXDirectory>> unaware;
  Ref<PXVolumeInfo> volume;
  for (auto folder = self<PXDirectory>(); folder; folder = folder->livingParent()) {
    volume = folder->keptVolumeInfo(nullptr);
    if (volume) break;
    unaware.push_back(folder);
    if (folder->isMountPoint()) break;
  }
  if (!volume) volume = PXVolumeInfo::initWithPath(unaware.back()->cPath());
  // Down again: threads that have come here at the same time agree on what the uppermost keeps.
  for (auto folder = unaware.rbegin(); folder != unaware.rend(); ++folder) {
    volume = (*folder)->keptVolumeInfo(volume);
  }
  return volume;
}

Ref<PXVolumeInfo> PXDirectory::keptVolumeInfo(const Ref<PXVolumeInfo>& other) const {
  SpinLockHolder lock(volumeLock_);
  if (auto circular = circularVolInfo_.lock()) return circular;
  if (!volumeInfo_) volumeInfo_ = other;
  return volumeInfo_;
}

void PXDirectory::setVolumeInfo(const Ref<PXVolumeInfo>& info) {
  Ref<PXVolumeInfo> dropped;
  SpinLockHolder lock(volumeLock_);
  circularVolInfo_ = info;
  dropped.swap(volumeInfo_);
}

std::uint32_t PXDirectory::prepareAttrRequest(AttributeSet& request) const {
  auto size = PXFileInfo::prepareAttrRequest(request);
  request.directory = kDirectoryRequest;
  return size + kDirectoryRequestSize;
}

void PXDirectory::parseAttrs(const ItemAttributes& attributes) const {
  PXFileInfo::parseAttrs(attributes);
  directoryRecord_ = DirectoryAttributes(attributes);
}

}  // namespace hoist
