// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace hoist::sample {

// What a line of /proc/PID/stat says of a process or thread (proc(5), fields 2, 3, 4, 9, 22).
struct ProcessStatus {
  std::string name;
  char state = '?';
  pid_t parent = 0;
  std::uint64_t flags = 0;
  // Clock ticks from the start of the system to that of the process.
  std::uint64_t startTicks = 0;

  bool isZombie() const { return state == 'Z' || state == 'X' || state == 'x'; }
  // PF_KTHREAD of the kernel's include/linux/sched.h.
  bool isKernelThread() const { return (flags & 0x00200000) != 0; }
  // On a processor or waiting for one.
  bool isRunnable() const { return state == 'R'; }
  // Neither on a processor nor waiting for one.
  bool isAsleep() const { return state == 'S' || state == 'I'; }
};

// Nothing if the line is not of that form. The name may hold anything, blanks and parentheses
// included.
std::optional<ProcessStatus> parseProcessStatus(std::string_view line);

}  // namespace hoist::sample
