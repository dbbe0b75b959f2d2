// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// libdw works a frame's description out anew every time it is asked and evaluates an expression per
// register: about a microsecond a frame. A sampler meets the same few thousand places again and
// again, and at nearly all of them the description says: the frame's address is a register plus a
// number, and what was saved lies at fixed distances from it. Those are kept in that form; all
// others are left to libdwfl.
#include "sample/FrameRule.h"

#include <dwarf.h>

#include <cstdlib>
#include <memory>

namespace hoist::sample {
namespace {

constexpr unsigned kFramePointer = 6;

// "Saved at the frame's address plus an offset", the only expression that is understood.
bool isSavedAtOffset(const Dwarf_Op* operations, std::size_t count, std::int32_t& offset) {
  if (count == 0 || operations[0].atom != DW_OP_call_frame_cfa || count > 2) return false;
  if (count == 1) {
    offset = 0;
    return true;
  }
  if (operations[1].atom != DW_OP_plus_uconst) return false;
  auto distance = static_cast<std::int64_t>(operations[1].number);
  if (distance < INT16_MIN * 1024LL || distance > INT16_MAX * 1024LL) return false;
  offset = static_cast<std::int32_t>(distance);
  return true;
}

}  // namespace

std::optional<FrameRule> FrameRule::at(Dwarf_CFI* information, Dwarf_Addr address) {
  Dwarf_Frame* made = nullptr;
  if (::dwarf_cfi_addrframe(information, address, &made) != 0) return std::nullopt;
  std::unique_ptr<Dwarf_Frame, void (*)(void*)> frame(made, std::free);
  bool forSignal = false;
  int returnRegister = ::dwarf_frame_info(frame.get(), nullptr, nullptr, &forSignal);
  // The frame of a signal handler's caller saves every register, not only the kept ones.
  if (forSignal || returnRegister != static_cast<int>(Registers::kReturnAddress)) {
    return std::nullopt;
  }
  FrameRule rule;
  if (!rule.readReturnAddress(frame.get())) return std::nullopt;
  if (rule.outermost_) return rule;
  if (!rule.readFrameAddress(frame.get()) || !rule.readKept(frame.get())) return std::nullopt;
  return rule;
}

bool FrameRule::readFrameAddress(Dwarf_Frame* frame) {
  Dwarf_Op* operations = nullptr;
  std::size_t count = 0;
  if (::dwarf_frame_cfa(frame, &operations, &count) != 0 || count != 1) return false;
  unsigned base = 0;
  std::int64_t offset = 0;
  if (operations[0].atom == DW_OP_bregx) {
    base = static_cast<unsigned>(operations[0].number);
    offset = static_cast<std::int64_t>(operations[0].number2);
  } else if (operations[0].atom >= DW_OP_breg0 && operations[0].atom <= DW_OP_breg31) {
    base = static_cast<unsigned>(operations[0].atom - DW_OP_breg0);
    offset = static_cast<std::int64_t>(operations[0].number);
  } else {
    return false;
  }
  if ((base != Registers::kStackPointer && base != kFramePointer) ||
      offset != std::int32_t(offset)) {
    return false;
  }
  base_ = static_cast<std::uint8_t>(base);
  offset_ = static_cast<std::int32_t>(offset);
  return true;
}

bool FrameRule::readKept(Dwarf_Frame* frame) {
  for (std::size_t i = 0; i < kKept.size(); ++i) {
    Dwarf_Op memory[3];
    Dwarf_Op* operations = nullptr;
    std::size_t count = 0;
    if (::dwarf_frame_register(frame, kKept[i], memory, &operations, &count) != 0) return false;
    if (count == 0) {
      saved_[i] = kSame;  // or given up for good, in functions that never return
    } else if (!isSavedAtOffset(operations, count, saved_[i])) {
      return false;
    }
  }
  return true;
}

bool FrameRule::readReturnAddress(Dwarf_Frame* frame) {
  Dwarf_Op memory[3];
  Dwarf_Op* operations = nullptr;
  std::size_t count = 0;
  if (::dwarf_frame_register(frame, Registers::kReturnAddress, memory, &operations, &count) != 0) {
    return false;
  }
  outermost_ = count == 0 && operations == memory;
  return outermost_ || isSavedAtOffset(operations, count, returnAddress_);
}

}  // namespace hoist::sample
