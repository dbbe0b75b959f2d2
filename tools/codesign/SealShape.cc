// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The property-list library frees what it has read by recursion and spends some hundred bytes on
// each tag; neither depth nor number is bounded by it. Knowing every tag that can occur makes the
// depth here the depth there: there are no comments or quotes that the two could read differently.
#include "codesign/SealShape.h"

#include <algorithm>
#include <array>

#include "codesign/Limits.h"
#include "codesign/Problem.h"
#include "codesign/Seal.h"

namespace hoist::codesign {
namespace {

constexpr std::string_view kRoot = "<plist version=\"1.0\">";
// What stands before the root: declaration and document type, 160 bytes as usually written.
constexpr std::size_t kMaximumPrologue = 512;
// The seal, its three tables, their entries.
constexpr int kMaximumNesting = 3;

constexpr std::array<std::string_view, 12> kTags = {
    "<dict>",   "</dict>",   "<dict/>",   "<key>",     "</key>",     "<key/>",
    "<string>", "</string>", "<string/>", "<integer>", "</integer>", "</plist>"};

[[noreturn]] void refuse(std::string_view reason) {
  throw Problem(kSealPath, reason);
}

std::string_view withoutPrologue(std::string_view text) {
  const auto root = text.substr(0, kMaximumPrologue).find(kRoot);
  if (root == std::string_view::npos) refuse("is not an XML property list");
  return text.substr(root + kRoot.size());
}

std::string_view tagAt(std::string_view text) {
  const auto tag = std::find_if(kTags.begin(), kTags.end(),
                                [&](std::string_view known) { return text.starts_with(known); });
  if (tag == kTags.end()) refuse("holds something else than dictionaries, texts and integers");
  return *tag;
}

}  // namespace

std::uint64_t checkSealShape(std::string_view text) {
  if (text.size() > kMaximumSealBytes) refuse("is too large");
  // The library reads C strings in places.
  if (text.find('\0') != std::string_view::npos) refuse("is not an XML property list");
  text = withoutPrologue(text);
  int nesting = 0;
  std::uint64_t tags = 0;
  std::uint64_t keys = 0;
  for (auto at = text.find('<'); at != std::string_view::npos; at = text.find('<', at + 1)) {
    const auto tag = tagAt(text.substr(at));
    if (tag == "<dict>") ++nesting;
    if (tag == "</dict>") --nesting;
    if (tag == "<key>" || tag == "<key/>") ++keys;
    if (nesting < 0 || nesting > kMaximumNesting) refuse("is nested wrongly");
    if (++tags > kMaximumSealTags) refuse("has too many entries");
  }
  return keys;
}

}  // namespace hoist::codesign
