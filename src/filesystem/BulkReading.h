// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "filesystem/ChildList.h"

namespace hoist {

// The children of the open folder, with their attributes, in the order of the folder. Raises "IO" /
// "failed to read directory".
ChildList readInBulk(int folder, const Ref<PXPath>& path);

}  // namespace hoist
