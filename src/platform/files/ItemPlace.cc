// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/ItemPlace.h"

#include <fcntl.h>

#include <cerrno>

#include "platform/FilePaths.h"
#include "platform/SystemCall.h"

namespace hoist::files {

ItemPlace ItemPlace::of(const std::string& path) {
  ItemPlace place{{}, directoryName(path), baseName(path)};
  if (path.empty()) throw SystemCallError(ENOENT, "open", path);
  if (place.name == "/" || place.name == "." || place.name == "..") {
    throw SystemCallError(EINVAL, "open", path);
  }
  place.folder.reset(systemCall(
      "open", [&] { return ::open(place.folderPath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC); },
      path));
  return place;
}

std::string ItemPlace::path() const {
  return joinPath(folderPath, name);
}

FileDescriptor ItemPlace::openFolder() const {
  constexpr int kFlags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  return FileDescriptor(systemCall(
      "openat", [&] { return ::openat(folder.get(), name.c_str(), kFlags); }, path()));
}

}  // namespace hoist::files
