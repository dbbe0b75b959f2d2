// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "values/Ref.h"

namespace hoist {

class PXFileInfo;

// Lets go of the object on the background queue. The objects of a chain, each of which hands its
// next one here when it goes away, so are released one after the other, without recursion. Safe
// from any thread.
void releaseInBackground(Ref<PXFileInfo> object) noexcept;

}  // namespace hoist
