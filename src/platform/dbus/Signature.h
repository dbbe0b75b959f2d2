// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string_view>

// Type signatures. Pure; any thread. Source: the D-Bus specification, "Type System".
namespace hoist::dbus {

inline constexpr std::size_t kMaximumSignatureLength = 255;
inline constexpr unsigned kMaximumArrayDepth = 32;   // "a" inside "a"
inline constexpr unsigned kMaximumStructDepth = 32;  // "(" inside "("; of dict entries likewise
inline constexpr unsigned kMaximumDepth =
    64;  // containers of all kinds, variants included, in a message

// Any number of complete types, none included.
bool isValidSignature(std::string_view signature);
// Exactly one complete type, not a bare dict entry.
bool isSingleCompleteType(std::string_view signature);
// Bytes of the complete type that a valid signature begins with; 0 at its end.
std::size_t completeTypeLength(std::string_view signature);
// Bytes to whose multiple a value of this type code is aligned: 1, 2, 4 or 8.
std::size_t alignmentOf(char type);
// A type without a container in it: y b n q i u x t d h s o g.
bool isBasicType(char type);

}  // namespace hoist::dbus
