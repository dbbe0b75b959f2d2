// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include "platform/files/LazyPath.h"

namespace hoist::files {

// Gives an item that was just made the owner, the extended attributes (access lists among them),
// the mode and the times of the one that it is a copy of, in an order in which it never has more
// rights than in the end. Owners are kept as far as this process may; set-ID bits only together
// with their owner. What the target's file system cannot hold is left out, but for an attribute
// that it only has no room for (ENOSPC). Throws SystemCallError with the target's path.
//
// Where the target takes no access list, its group gets no more than the list gave it.

// Both are open; the source only for reading its attributes.
void copyAttributes(int source, const struct stat& status, int target, const LazyPath& targetPath);

// For what cannot be opened (links, pipes, devices): names in open folders. Links have no mode and
// no extended attributes of their own that people set.
struct ItemName {
  int folder;
  const char* name;
};
void copyAttributesByName(const ItemName& source, const struct stat& status, const ItemName& target,
                          const LazyPath& targetPath);

// Takes from a new item the access lists that the folder above gave it: with them, the mode of the
// source would give rights to people whom the source does not know.
void dropInheritedLists(int item);
void dropInheritedLists(const ItemName& item);

}  // namespace hoist::files
