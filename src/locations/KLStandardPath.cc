// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "locations/KLStandardPath.h"

#include <sys/stat.h>

#include "locations/HomeOverride.h"
#include "platform/FilePaths.h"

namespace hoist {
namespace {

constexpr const char* kDirectoryKey = "wellknown";
constexpr const char* kDomainsKey = "domains";

}  // namespace

KLStandardPath::KLStandardPath(std::uint64_t standardDirectory, std::uint64_t domainMask,
                               std::optional<Dictionary> attributes)
    : KLPath(std::move(attributes)),
      standardDirectory_(standardDirectory),
      domainMask_(domainMask) {}

Ref<KLStandardPath> KLStandardPath::initWithStandardDirectory(
    std::uint64_t directory, std::uint64_t domains, std::optional<Dictionary> attributes) {
  return make<KLStandardPath>(directory, domains, std::move(attributes));
}

std::optional<std::string> KLStandardPath::constructPath() const {
  auto folders = standardFolders(standardDirectory_, domainMask_);
  if (folders.empty()) return std::nullopt;
  auto folder = folders.front();
  if (!folder.starts_with('~')) return folder;
  if (auto& home = homeFolderOverride()) {
    folder.replace(0, 1, *home);
  } else {
    folder = expandTilde(folder);
  }
  makeUserFolder(folder);
  return folder;
}

bool KLStandardPath::exists() {
  struct stat status;
  auto resolved = path();
  return resolved && ::stat(resolved->c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void KLStandardPath::encodeWithCoder(Encoder& encoder) const {
  KLPath::encodeWithCoder(encoder);
  encoder.encodeInteger(kDirectoryKey, static_cast<std::int64_t>(standardDirectory_));
  encoder.encodeInteger(kDomainsKey, static_cast<std::int64_t>(domainMask_));
}

Ref<Object> KLStandardPath::decode(Decoder& decoder) {
  auto attributes = decodeAttributes(decoder);
  auto directory = static_cast<std::uint64_t>(decoder.decodeInteger(kDirectoryKey));
  auto domains = static_cast<std::uint64_t>(decoder.decodeInteger(kDomainsKey));
  return make<KLStandardPath>(directory, domains, std::move(attributes));
}

}  // namespace hoist
