// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// libplist takes a property list apart without recursion but frees it with one, so nesting deep
// enough ends the process. Containers cannot nest deeper than there are of them, so counting where
// one could begin is a bound that no trick with comments or quotes gets around. In the binary form
// a few bytes can stand for billions of containers; bundles made for Linux have no need of it.
#include "platform/InfoPlist.h"

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

namespace hoist::platform {
namespace {

// libplist needs about 50 bytes of stack a level; threads here have 128 KiB.
constexpr std::size_t kMaximumContainers = 512;

struct PlistFree {
  void operator()(void* node) const { plist_free(node); }
};
using Plist = std::unique_ptr<void, PlistFree>;

std::size_t occurrences(std::string_view text, std::string_view part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string_view::npos;
       at = text.find(part, at + part.size()))
    ++count;
  return count;
}

Plist parse(std::span<const std::uint8_t> bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  if (text.size() > kMaximumInfoPlistBytes || text.starts_with("bplist")) return {};
  if (occurrences(text, "<array") + occurrences(text, "<dict") > kMaximumContainers) return {};
  plist_t node = nullptr;
  plist_from_xml(text.data(), static_cast<std::uint32_t>(text.size()), &node);
  return Plist(node);
}

}  // namespace

std::optional<std::string> infoPlistText(std::span<const std::uint8_t> infoPlist, const char* key) {
  const auto plist = parse(infoPlist);
  if (!PLIST_IS_DICT(plist.get())) return {};
  const plist_t node = plist_dict_get_item(plist.get(), key);
  if (!PLIST_IS_STRING(node)) return {};
  char* value = nullptr;
  plist_get_string_val(node, &value);
  const std::unique_ptr<char, decltype(&std::free)> owner(value, &std::free);
  if (!value) return {};
  return std::string(value);
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
