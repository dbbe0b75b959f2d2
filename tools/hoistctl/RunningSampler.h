// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <optional>

namespace hoist::ctl {

// The sampler that holds the process at the moment: the program "sample" that traces it. Everybody
// may ask.
std::optional<pid_t> samplerOf(pid_t process);

// Has a sampler write its report now. It is its user's, whoever started it; for others' it is
// without effect.
void endSampling(pid_t sampler);

}  // namespace hoist::ctl
