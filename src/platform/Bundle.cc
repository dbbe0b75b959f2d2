// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Bundle.h"

#include <fcntl.h>
#include <glib.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "platform/FileReading.h"
#include "platform/InfoPlist.h"
#include "platform/SystemCall.h"

namespace hoist::platform {
namespace {

std::vector<std::uint8_t> readInfoPlist(int folder) {
  try {
    const auto file = openRegularFileBeneath(folder, std::string(kInfoPlistPath));
    return readWhole(file.get(), kMaximumInfoPlistBytes);
  } catch (const SystemCallError&) {
    return {};
  }
}

}  // namespace

std::optional<Bundle> Bundle::bundleWithPath(std::string_view path) {
  while (path.size() > 1 && path.ends_with('/')) path.remove_suffix(1);
  if (path.empty() || path.find('\0') != std::string_view::npos) return {};
  std::string name(path);
  FileDescriptor folder(open(name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return {};
  return Bundle(std::move(name), std::move(folder));
}

std::optional<std::string> Bundle::executablePath() const {
  const auto name = executableNameOfInfoPlist(readInfoPlist(folder_.get()));
  if (!name) return {};
  for (const auto& candidate : executableCandidates(*name)) {
    if (isRegularFileBeneath(folder_.get(), candidate)) {
      return path_.ends_with('/') ? path_ + candidate : path_ + '/' + candidate;
    }
  }
  return {};
}

std::optional<std::string> Bundle::executableURL() const {
  const auto path = executablePath();
  if (!path) return {};
  std::error_code ignored;
  const auto absolute = std::filesystem::absolute(*path, ignored).string();
  const std::unique_ptr<char, decltype(&g_free)> url(
      g_filename_to_uri(absolute.c_str(), nullptr, nullptr), &g_free);
  if (!url) return {};
  return std::string(url.get());
}

std::optional<std::string> Bundle::infoText(const char* key) const {
  return infoPlistText(readInfoPlist(folder_.get()), key);
}

}  // namespace hoist::platform
