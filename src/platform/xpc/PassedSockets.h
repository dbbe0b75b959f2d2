// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/FileDescriptor.h"

namespace hoist::xpc {

// The listening socket that the service manager passed to this process for a service: the one with
// that descriptor name, or the only one, whatever its name; none if there is no such socket, or if
// it was taken before. It does not block. Any thread.
FileDescriptor takePassedSocket(const std::string& serviceName);

}  // namespace hoist::xpc
