// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace hoist::files {

// Whether the open folder is the other one or lies below it, also when one of the two was reached
// through a bind mount. Either may be open for its place only (O_PATH). Throws SystemCallError.
bool isInsideFolder(int folder, int other);

}  // namespace hoist::files
