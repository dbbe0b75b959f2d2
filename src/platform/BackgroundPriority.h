// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

namespace hoist::platform {

// The original platform's number for its background band, given to setpriority as it is: the kernel
// clamps it to nice 19.
inline constexpr int kBackgroundBandPriority = 0x1000;

// Gives that priority to every thread that the process now has. Answers 0, or errno of the first
// setpriority call that failed.
int setBackgroundPriority(pid_t process);

// Adds, for every thread that the process now has, the idle I/O class and SCHED_IDLE: with the
// priority, which threads get that have come since, they are the nearest to the background band. On
// a busy machine such a process may get no processor for a second, so this is for one that nobody
// waits for. Fails quietly.
void enterIdleClasses(pid_t process);

}  // namespace hoist::platform
