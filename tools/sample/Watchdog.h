// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>

namespace hoist::sample {

// Ends the whole process with status 1 and one line on standard error if it still runs after the
// time, or has used up its processor time (limitResources): a target can put files before the
// sampler that take for ever to read. Threads that are being sampled are let go by that end. To be
// called once, before other threads begin.
void startWatchdog(std::chrono::milliseconds limit);

}  // namespace hoist::sample
