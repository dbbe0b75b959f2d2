// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace hoist {

// The text in 7-bit ASCII from which it can be read back: a backslash is doubled, U+0080 to U+00FF
// become a backslash and three octal digits, all others "\u" and four lower-case hexadecimal digits
// for each of their UTF-16 units.
std::string nonLossyASCII(std::string_view text);

}  // namespace hoist
