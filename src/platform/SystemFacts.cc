// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/SystemFacts.h"

#include <fmt/format.h>
#include <glib.h>
#include <sched.h>
#include <sys/utsname.h>
#include <time.h>

#include <cerrno>
#include <fstream>
#include <memory>
#include <thread>

#include "platform/FacilityLevel.h"

namespace hoist::platform {
namespace {

std::uint64_t nanoseconds(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(time.tv_nsec);
}

// NAME of os-release(5), whose values are quoted as a shell's.
std::string distributionName() {
  constexpr std::string_view kKey = "NAME=";
  for (const char* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
      if (!line.starts_with(kKey)) continue;
      const std::unique_ptr<char, void (*)(void*)> value(
          ::g_shell_unquote(line.c_str() + kKey.size(), nullptr), ::g_free);
      if (value) return value.get();
    }
  }
  return "Linux";
}

}  // namespace

unsigned activeProcessorCount() {
  // A machine may have more processors than the fixed set has room for.
  for (int processors = 1024; processors <= 1024 * 1024; processors *= 2) {
    const std::unique_ptr<cpu_set_t, void (*)(cpu_set_t*)> set(
        CPU_ALLOC(static_cast<std::size_t>(processors)), [](cpu_set_t* old) { CPU_FREE(old); });
    const std::size_t size = CPU_ALLOC_SIZE(static_cast<std::size_t>(processors));
    if (::sched_getaffinity(0, size, set.get()) == 0) {
      return static_cast<unsigned>(CPU_COUNT_S(size, set.get()));
    }
    if (errno != EINVAL) break;
  }
  return std::max(std::thread::hardware_concurrency(), 1u);
}

OperatingSystemVersion operatingSystemVersion() {
  const std::uint32_t level = facilityLevel();
  return {level >> 16, level >> 8 & 0xFF, level & 0xFF};
}

std::string operatingSystemVersionString() {
  const OperatingSystemVersion version = operatingSystemVersion();
  utsname system{};
  ::uname(&system);
  return fmt::format("Version {}.{}.{} ({}, {} {})", version.major, version.minor, version.patch,
                     distributionName(), system.sysname, system.release);
}

int getTickRate(TickRate& rate) {
  timespec resolution;
  if (::clock_getres(CLOCK_BOOTTIME, &resolution) != 0) return errno;
  rate = {1, 1};
  return 0;
}

std::uint64_t continuousApproximateTime() {
  return nanoseconds(CLOCK_BOOTTIME);
}

std::uint64_t approximateTime() {
  return nanoseconds(CLOCK_MONOTONIC_COARSE);
}

std::uint64_t absoluteTime() {
  return nanoseconds(CLOCK_MONOTONIC);
}

}  // namespace hoist::platform
