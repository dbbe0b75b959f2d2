// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/attrlist/Attributes.h"

namespace hoist::attrlist {

// AttributeCalls::setattrlist.
int writeBack(const char* path, const ItemIdentity& expected, std::uint32_t commonSet,
              const CommonValues& values, ItemAttributes& after);

}  // namespace hoist::attrlist
