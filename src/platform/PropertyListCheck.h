// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>

namespace hoist::platform {

// Containers inside each other, counted from the outermost. libplist, our conversions and whoever
// walks the result recurse once a level, and threads here have stacks of 128 KiB.
inline constexpr unsigned kMaximumPropertyListDepth = 64;

// What a few bytes of shared objects may stand for once they are written out. Both bounds are
// picked: far above anything honest, and harmless to hold.
inline constexpr std::uint64_t kMaximumExpandedNodes = 100'000;  // plus one for each byte of input
inline constexpr std::uint64_t kMaximumExpandedBytes = 16 * 1024 * 1024;  // plus the input's size

// Throw PropertyListError unless libplist can be trusted with the bytes. Pure functions.

// The binary form: every offset and reference in range, nothing inside itself, depth and what
// sharing multiplies within the bounds above.
void checkBinaryPropertyList(std::span<const std::uint8_t> bytes);

// The XML form: the prologue, elements without attributes, comments and character data as property
// lists have them; dates that are dates; depth within the bound.
void checkXMLPropertyList(std::span<const std::uint8_t> bytes);

}  // namespace hoist::platform
