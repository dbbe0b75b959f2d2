// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "locations/HomeOverride.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "filesystem/PXFileInfo.h"
#include "platform/Exception.h"
#include "platform/FilePaths.h"
#include "values/product.h"

namespace hoist {
namespace {

constexpr std::string_view kMemoryFilePrefix = "/memfd:";

std::string kernelsNameOfExecutable() {
  char name[4096];
  auto length = ::readlink("/proc/self/exe", name, sizeof name);
  return length < 0 ? "" : std::string(name, static_cast<std::size_t>(length));
}

// Up to the NUL that ends it.
std::string argumentZero() {
  std::string argument;
  std::ifstream arguments("/proc/self/cmdline", std::ios::binary);
  std::getline(arguments, argument, '\0');
  return argument;
}

// The file that a sealed copy was made of: only root starts tools as somebody else, so only then is
// the argument root's word.
std::string nameGivenByRoot() {
  struct stat status;
  auto path = argumentZero();
  bool isHelpers = ::getuid() == 0 && ::stat(path.c_str(), &status) == 0 &&
                   S_ISREG(status.st_mode) && (status.st_mode & S_ISUID) != 0 &&
                   status.st_uid == ::geteuid();
  return isHelpers ? path : "";
}

std::optional<std::string> findOverride() {
  try {
    auto executable = kernelsNameOfExecutable();
    if (executable.starts_with(kMemoryFilePrefix)) executable = nameGivenByRoot();
    return executable.empty() ? std::nullopt : homeOverrideForExecutable(executable);
  } catch (const Exception&) {
    return std::nullopt;
  }
}

}  // namespace

std::optional<std::string> homeOverrideForExecutable(const std::string& path) {
  auto info = PXFileInfo::infoForPath(path);
  if (!info || (info->access() & S_ISUID) == 0) return std::nullopt;
  auto folder = deleteLastPathComponent(path);
  if (baseName(folder) == product::kProductFolder) {
    // Out of "~/.local/share/PRODUCT".
    for (int level = 0; level < 3; ++level) folder = deleteLastPathComponent(folder);
  }
  if (folder == "/") return std::nullopt;
  return folder;
}

const std::optional<std::string>& homeFolderOverride() {
  static const auto& found = *new std::optional<std::string>(findOverride());
  return found;
}

}  // namespace hoist
