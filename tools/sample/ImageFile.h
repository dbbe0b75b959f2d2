// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "platform/FileDescriptor.h"
#include "sample/MemoryMap.h"

namespace hoist::sample {

class TargetProcess;

// Where separate debug files lie, as <folder>/.build-id/xx/yyyy.debug.
inline constexpr const char* kDebugFolder = "/usr/lib/debug";

// Opens the file that stands behind a mapping of the process, for reading. Empty when it cannot be
// had, is no regular file, is not the mapped one, or is too large to be a program.
FileDescriptor openMappedFile(const TargetProcess& process, const Mapping& mapping);

// Opens the debug file of a build identifier. Empty when there is none, or it is no regular file of
// the folder's owner, or of other users' making.
FileDescriptor openDebugFile(const std::string& folder, std::span<const std::byte> buildID);

// The identifier in lower-case hexadecimal.
std::string buildIDText(std::span<const std::byte> buildID);

}  // namespace hoist::sample
