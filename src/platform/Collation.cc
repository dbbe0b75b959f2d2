// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Collation.h"

#include <glib.h>

#include <algorithm>
#include <memory>

#include "platform/FilePaths.h"

namespace hoist {
namespace {

using GLibText = std::unique_ptr<char, decltype(&g_free)>;

std::string foldedName(std::string_view name) {
  if (std::ranges::all_of(name, [](char c) { return g_ascii_iscntrl(c) || g_ascii_isprint(c); })) {
    // Most names; a tenth of the work.
    std::string folded(name);
    for (char& c : folded) c = g_ascii_tolower(c);
    return folded;
  }
  // GLib reads past the end of text that is no valid UTF-8.
  std::string text = stringFromFileSystemRepresentation(name);
  return GLibText(g_utf8_casefold(text.data(), static_cast<gssize>(text.size())), g_free).get();
}

}  // namespace

std::string finderLikeKey(std::string_view name) {
  auto folded = foldedName(name);
  GLibText key(g_utf8_collate_key_for_filename(folded.data(), static_cast<gssize>(folded.size())),
               g_free);
  return key.get();
}

std::strong_ordering finderLikeCompare(std::string_view a, std::string_view b) {
  if (auto order = finderLikeKey(a) <=> finderLikeKey(b); order != 0) return order;
  return a <=> b;
}

}  // namespace hoist
