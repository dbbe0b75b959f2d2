// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "values/Error.h"
#include "values/Value.h"

namespace hoist::files {

// Keys of an item's attributes.
inline constexpr const char* kFileType = "NSFileType";
inline constexpr const char* kFileSize = "NSFileSize";  // bytes
inline constexpr const char* kFileModificationDate = "NSFileModificationDate";
inline constexpr const char* kFileCreationDate = "NSFileCreationDate";
inline constexpr const char* kFileReferenceCount = "NSFileReferenceCount";
inline constexpr const char* kFilePosixPermissions = "NSFilePosixPermissions";  // 12 bits
inline constexpr const char* kFileOwnerAccountID = "NSFileOwnerAccountID";
inline constexpr const char* kFileOwnerAccountName = "NSFileOwnerAccountName";
inline constexpr const char* kFileGroupOwnerAccountID = "NSFileGroupOwnerAccountID";
inline constexpr const char* kFileGroupOwnerAccountName = "NSFileGroupOwnerAccountName";
inline constexpr const char* kFileSystemFileNumber = "NSFileSystemFileNumber";

// The operations of the original platform's file manager. Paths are bytes. What fails answers the
// error with the path of the item that it is about; null is success. No link is followed that is
// not on the way to the item. Safe from any thread.

// Whether an item is there; a dangling link is none.
bool fileExistsAtPath(const std::string& path);

// Fails when the target exists; moves between file systems by copy and removal.
Ref<Error> moveItem(const std::string& from, const std::string& to);
// Fails when the target exists, or lies in the source. What was copied stays (TreeCopy.h).
Ref<Error> copyItem(const std::string& from, const std::string& to);
// A folder with everything in it.
Ref<Error> removeItem(const std::string& path);
// Why the source could not be copied or moved in the place of the target: they are one item, or one
// of them holds the other.
Ref<Error> refusalToReplace(const std::string& from, const std::string& to);

// Makes one folder, with permissions, owner and group (by number or name) out of the attributes.
Ref<Error> createDirectory(const std::string& path, const Dictionary& attributes);

// Of the item itself, not of a link's target; nothing when there is none.
std::optional<Dictionary> attributesOfItem(const std::string& path);

}  // namespace hoist::files
