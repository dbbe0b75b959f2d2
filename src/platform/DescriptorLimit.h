// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/resource.h>

#include <optional>

namespace hoist::platform {

// Raises this process's limit of descriptors to the hard one. Called once, at start, before there
// are other threads. Child tasks start with the limit as it was.
void raiseDescriptorLimit();

// The limit as it was before it was raised; nothing if it was not.
const std::optional<rlimit>& originalDescriptorLimit();

}  // namespace hoist::platform
