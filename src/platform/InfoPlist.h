// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace hoist::platform {

// What an application bundle's Info.plist says, as pure functions: bytes in, value out, nothing
// thrown. The file belongs to whoever owns the bundle and may hold anything.

// Where it stands inside a bundle.
inline constexpr std::string_view kInfoPlistPath = "Contents/Info.plist";

// Larger ones are not read. Picked: those of real applications have 2 to 60 KiB.
inline constexpr std::uint64_t kMaximumInfoPlistBytes = 1024 * 1024;

// The text under a key of the outermost dictionary; none when there is no such key, its value is no
// text, or the bytes are no property list within the bounds.
std::optional<std::string> infoPlistText(std::span<const std::uint8_t> infoPlist, const char* key);

// CFBundleExecutable, if it is the plain name of a file: not empty, no slash, neither "." nor "..".
std::optional<std::string> executableNameOfInfoPlist(std::span<const std::uint8_t> infoPlist);

// Where a bundle's executable of that name may stand, relative to the bundle; the first that is a
// regular file is the one.
std::vector<std::string> executableCandidates(std::string_view name);

}  // namespace hoist::platform
