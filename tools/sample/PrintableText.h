// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>

namespace hoist::sample {

// Foreign bytes made fit for a report and a terminal: control characters and bytes that are no
// UTF-8 become '?', and what is longer than the limit (in bytes) ends in "...".
std::string printableText(std::string_view text, std::size_t limit = 4096);

// A symbol's name as a person knows it: demangled if it is a C++ name of sensible length, and
// printable.
std::string functionName(const char* symbol);

}  // namespace hoist::sample
