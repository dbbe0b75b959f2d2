// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <elfutils/libdw.h>

#include <array>
#include <cstdint>
#include <optional>

#include "sample/MemoryMap.h"
#include "sample/Registers.h"

namespace hoist::sample {

// How to get from the registers of one frame to those of its caller, at one place in the code: the
// everyday part of what call frame information can say, put so that a step costs nanoseconds.
// Immutable.
class FrameRule {
 public:
  // Reads 8 bytes of the stack; false if they cannot be had.
  template <class Read>
  bool step(Registers& registers, Read&& read) const;

  // True for the outermost function of a thread: it has no caller.
  bool isOutermost() const { return outermost_; }

  // Nothing when there is no information for the address (in the file's terms), or it takes an
  // expression to say it.
  static std::optional<FrameRule> at(Dwarf_CFI* information, Dwarf_Addr address);

 private:
  // Registers that a function must give back as they were: rbx, rbp, r12 to r15. Of the others
  // nothing is known in a caller.
  static constexpr std::array<std::uint8_t, 6> kKept = {3, 6, 12, 13, 14, 15};
  static constexpr std::int32_t kSame = INT32_MIN;

  bool readFrameAddress(Dwarf_Frame* frame);
  bool readKept(Dwarf_Frame* frame);
  bool readReturnAddress(Dwarf_Frame* frame);

  std::uint8_t base_ = 0;
  bool outermost_ = false;
  std::int32_t offset_ = 0;
  std::int32_t returnAddress_ = 0;
  // Where each kept register was saved, from the frame's address; kSame if it still has its value.
  std::array<std::int32_t, kKept.size()> saved_{};
};

template <class Read>
bool FrameRule::step(Registers& registers, Read&& read) const {
  const Address frame = registers.value[base_] + static_cast<Address>(std::int64_t{offset_});
  auto at = [frame](std::int32_t offset) {
    return frame + static_cast<Address>(std::int64_t{offset});
  };
  std::uint64_t returnAddress = 0;
  if (!read(at(returnAddress_), returnAddress)) return false;
  for (std::size_t i = 0; i < kKept.size(); ++i) {
    if (saved_[i] != kSame && !read(at(saved_[i]), registers.value[kKept[i]])) return false;
  }
  registers.value[Registers::kStackPointer] = frame;
  registers.value[Registers::kReturnAddress] = returnAddress;
  return true;
}

}  // namespace hoist::sample
