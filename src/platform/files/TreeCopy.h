// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace hoist::files {

// Copies the item and, if it is a folder, everything below it: content with its holes, clones where
// the file system can, owners as far as this process may give them, modes, times, extended
// attributes, access lists, links as links, and files with several names in the tree as such.
//
// Throws SystemCallError with the item that failed: EEXIST when the target exists, EINVAL when it
// lies inside the source. A file whose content could not be copied leaves none under its target's
// name; what was copied before stays.
void copyTree(const std::string& from, const std::string& to);

}  // namespace hoist::files
