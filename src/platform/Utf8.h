// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace hoist {

// Shown for each byte that belongs to no character.
inline constexpr char32_t kReplacementCharacter = 0xFFFD;

// Takes the first character off the text, which must not be empty. A byte that is no well-formed
// UTF-8 is taken alone and answers U+FFFD.
char32_t takeCharacter(std::string_view& text);

// The bytes as UTF-8: each one that belongs to no character becomes U+FFFD.
std::string validUTF8(std::string_view bytes);

// The longest beginning of at most that many bytes that ends between two characters.
std::string_view cutUTF8(std::string_view bytes, std::size_t maximum);

}  // namespace hoist
