// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXSubPath.h"

#include <vector>

#include "filesystem/PXPathDerived.h"
#include "platform/FilePaths.h"

// A tree can be thousands of folders deep and the daemon's threads have small stacks: neither the
// making of a full path nor the release of the parents recurses.

namespace hoist {

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
  std::vector<const PXSubPath*> unmade = {this};
  for (;;) {
    auto above = dynamic_cast<const PXSubPath*>(unmade.back()->parentPath_.get());
    if (!above || above->cPathIfMade()) break;
    unmade.push_back(above);
  }
  for (auto path = unmade.rbegin(); path + 1 != unmade.rend(); ++path) (*path)->makeCPath();
  return makeCPath();
}

const char* PXSubPath::cPathIfMade() const {
  if (nameOffset_ != 0) return bytes_.get();
  SpinLockHolder lock(pathLock_);
  return derived_ ? derived_->cPath.get() : nullptr;
}

const char* PXSubPath::makeCPath() const {
  auto joined = joinPath(parentPath_->cPath(), cName());
  SpinLockHolder lock(pathLock_);
  auto& cPath = derived().cPath;
  if (!cPath) {
    cPath = std::make_unique<char[]>(joined.size() + 1);
    joined.copy(cPath.get(), joined.size());
  }
  return cPath.get();
}

Ref<PXPath> PXSubPath::copy() const {
  return initWithPathObject(*this);
}

}  // namespace hoist
