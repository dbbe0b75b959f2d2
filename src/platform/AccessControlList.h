// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/acl.h>

namespace hoist {

// The item's access list, to be freed with acl_free; null when the permission bits say it all, for
// a link (never followed), and when it cannot be read. Safe from any thread.
acl_t accessControlListOfItem(const char* path);

}  // namespace hoist
