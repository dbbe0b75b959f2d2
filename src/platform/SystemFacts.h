// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace hoist::platform {

// Facts about the machine and its operating system. All functions are safe from any thread.

// The processors that this process may run on.
unsigned activeProcessorCount();

// The facility level as the original platform tells its version, and as a text:
// "Version 10.15.7 (Debian GNU/Linux, Linux 6.1.0-18-amd64)".
struct OperatingSystemVersion {
  unsigned major;
  unsigned minor;
  unsigned patch;
};
OperatingSystemVersion operatingSystemVersion();
std::string operatingSystemVersionString();

// A tick of the clocks below lasts numerator / denominator nanoseconds. Answers 0, or an error
// number when the system has no such clocks.
struct TickRate {
  std::uint32_t numerator = 0;
  std::uint32_t denominator = 0;
};
int getTickRate(TickRate& rate);

// Ticks since the start of the system: with the time that it slept, without it and exact to some
// milliseconds only, and without it.
std::uint64_t continuousApproximateTime();
std::uint64_t approximateTime();
std::uint64_t absoluteTime();

}  // namespace hoist::platform
