// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>
#include <sys/user.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "platform/FileDescriptor.h"
#include "sample/MemoryMap.h"

namespace hoist::sample {

class TargetProcess;

// Tells that a thread still sleeps where it was last looked at, without stopping it: most threads
// of most programs sleep, and being stopped makes some of their system calls fail with EINTR. Used
// by one thread.
class SleepWatch {
 public:
  SleepWatch(const TargetProcess& process, pid_t thread) : process_(process), thread_(thread) {}

  // Called while the thread stands still, with what was captured.
  void remember(const user_regs_struct& registers, std::span<const std::byte> stack);
  void forget() { place_.reset(); }

  // True if the thread has slept at the remembered place ever since, but for the one moment in
  // which it was let go.
  bool isAsleepAtSamePlace();

 private:
  struct Place {
    Address stackPointer;
    std::size_t length;
    std::uint64_t digest;
    // How often the thread had been given a processor when it was captured.
    std::uint64_t turns;
    bool settled;
  };
  bool open();
  std::optional<std::uint64_t> turns() const;
  bool isAsleep() const;
  std::optional<std::uint64_t> digest(Address from, std::size_t length) const;

  const TargetProcess& process_;
  const pid_t thread_;
  // Opened when the thread is first found asleep.
  FileDescriptor schedule_;
  FileDescriptor status_;
  std::optional<Place> place_;
};

}  // namespace hoist::sample
