// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXFileInfo.h"

#include <cstring>

#include "filesystem/ChainRelease.h"
#include "filesystem/Describing.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXSubPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "logging/Logger.h"
#include "platform/Collation.h"

// What an item is and where; its making stands in PXFileInfoProbe.cc, its attributes in
// PXFileInfoAttributes.cc.

namespace hoist {

PXFileInfo::PXFileInfo(Private, VnodeType type, Ref<PXPath> pathObject)
    : flags_(kHasPathObject),
      vtype_(static_cast<std::uint8_t>(type)),
      pathObj_(std::move(pathObject)) {}

PXFileInfo::PXFileInfo(Private, VnodeType type, const ListedItem& item)
    : flags_(item.entry.hasAttributes() ? kHasAttributes : 0),
      vtype_(static_cast<std::uint8_t>(type)),
      listing_(&item.listing),
      listedName_(item.name),
      record_(item.entry.attributes) {}

PXFileInfo::~PXFileInfo() {
  if (next_) releaseInBackground(std::move(next_));
}

const Ref<PXPath>& PXFileInfo::location() const {
  if (!hasFlag(kHasPathObject)) {
    SpinLockHolder lock(pathLock_);
    if (!hasFlag(kHasPathObject)) {
      pathObj_ = PXSubPath::initAssumingCNameParentPath(listedName_, listing_->folder());
      setFlag(kHasPathObject);
    }
  }
  return pathObj_;
}

Ref<PXPath> PXFileInfo::pathObject() const {
  return location();
}

void PXFileInfo::setPathObject(Ref<PXPath> path) {
  pathObj_ = std::move(path);
  setFlag(kHasPathObject);
}

const char* PXFileInfo::cName() const {
  return hasFlag(kHasPathObject) ? pathObj_->cName() : listedName_;
}

std::string PXFileInfo::name() const {
  return location()->name();
}

std::string PXFileInfo::displayName() const {
  return location()->displayName();
}

const char* PXFileInfo::cPath() const {
  return location()->cPath();
}

std::string PXFileInfo::path() const {
  return location()->path();
}

std::string PXFileInfo::url() const {
  return location()->url();
}

std::string PXFileInfo::extension() const {
  return location()->extension();
}

Ref<PXVolumeInfo> PXFileInfo::volumeInfo() const {
  return location()->volumeInfo();
}

std::optional<std::string> PXFileInfo::volumeRelativePath() const {
  try {
    auto volume = volumeInfo();
    return volume ? volume->relativePathOfPath(location()) : std::nullopt;
  } catch (const Exception&) {
    Logger::log(classification::Debug, [&] {
      return "-[PXFileInfo volumeRelativePath] can't determine relative path for " + path();
    });
    LogStackTrace("volumeRelativePath");
    return path();
  }
}

Ref<PXDirectory> PXFileInfo::livingParent() const {
  auto subPath = dynamic_cast<const PXSubPath*>(location().get());
  if (!subPath || !subPath->parentPath()) return nullptr;
  auto info = subPath->parentPath()->directoryInfo();
  return info ? info->asDirectory() : nullptr;
}

Ref<PXAbstractFile> PXFileInfo::abstractParent() const {
  return livingParent();
}

Ref<PXDirectory> PXFileInfo::parentDirectoryInfo() const {
  if (auto parent = livingParent()) return parent;
  auto parentPath = location()->parent();
  return parentPath ? parentPath->directory() : nullptr;
}

std::string PXFileInfo::displayPath() const {
  auto above = describing("-[PXFileInfo displayPath]", *this, "?/", [&]() -> std::string {
    auto parent = parentDirectoryInfo();
    return parent ? parent->displayPath() : "?/";
  });
  return above + location()->displayName();
}

template <class Test>
Ref<PXFileInfo> PXFileInfo::nextThat(Test&& test) const {
  auto link = &next_;
  while (*link && !test(**link)) link = &(*link)->next_;
  return *link;
}

Ref<PXFileInfo> PXFileInfo::nextContentFile() const {
  return nextThat(
      [](const PXFileInfo& info) { return info.isRegularFile() || info.isSymbolicLink(); });
}

Ref<PXFileInfo> PXFileInfo::nextRegularFile() const {
  return nextThat([](const PXFileInfo& info) { return info.isRegularFile(); });
}

Ref<PXFileInfo> PXFileInfo::nextDirectory() const {
  return nextThat([](const PXFileInfo& info) { return info.isDirectory(); });
}

std::strong_ordering PXFileInfo::compareNames(const PXFileInfo& other) const {
  return finderLikeCompare(cName(), other.cName());
}

std::string PXFileInfo::logFullDescription() const {
  return logTypeDescription() + " " + path();
}

std::string PXFileInfo::logDescription() const {
  return logTypeDescription() + " " + name();
}

bool PXFileInfo::isEqual(const Object& other) const {
  auto info = dynamic_cast<const PXFileInfo*>(&other);
  return info && std::strcmp(cPath(), info->cPath()) == 0;
}

}  // namespace hoist
