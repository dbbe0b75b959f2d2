// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "filesystem/PXPath.h"

namespace hoist {

// What a path object has made on demand. Most of the children of a folder never need any of it.
struct PXPath::Derived {
  std::optional<std::string> name;
  std::optional<std::string> path;
  std::optional<std::string> url;
  // The full path of a sub path; once made it stays where it is.
  std::unique_ptr<char[]> cPath;
  WeakRef<PXFileInfo> directory;
};

}  // namespace hoist
