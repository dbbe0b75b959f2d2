// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace hoist {

// The original platform's numbers.
enum class StandardDirectory : std::uint64_t {
  Application = 1,
  Library = 5,
  ApplicationSupport = 14,
};
inline constexpr std::uint64_t kUserDomain = 1;
inline constexpr std::uint64_t kLocalDomain = 2;

// Where the platform keeps a standard folder in the domains of the mask, by its number above, the
// user's first. The user's begin with "~". Empty for a folder that Linux does not have there.
std::vector<std::string> standardFolders(std::uint64_t number, std::uint64_t domainMask);

// Makes a user's standard folder, and the folders on the way that are missing below an existing
// home, for the user alone; as desktop programs do. What cannot be made is left to whoever uses it.
void makeUserFolder(const std::string& path);

}  // namespace hoist
