// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/FileDescriptor.h"

namespace hoist::bench {

// Plain stream sockets of the Unix family. Both throw std::system_error.
FileDescriptor connectedSocket(const std::string& path);
// Listens at the path, says ready, and answers the first connection.
FileDescriptor firstConnection(const std::string& path);

}  // namespace hoist::bench
