// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/StandardFolders.h"

#include <sys/stat.h>

#include <optional>

#include "platform/FilePaths.h"
#include "values/product.h"

namespace hoist {
namespace {

// XDG Base Directory Specification: the default of XDG_DATA_HOME, and the mode of what is made.
constexpr const char* kUserData = "~/.local/share";
constexpr mode_t kPrivate = 0700;

std::optional<std::string> userFolder(StandardDirectory directory) {
  switch (directory) {
    case StandardDirectory::Library:
    case StandardDirectory::ApplicationSupport:
      return kUserData;
    default:
      return std::nullopt;
  }
}

std::optional<std::string> localFolder(StandardDirectory directory) {
  switch (directory) {
    case StandardDirectory::Application:
      return std::string(product::kLocalApplicationDirectory);
    case StandardDirectory::Library:
    case StandardDirectory::ApplicationSupport:
      return std::string(product::kLocalStateDirectory);
    default:
      return std::nullopt;
  }
}

}  // namespace

std::vector<std::string> standardFolders(std::uint64_t number, std::uint64_t domainMask) {
  auto directory = static_cast<StandardDirectory>(number);
  std::vector<std::string> folders;
  if (domainMask & kUserDomain) {
    if (auto folder = userFolder(directory)) folders.push_back(*folder);
  }
  if (domainMask & kLocalDomain) {
    if (auto folder = localFolder(directory)) folders.push_back(*folder);
  }
  return folders;
}

void makeUserFolder(const std::string& path) {
  // "~/.local/share" is two folders below the home, which is not made.
  auto above = directoryName(path);
  struct stat home;
  if (::stat(directoryName(above).c_str(), &home) != 0) return;
  (void)::mkdir(above.c_str(), kPrivate);
  (void)::mkdir(path.c_str(), kPrivate);
}

}  // namespace hoist
