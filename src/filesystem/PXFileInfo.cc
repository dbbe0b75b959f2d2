// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXFileInfo.h"

#include <cstring>

#include "filesystem/ChainRelease.h"
#include "filesystem/PXDirectory.h"
#include "filesystem/PXSubPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "logging/Logger.h"
#include "platform/Collation.h"

// What an item is and where; its making stands in PXFileInfoProbe.cc, its attributes in
// PXFileInfoAttributes.cc.

namespace hoist {

PXFileInfo::PXFileInfo(Private, VnodeType type, Ref<PXPath> pathObject)
    : vtype_(static_cast<std::uint8_t>(type)), pathObj_(std::move(pathObject)) {}

PXFileInfo::~PXFileInfo() {
  if (next_) releaseInBackground(std::move(next_));
}

Ref<PXPath> PXFileInfo::pathObject() const {
  return pathObj_;
}

void PXFileInfo::setPathObject(Ref<PXPath> path) {
  pathObj_ = std::move(path);
}

const char* PXFileInfo::cName() const {
  return pathObj_->cName();
}

std::string PXFileInfo::name() const {
  return pathObj_->name();
}

std::string PXFileInfo::displayName() const {
  return pathObj_->displayName();
}

const char* PXFileInfo::cPath() const {
  return pathObj_->cPath();
}

std::string PXFileInfo::path() const {
  return pathObj_->path();
}

std::string PXFileInfo::url() const {
  return pathObj_->url();
}

std::string PXFileInfo::extension() const {
  return pathObj_->extension();
}

Ref<PXVolumeInfo> PXFileInfo::volumeInfo() const {
  return pathObj_->volumeInfo();
}

std::optional<std::string> PXFileInfo::volumeRelativePath() const {
  try {
    auto volume = volumeInfo();
    return volume ? volume->relativePathOfPath(pathObj_) : std::nullopt;
  } catch (const Exception&) {
    Logger::log(classification::Debug, [&] {
      return "-[PXFileInfo volumeRelativePath] can't determine relative path for " + path();
    });
    LogStackTrace("volumeRelativePath");
    return path();
  }
}

Ref<PXDirectory> PXFileInfo::livingParent() const {
  auto subPath = dynamic_cast<const PXSubPath*>(pathObj_.get());
  if (!subPath || !subPath->parentPath()) return nullptr;
  auto info = subPath->parentPath()->directoryInfo();
  return info ? info->asDirectory() : nullptr;
}

Ref<PXAbstractFile> PXFileInfo::abstractParent() const {
  return livingParent();
}

Ref<PXDirectory> PXFileInfo::parentDirectoryInfo() const {
  if (auto parent = livingParent()) return parent;
  auto parentPath = pathObj_->parent();
  return parentPath ? parentPath->directory() : nullptr;
}

std::string PXFileInfo::displayPath() const {
  auto parent = parentDirectoryInfo();
  return (parent ? parent->displayPath() : "?/") + pathObj_->displayName();
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
