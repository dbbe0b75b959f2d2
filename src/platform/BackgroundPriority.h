// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

namespace hoist::platform {

// The original platform's number for its background band, given to setpriority as it is: the kernel
// clamps it to nice 19.
inline constexpr int kBackgroundBandPriority = 0x1000;

// Moves every thread that the process now has to the background: that priority, the idle I/O class
// and SCHED_IDLE, the nearest to the background band. Answers 0, or errno of the first setpriority
// call that failed; what is added to that call fails quietly.
int moveToBackground(pid_t process);

}  // namespace hoist::platform
