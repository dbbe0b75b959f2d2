// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <sys/time.h>

#include <cerrno>

#include "exceptions/KLException.h"
#include "filesystem/PXPath.h"
#include "platform/FilePaths.h"
#include "platform/files/FileManager.h"

// Moving, copying and removing. Targets are bytes; what goes into the details of an exception is
// shown as text.

namespace hoist {
namespace {

Value shown(const std::string& path) {
  return Value(stringFromFileSystemRepresentation(path));
}

// What a path object and the system take of it.
std::string upToNul(const std::string& bytes) {
  return bytes.substr(0, bytes.find('\0'));
}

[[noreturn]] void raise(const Ref<Error>& error, const char* reason, const PXPath& path,
                        const std::string& target) {
  KLException::error(error, "IO", reason)
      .setPathObject(path)
      .setDetail(shown(target), "target")
      .raise();
}

}  // namespace

std::string PXPath::targetInDirectory(const std::optional<std::string>& directory,
                                      const std::optional<std::string>& name) const {
  // A location that has lost its parent is still in the folder that its path names.
  auto folder = directory ? upToNul(*directory) : directoryName(cPath());
  return appendPathComponent(folder, name ? upToNul(*name) : cName());
}

std::string PXPath::standardizedTarget(const std::string& bytes) const {
  auto target = upToNul(bytes);
  if (target.starts_with('/')) return standardizePath(target);
  return standardizePath(appendPathComponent(directoryName(cPath()), target));
}

Ref<PXPath> PXPath::moveToDirectory(const std::optional<std::string>& directory,
                                    const std::optional<std::string>& name,
                                    bool overwriting) const {
  return moveTo(targetInDirectory(directory, name), overwriting);
}

Ref<PXPath> PXPath::moveTo(const std::string& target, bool overwriting) const {
  auto to = standardizedTarget(target);
  if (!overwriting) {
    if (auto error = files::moveItem(cPath(), to)) raise(error, "cannot move item", *this, to);
  } else if (::rename(cPath(), to.c_str()) != 0) {
    KLException::ioErrnoWithReason("cannot rename filesystem object")
        .setPathObject(*this)
        .setDetail(shown(to), "to")
        .raise();
  }
  return pathWithPath(to);
}

Ref<PXPath> PXPath::copyToDirectory(const std::optional<std::string>& directory,
                                    const std::optional<std::string>& name, bool overwriting,
                                    bool clone) const {
  return copyTo(targetInDirectory(directory, name), overwriting, clone);
}

Ref<PXPath> PXPath::copyTo(const std::string& target, bool overwriting, bool) const {
  auto to = standardizedTarget(target);
  if (overwriting && files::fileExistsAtPath(to)) {
    auto error = files::refusalToReplace(cPath(), to);
    if (!error) error = files::removeItem(to);
    if (error) raise(error, "cannot overwrite item", *this, to);
  }
  if (auto error = files::copyItem(cPath(), to)) raise(error, "cannot copy item", *this, to);
  return pathWithPath(to);
}

bool PXPath::tryToDeleteFile() const {
  return files::removeItem(cPath()) == nullptr;
}

void PXPath::deleteFile() const {
  if (auto error = files::removeItem(cPath())) {
    KLException::error(error, "IO", "cannot delete item").setPathObject(*this).raise();
  }
}

void PXPath::touch() const {
  (void)::utimes(cPath(), nullptr);
}

}  // namespace hoist
