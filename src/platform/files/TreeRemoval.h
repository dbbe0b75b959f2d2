// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace hoist::files {

// Removes the item and, if it is a folder, everything below it. Links are removed themselves. What
// is mounted inside the tree is left alone and ends the removal (EBUSY). What somebody else removes
// from the tree meanwhile is passed over. Throws SystemCallError with the item that could not be
// removed; what was removed before stays so.
void removeTree(const std::string& path);

}  // namespace hoist::files
