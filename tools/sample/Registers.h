// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/user.h>

#include <array>
#include <cstdint>

#include "sample/MemoryMap.h"

#ifndef __x86_64__
#error "the order of this processor's registers is not described here"
#endif

namespace hoist::sample {

// The general registers of a thread in the order of the DWARF numbers (System V ABI for AMD64,
// figure 3.36): 3 rbx, 6 rbp, 7 rsp, 12 to 15, 16 the return address, which is rip here.
struct Registers {
  static constexpr unsigned kCount = 17;
  static constexpr unsigned kStackPointer = 7;
  static constexpr unsigned kReturnAddress = 16;

  static Registers of(const user_regs_struct& user) {
    return {{user.rax, user.rdx, user.rcx, user.rbx, user.rsi, user.rdi, user.rbp, user.rsp,
             user.r8, user.r9, user.r10, user.r11, user.r12, user.r13, user.r14, user.r15,
             user.rip}};
  }
  Address stackPointer() const { return value[kStackPointer]; }
  Address programCounter() const { return value[kReturnAddress]; }

  std::array<std::uint64_t, kCount> value{};
};

}  // namespace hoist::sample
