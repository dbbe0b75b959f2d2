// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXSubPath.h"

#include <string>
#include <vector>

#include "filesystem/PXPathDerived.h"

// A tree can be thousands of folders deep and the daemon's threads have small stacks: neither the
// making of a full path nor the release of the parents recurses.

namespace hoist {

namespace {

void appendName(std::string& path, const char* name) {
  if (!path.ends_with('/')) path += '/';
  path += name;
}

}  // namespace

PXSubPath::PXSubPath(Private key, Bytes bytes, Ref<PXPath> parentPath)
    : PXPath(key, std::move(bytes)), parentPath_(std::move(parentPath)) {}

PXSubPath::~PXSubPath() {
  auto parent = std::move(parentPath_);
  // Nobody else can take a reference to a parent that only this holds: paths are never held weakly.
  while (parent && parent.use_count() == 1) {
    auto sub = dynamic_cast<PXSubPath*>(parent.get());
    if (!sub) break;
    parent = Ref<PXPath>(std::move(sub->parentPath_));
  }
}

Ref<PXSubPath> PXSubPath::initAssumingCNameParentPath(std::string_view cName,
                                                      Ref<PXPath> parentPath) {
  return make<PXSubPath>(Private(), Bytes::ofName(cName), std::move(parentPath));
}

Ref<PXSubPath> PXSubPath::initWithPathObject(const PXPath& other) {
  auto copy = make<PXSubPath>(Private(), Bytes::of(other.cPath(), other.cName()), nullptr);
  copy->shareDerived(other);
  return copy;
}

Ref<PXSubPath> PXSubPath::initWithCPath(std::string_view cPath) {
  return make<PXSubPath>(Private(), Bytes::of(cPath), nullptr);
}

const char* PXSubPath::cPath() const {
  if (auto made = cPathIfMade()) return made;
  // Up to the first location that knows its path, then down again by the names.
  std::vector<const PXSubPath*> below = {this};
  const PXPath* above = parentPath_.get();
  const char* start = nullptr;
  while (!start) {
    auto subPath = dynamic_cast<const PXSubPath*>(above);
    start = subPath ? subPath->cPathIfMade() : above->cPath();
    if (!start) {
      below.push_back(subPath);
      above = subPath->parentPath_.get();
    }
  }
  std::string path = start;
  for (auto subPath = below.rbegin(); subPath != below.rend(); ++subPath) {
    appendName(path, (*subPath)->cName());
  }
  return keepCPath(path);
}

const char* PXSubPath::cPathIfMade() const {
  if (nameOffset_ != 0) return bytes_.get();
  SpinLockHolder lock(pathLock_);
  return derived_ ? derived_->cPath.get() : nullptr;
}

const char* PXSubPath::keepCPath(const std::string& path) const {
  SpinLockHolder lock(pathLock_);
  auto& cPath = derived().cPath;
  if (!cPath) {
    cPath = std::make_unique<char[]>(path.size() + 1);
    path.copy(cPath.get(), path.size());
  }
  return cPath.get();
}

Ref<PXPath> PXSubPath::copy() const {
  return initWithPathObject(*this);
}

}  // namespace hoist
