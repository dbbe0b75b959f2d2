// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Executable.h"

#include <filesystem>

namespace hoist::platform {

std::string executablePath() {
  return std::filesystem::read_symlink("/proc/self/exe").string();
}

std::string executableFolder() {
  return std::filesystem::path(executablePath()).parent_path().string();
}

}  // namespace hoist::platform
