// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include "values/Ref.h"

namespace hoist::xpc {

// Whose things are nobody's in particular.
inline constexpr uid_t kNobodysThings = static_cast<uid_t>(-1);

// Lets go of sockets and descriptors on another thread, those of one user one after the other, in
// order. Never waits for it. Any thread.
void letGoElsewhere(uid_t user, Ref<void> things);

}  // namespace hoist::xpc
