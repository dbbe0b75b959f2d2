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

bool isInsideFolder(int folder, const struct stat& item) {
  FileDescriptor climbing;
  int current = folder;
  struct stat last {};
  for (;;) {
    struct stat status;
    systemCall("fstat", [&] { return ::fstat(current, &status); });
    if (status.st_dev == item.st_dev && status.st_ino == item.st_ino) return true;
    // The root is its own parent.
    if (status.st_dev == last.st_dev && status.st_ino == last.st_ino) return false;
    last = status;
    climbing.reset(systemCall(
        "openat(..)", [&] { return ::openat(current, "..", O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    current = climbing.get();
  }
}

}  // namespace hoist::files
