// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

namespace hoist::platform {

// The running program's executable, by the kernel's word and not by an argument that a caller
// chose. Throws std::filesystem::filesystem_error.
std::string executablePath();
// The folder that holds it.
std::string executableFolder();

}  // namespace hoist::platform
