// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "filesystem/ChildList.h"

namespace hoist {

// The children of the folder at the path, freshly read in the order of the folder; nothing when it
// cannot be opened. Raises "IO" / "failed to read directory".
std::optional<ChildList> readChildren(const Ref<PXPath>& path);

// The number of names in the folder; 0 when it cannot be opened.
std::uint64_t countChildren(const char* cPath);

}  // namespace hoist
