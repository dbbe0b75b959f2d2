// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace hoist {

// The kind of a log entry, 0 to 9.
using Classification = std::int32_t;

// From the key of a detail to the classification with which it is logged.
using ClassificationMap = std::map<std::string, Classification, std::less<>>;

namespace classification {

// Taken by the calls that log exceptions: the classification that the exception itself prefers.
inline constexpr Classification Preferred = -1;
inline constexpr Classification Plain = 0;
inline constexpr Classification Dashes = 1;
inline constexpr Classification Curious = 2;
inline constexpr Classification Caution = 3;
inline constexpr Classification Warning = 4;
inline constexpr Classification Failure = 5;
inline constexpr Classification Minutia = 6;
inline constexpr Classification Details = 7;
inline constexpr Classification Subrosa = 8;
inline constexpr Classification Debug = 9;

// The seven characters that stand for the classification in a log line. Every number outside the
// table reads as Debug.
std::string_view name(Classification classification);

// The classification whose name is exactly the text, else -1.
Classification fromName(std::string_view name);

}  // namespace classification
}  // namespace hoist
