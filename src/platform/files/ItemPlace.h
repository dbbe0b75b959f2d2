// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/FileDescriptor.h"

namespace hoist::files {

// Where an item is or is to be: a name in an open folder, which stays the same folder whatever its
// path comes to mean.
struct ItemPlace {
  FileDescriptor folder;  // O_PATH
  std::string folderPath;
  std::string name;

  // Links on the way to the folder are followed. Throws SystemCallError when there is no such
  // folder, or when the path names no item in one: "/", "." or ".." (EINVAL), or nothing (ENOENT).
  static ItemPlace of(const std::string& path);

  std::string path() const;
  // The item, which must be a folder and no link to one, for its place only (O_PATH). Throws
  // SystemCallError.
  FileDescriptor openFolder() const;
};

}  // namespace hoist::files
