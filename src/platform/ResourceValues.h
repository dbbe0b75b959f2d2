// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "values/Error.h"

namespace hoist::resource {

// What a file browser wants to know of an item. Each function looks at the item itself, never at a
// link's target, and answers the value, or the error of an item that cannot be looked at. Nothing
// is cached. Safe from any thread.
template <class T>
struct Result {
  std::optional<T> value;
  Ref<Error> error;
};

// The item's name; no other names are kept on Linux.
Result<std::string> localizedName(const char* path);
// Whether the name begins with a dot.
Result<bool> isHidden(const char* path);
// Always false: no file browser of Linux hides extensions by item.
Result<bool> isHiddenExtension(const char* path);
// Whether backups leave the item out: the extended attribute "user.xdg.robots.backup" is "false",
// or the no-dump flag is set, or it is a folder with a valid CACHEDIR.TAG (bford.info/cachedir).
Result<bool> isExcludedFromBackup(const char* path);
// Whether it is an application bundle: a folder named "*.app" with the file Contents/Info.plist.
Result<bool> isPackage(const char* path);
// The identity of the mount that holds the item. Equal for two items of one mount; different for a
// bind mount of the same file system. Unique until the machine restarts, where the kernel can tell.
Result<std::uint64_t> volumeIdentifier(const char* path);

}  // namespace hoist::resource
