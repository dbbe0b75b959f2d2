// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXFileInfo.h"
#include "filesystem/PXNonexistentFile.h"
#include "filesystem/PXPath.h"

// The operations of the path, with the object kept up to date. When the path's operation raises,
// nothing has changed here.

namespace hoist {

void PXFileInfo::moveToDirectory(const std::optional<std::string>& directory,
                                 const std::optional<std::string>& name, bool overwriting) {
  setPathObject(pathObject()->moveToDirectory(directory, name, overwriting));
  adoptItem();
}

void PXFileInfo::moveTo(const std::string& target, bool overwriting) {
  setPathObject(pathObject()->moveTo(target, overwriting));
  adoptItem();
}

Ref<PXFileInfo> PXFileInfo::copyToDirectory(const std::optional<std::string>& directory,
                                            const std::optional<std::string>& name,
                                            bool overwriting, bool clone) const {
  return infoForPathObject(
      pathObject()->copyToDirectory(directory, name, overwriting, clone && isRegularFile()));
}

Ref<PXFileInfo> PXFileInfo::copyTo(const std::string& target, bool overwriting, bool clone) const {
  return infoForPathObject(pathObject()->copyTo(target, overwriting, clone && isRegularFile()));
}

bool PXFileInfo::tryToDeleteFile() {
  return pathObject()->tryToDeleteFile();
}

Ref<PXFileInfo> PXFileInfo::deleteFile() {
  pathObject()->deleteFile();
  return PXNonexistentFile::initWithPathObject(pathObject());
}

Ref<PXFileInfo> PXFileInfo::swapWith(const PXFileInfo& other) {
  auto path = other.pathObject();
  pathObject()->swapWith(*path);
  return infoForPathObject(path);
}

}  // namespace hoist
