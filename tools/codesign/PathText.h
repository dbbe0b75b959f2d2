// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace hoist::codesign {

// File names are bytes; a property list and a line on a terminal hold text. Every byte that is no
// printable ASCII character, and the percent sign, is written as "%" and two upper-case hexadecimal
// digits.
std::string textOfPath(std::string_view path);

// The reverse; none when the text is not exactly what textOfPath makes of some path, so that each
// path has one spelling.
std::optional<std::string> pathOfText(std::string_view text);

}  // namespace hoist::codesign
