// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include "platform/attrlist/Attributes.h"

namespace hoist::attrlist {

// The fields that statx must fill for a request.
unsigned statxMask(const AttributeSet& request);
// The requested attributes out of what statx answered. The reply must be fresh.
void translate(const struct statx& item, const AttributeSet& request, ItemAttributes& reply);

// The vnode type of a mode, and of a directory entry's type byte; 0 for an unknown one.
std::uint32_t vnodeTypeOfMode(unsigned mode);
std::uint32_t vnodeTypeOfEntry(unsigned char entryType);
std::uint32_t deviceNumber(const struct statx& item);
// The file flags for statx's attribute bits.
std::uint32_t flagsOfAttributes(std::uint64_t attributes);
timespec timeOf(const statx_timestamp& time);

}  // namespace hoist::attrlist
