// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>

#include "values/Value.h"

namespace hoist::platform {

// Property lists as bytes: strings, numbers, booleans, data, dates, arrays and dictionaries. Pure
// functions; safe from any thread.

// The bytes are no property list that this program reads, or the value is none.
class PropertyListError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Larger ones are refused. Picked.
inline constexpr std::size_t kMaximumPropertyListSize = 32 * 1024 * 1024;

enum class PropertyListFormat { XML, Binary };

// Reads either form. The bytes may be hostile: what comes back is at most 64 containers deep and
// not much larger than the bytes (PropertyListCheck.h has the bounds). Numbers above 2^63 become
// their two's complement. A NUL ends a string or becomes U+FFFD, as do bytes that are no UTF-8.
// Throws PropertyListError.
Value propertyListFromData(std::span<const std::uint8_t> bytes);

// Throws PropertyListError for the null marker, an object, and more than 64 containers inside each
// other. XML keeps whole seconds of a date from the years 1000 to 9999, the binary form what a
// double of seconds since 2001 can hold of one from the years 1 to 9999; others are moved to the
// nearest end. What XML cannot hold (NUL and other control characters, bytes that are no UTF-8)
// becomes U+FFFD in both forms.
Data dataFromPropertyList(const Value& value, PropertyListFormat format);

}  // namespace hoist::platform
