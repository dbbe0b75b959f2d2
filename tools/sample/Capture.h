// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sample/Registers.h"

namespace hoist::sample {

// One thread of the target. The tracer makes it and names it; the unwinder only asks for more or
// less stack, from its own thread.
struct SampledThread {
  explicit SampledThread(pid_t id) : id(id) {}

  const pid_t id;
  // Read by others only after the tracer has ended.
  std::string name;
  // Bytes of stack that a capture should copy.
  std::atomic<std::uint32_t> stackBytes{8 * 1024};
};

// What was taken from a thread while it stood still; the unwinding comes later, while it runs.
struct Capture {
  enum class Kind {
    // Registers and stack are here.
    Stack,
    // The thread has not moved since its capture before.
    SameAsBefore,
    // The thread did not stop: it waits inside the kernel, for a device say, or got no processor.
    OutOfReach,
  };
  std::shared_ptr<SampledThread> thread;
  Kind kind = Kind::Stack;
  // For how many samples it stands.
  std::uint64_t weight = 1;
  Registers registers;
  // The bytes from the stack pointer on.
  std::vector<std::byte> stack;
};

}  // namespace hoist::sample
