// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string_view>

namespace hoist::codesign {

// Throws Problem unless the text can be given to the property-list library without harm: a seal is
// an XML property list of known tags without attributes, comments or sections of other kinds, with
// dictionaries nested three deep at most, within the limits on its size and the number of its tags.
// Answers how many keys it holds.
std::uint64_t checkSealShape(std::string_view text);

}  // namespace hoist::codesign
