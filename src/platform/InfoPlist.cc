// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/InfoPlist.h"

#include "platform/PropertyList.h"

namespace hoist::platform {
namespace {

std::optional<Value> parse(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > kMaximumInfoPlistBytes) return {};
  try {
    return propertyListFromData(bytes);
  } catch (const PropertyListError&) {
    return {};
  }
}

}  // namespace

std::optional<std::string> infoPlistText(std::span<const std::uint8_t> infoPlist, const char* key) {
  const auto plist = parse(infoPlist);
  const auto* dictionary = plist ? plist->dictionary() : nullptr;
  if (!dictionary) return {};
  const auto entry = dictionary->find(key);
  if (entry == dictionary->end() || !entry->second.isString()) return {};
  return *entry->second.string();
}

std::optional<std::string> executableNameOfInfoPlist(std::span<const std::uint8_t> infoPlist) {
  auto name = infoPlistText(infoPlist, "CFBundleExecutable");
  if (!name || name->empty() || *name == "." || *name == "..") return {};
  if (name->find('/') != name->npos) return {};
  return name;
}

std::vector<std::string> executableCandidates(std::string_view name) {
  std::vector<std::string> candidates;
  for (const char* folder : {"Contents/Linux/", "Contents/MacOS/", ""}) {
    candidates.push_back(std::string(folder).append(name));
  }
  return candidates;
}

}  // namespace hoist::platform
