// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "filesystem/PXFileInfo.h"

namespace hoist {

// The main executable of the helper bundle that is installed in the boot volume's support folder;
// null when there is no such bundle or it has no executable. Kept as long as the item that was
// found exists. Safe from any thread.
Ref<PXFileInfo> InstalledHelperToolInfo();

}  // namespace hoist
