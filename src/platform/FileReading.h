// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "platform/FileDescriptor.h"

namespace hoist::platform {

// Reading files that somebody else owns and may change at any moment. Safe from any thread.

// Opens a regular file for reading; answers at once whatever stands at the path. A link at the last
// component is not followed (ELOOP); a folder, device, FIFO or socket is refused (EINVAL) before a
// byte is read. Throws SystemCallError.
FileDescriptor openRegularFile(const std::string& path);

// Opens an item below the folder with the given flags, to which O_CLOEXEC is added. The relative
// path can neither leave the folder (EXDEV) nor pass through a link (ELOOP) nor into another mount
// (EXDEV). Throws SystemCallError.
FileDescriptor openBeneath(int folder, const std::string& path, int flags);

// The same for a regular file, refusing others as openRegularFile does.
FileDescriptor openRegularFileBeneath(int folder, const std::string& path);

// Whether a regular file stands there, readable or not; opens nothing but its name.
bool isRegularFileBeneath(int folder, const std::string& path);

// Hands out the descriptor's bytes from its beginning to its end, wherever its offset stands, and
// leaves that offset alone. Answers how many there were. Throws SystemCallError; EFBIG as soon as
// there are more than the maximum, so a file that grows while it is read comes to an end too.
using ChunkUse = std::function<void(std::span<const std::uint8_t>)>;
std::uint64_t readInChunks(int fd, std::uint64_t maximumBytes, const ChunkUse& use);

// The same as one piece of memory.
std::vector<std::uint8_t> readWhole(int fd, std::uint64_t maximumBytes);

}  // namespace hoist::platform
