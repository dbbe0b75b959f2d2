// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "values/Error.h"
#include "values/Value.h"

namespace hoist::volumes {

inline constexpr const char* kFileSystemSize = "NSFileSystemSize";          // bytes
inline constexpr const char* kFileSystemFreeSize = "NSFileSystemFreeSize";  // bytes, to users
inline constexpr const char* kFileSystemNodes = "NSFileSystemNodes";
inline constexpr const char* kFileSystemFreeNodes = "NSFileSystemFreeNodes";
inline constexpr const char* kFileSystemNumber = "NSFileSystemNumber";  // the device

struct FileSystemAttributes {
  std::optional<Dictionary> value;
  Ref<Error> error;
};

// The file manager's facts about the file system that holds the item. The number is the device of
// the mount's root: equal for two paths exactly when they are on one file system.
FileSystemAttributes attributesOfFileSystemForPath(const char* path);

}  // namespace hoist::volumes
