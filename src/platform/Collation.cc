// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Collation.h"

#include <glib.h>

#include <memory>

#include "platform/FilePaths.h"

namespace hoist {
namespace {

using GLibText = std::unique_ptr<char, decltype(&g_free)>;

}  // namespace

std::string finderLikeKey(std::string_view name) {
  // GLib reads past the end of text that is no valid UTF-8.
  std::string text = stringFromFileSystemRepresentation(name);
  GLibText folded(g_utf8_casefold(text.data(), static_cast<gssize>(text.size())), g_free);
  GLibText key(g_utf8_collate_key_for_filename(folded.get(), -1), g_free);
  return key.get();
}

std::strong_ordering finderLikeCompare(std::string_view a, std::string_view b) {
  if (auto order = finderLikeKey(a) <=> finderLikeKey(b); order != 0) return order;
  return a <=> b;
}

}  // namespace hoist
