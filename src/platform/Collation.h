// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <string>
#include <string_view>

namespace hoist {

// The order in which a file browser shows names: without regard to case, numbers by their value,
// after the locale of the process. Names that only differ in what this order ignores are ordered by
// their bytes, so that only equal names compare equal. Safe from any thread.
std::strong_ordering finderLikeCompare(std::string_view a, std::string_view b);

// Bytes whose plain order is the order of the names (but for the tie-break); none of them is NUL.
// Making a key costs as much as a comparison; whoever sorts many names makes each name's once.
std::string finderLikeKey(std::string_view name);
// The same, added to the end of a text.
void appendFinderLikeKey(std::string_view name, std::string& keys);

}  // namespace hoist
