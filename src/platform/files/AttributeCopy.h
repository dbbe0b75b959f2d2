// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include "platform/files/LazyPath.h"

namespace hoist::files {

// Gives an item that was just made the owner, the extended attributes (access lists among them),
// the mode and the times of the one that it is a copy of, in an order in which it never has more
// rights than in the end. Owners are kept as far as this process may; set-ID bits only together
// with their owner. What the target's file system cannot hold is left out. Throws SystemCallError
// with the target's path.

// Both are open; the source only for reading its attributes.
void copyAttributes(int source, const struct stat& status, int target, const LazyPath& targetPath);

// For what cannot be opened (links, pipes, devices): the name in a folder. Links have no mode and
// no extended attributes of their own that people set.
void copyAttributesByName(const struct stat& status, int folder, const char* name,
                          const LazyPath& targetPath);

}  // namespace hoist::files
