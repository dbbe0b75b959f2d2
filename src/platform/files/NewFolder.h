// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace hoist::files {

struct FolderAttributes {
  std::optional<std::uint32_t> mode;  // permission bits, set exactly, whatever the umask
  std::optional<std::uint32_t> ownerID;
  std::optional<std::uint32_t> groupID;
};

// Makes one folder; the one above it must exist. The attributes are given to the very folder that
// was made, through its descriptor: whatever somebody puts in its place meanwhile is neither
// followed nor changed (ESTALE). A folder that cannot get its attributes is removed again. Throws
// SystemCallError; EEXIST when anything is there.
void makeFolder(const std::string& path, const FolderAttributes& attributes);

// The group of the people who administer the machine: the account of that name, for "admin" also
// "sudo" or "wheel". Nothing, and a report, when there is none.
std::optional<std::uint32_t> groupAccount(const std::string& name);

}  // namespace hoist::files
