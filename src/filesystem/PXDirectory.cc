// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXDirectory.h"

#include <fmt/format.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <cerrno>

#include "exceptions/KLException.h"
#include "filesystem/DirectoryReading.h"
#include "filesystem/PXSubPath.h"
#include "platform/FilePaths.h"

// The children of a folder, and the making of new ones. What a folder is itself stands in
// PXDirectoryFacts.cc.

namespace hoist {

Ref<PXDirectory> PXDirectory::directoryWithPath(std::string_view path) {
  auto info = infoForPath(path);
  return info ? info->asDirectory() : nullptr;
}

PXDirectory::~PXDirectory() {
  // The path may live on, and holding even weakly what lies in a listing keeps all of its memory.
  if (hasFlag(kHasPathObject)) pathObject()->forgetExpiredDirectoryInfo();
}

void PXDirectory::made() {
  // A location is represented by one folder object at most; a second object gets its own.
  if (pathObject()->directoryInfo()) setPathObject(pathObject()->copy());
  pathObject()->setDirectoryInfo(self<PXDirectory>());
}

// Reading.

void PXDirectory::lazyDirectoryRead() const {
  SpinLockHolder lock(contentsLock_);
  if (hasFlag(kContentsRead)) return;
  auto children = readChildren(pathObject());
  if (!children) return;
  children_ = std::move(*children);
  setFlag(kContentsRead);
}

void PXDirectory::flushDirectoryContents() {
  ChildList dropped;
  SpinLockHolder lock(contentsLock_);
  if (!hasFlag(kContentsRead)) return;
  std::swap(dropped, children_);
  clearFlags(kContentsRead | kSortedByName);
}

Ref<PXFileInfo> PXDirectory::firstObject() const {
  lazyDirectoryRead();
  SpinLockHolder lock(contentsLock_);
  return children_.first();
}

Ref<PXFileInfo> PXDirectory::firstContentFile() const {
  auto first = firstObject();
  if (!first || first->isRegularFile() || first->isSymbolicLink()) return first;
  return first->nextContentFile();
}

Ref<PXFileInfo> PXDirectory::firstRegularFile() const {
  auto first = firstObject();
  return !first || first->isRegularFile() ? first : first->nextRegularFile();
}

Ref<PXFileInfo> PXDirectory::firstDirectory() const {
  auto first = firstObject();
  return !first || first->isDirectory() ? first : first->nextDirectory();
}

std::uint64_t PXDirectory::count() const {
  {
    SpinLockHolder lock(contentsLock_);
    if (hasFlag(kContentsRead)) return children_.count();
  }
  return countChildren(cPath());
}

std::size_t PXDirectory::countByEnumerating(Enumeration& state,
                                            std::span<Ref<PXFileInfo>> objects) const {
  if (!state.started) {
    state.next = state.mutationMarker = firstObject();
    state.started = true;
  }
  SpinLockHolder lock(contentsLock_);
  if (children_.first() != state.mutationMarker) {
    Exception(Exception::kGenericException, "Folder was changed while its children were enumerated")
        .raise();
  }
  std::size_t count = 0;
  for (; count < objects.size() && state.next; ++count) {
    objects[count] = std::move(state.next);
    state.next = objects[count]->nextObj();
  }
  return count;
}

// Sorting.

void PXDirectory::sort() {
  lazyDirectoryRead();
  if (hasFlag(kSortedByName)) return;
  SpinLockHolder lock(contentsLock_);
  // What could not be read yet is not sorted either.
  if (!hasFlag(kContentsRead)) return;
  children_.sortByName();
  setFlag(kSortedByName);
}

void PXDirectory::resortUsing(const ChildList::Comparison& compare) {
  lazyDirectoryRead();
  ChildList children;
  {
    // The comparison may ask this folder for anything.
    SpinLockHolder lock(contentsLock_);
    std::swap(children, children_);
    clearFlags(kSortedByName);
  }
  auto putBack = [&] {
    SpinLockHolder lock(contentsLock_);
    std::swap(children, children_);
  };
  try {
    children.sort(compare);
  } catch (...) {
    putBack();
    throw;
  }
  putBack();
}

// Looking up.

Ref<PXFileInfo> PXDirectory::objectMatchingCName(std::string_view cName) const {
  for (auto& child : *this) {
    if (cName == child->cName()) return child;
  }
  return nullptr;
}

Ref<PXFileInfo> PXDirectory::objectMatchingName(std::string_view name) const {
  return objectMatchingCName(name);
}

Ref<PXDirectory> PXDirectory::subdirectoryMatchingCName(std::string_view cName) const {
  auto child = objectMatchingCName(cName);
  return child ? child->asDirectory() : nullptr;
}

Ref<PXDirectory> PXDirectory::subdirectoryMatchingName(std::string_view name) const {
  return subdirectoryMatchingCName(name);
}

Ref<PXSubPath> PXDirectory::pathForCName(std::string_view cName) const {
  return PXSubPath::initAssumingCNameParentPath(cName, pathObject());
}

Ref<PXSubPath> PXDirectory::pathForName(std::string_view name) const {
  return pathForCName(name);
}

Ref<PXFileInfo> PXDirectory::infoForCName(std::string_view cName) const {
  if (auto child = objectMatchingCName(cName)) return child;
  return infoForPathObject(pathForCName(cName));
}

Ref<PXFileInfo> PXDirectory::infoForName(std::string_view name) const {
  return infoForCName(name);
}

bool PXDirectory::containsFile(const PXFileInfo& other) const {
  std::string_view mine = cPath();
  std::string_view others = other.cPath();
  return others.size() > mine.size() && others.starts_with(mine) && others[mine.size()] == '/';
}

// Making new folders.

Ref<PXDirectory> PXDirectory::createSubdirectoryWithName(std::string_view name,
                                                         std::uint16_t mode) const {
  auto path = pathForName(name);
  if (::mkdir(path->cPath(), mode) != 0) {
    KLException::ioErrnoWithReason("could not create directory")
        .setPathObject(*path)
        .setDecimalDetail(mode, "mode")
        .raise();
  }
  return path->directory();
}

Ref<PXDirectory> PXDirectory::createUniqueSubdirectoryWithPrefix(
    std::string_view prefix, const std::optional<std::string>& extension,
    std::uint16_t mode) const {
  for (;;) {
    auto name = fmt::format("{}.{:08x}", prefix, ::arc4random());
    try {
      auto folder =
          createSubdirectoryWithName(appendPathExtension(name, extension.value_or("")), mode);
      if (folder) return folder;
    } catch (const KLException& exception) {
      auto error = exception.userInfo().find(detail_key::POSIXErr);
      if (error == exception.userInfo().end() || error->second.integerValue() != EEXIST) throw;
    }
  }
}

}  // namespace hoist
