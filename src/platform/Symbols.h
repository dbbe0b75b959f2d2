// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

namespace hoist {

// What the dynamic loader knows of a code address: "SYMBOL-ADDRESS SYMBOL (IMAGE@LOAD-ADDRESS)",
// the addresses in hexadecimal and 18 characters wide, "unknown" for a symbol that has no name (one
// that is not exported); "(unknown image)" when the address lies in none.
std::string describeSymbol(std::uintptr_t address);

// The address itself in the same form.
std::string describeAddress(std::uintptr_t address);

}  // namespace hoist
