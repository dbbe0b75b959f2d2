// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Collation.h"

#include <glib.h>

#include <algorithm>
#include <clocale>
#include <memory>

#include "platform/FilePaths.h"

// Keys are GLib's collation keys for file names. Most names are ASCII and most programs keep the
// "C" order of letters; for these the key is made here, byte for byte the same, in a seventh of the
// time, which is what sorting a large folder spends.

namespace hoist {
namespace {

using GLibText = std::unique_ptr<char, decltype(&g_free)>;

// What GLib puts in the place of a dot, and before a number.
constexpr std::string_view kDot = "\1\1\1\1";
constexpr std::string_view kNumber = "\1\1\1\2";

bool isASCII(std::string_view name) {
  return std::ranges::all_of(name, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool hasPlainOrder() {
  std::string_view locale = std::setlocale(LC_COLLATE, nullptr);
  return locale == "C" || locale == "POSIX";
}

// A number sorts by its length, which colons before it tell, then by its digits. Zeros before it
// decide last of all: their count goes to the end of the key.
std::size_t appendNumber(std::string_view name, std::size_t begin, std::string& key,
                         std::string& zeros) {
  auto end = std::min(name.find_first_not_of("0123456789", begin), name.size());
  auto first = std::min(name.find_first_not_of('0', begin), end);
  // One zero is the number itself, except, in GLib, at the end of the name.
  if (first == end && end < name.size()) --first;
  key += kNumber;
  if (end - first > 1) key.append(end - first - 1, ':');
  if (first > begin) zeros += static_cast<char>(first - begin);
  key += name.substr(first, end - first);
  return end;
}

std::string plainKey(std::string_view name) {
  std::string key, zeros;
  key.reserve(2 * name.size());
  for (std::size_t i = 0; i < name.size();) {
    if (g_ascii_isdigit(name[i])) {
      i = appendNumber(name, i, key, zeros);
      continue;
    }
    if (name[i] == '.') {
      key += kDot;
    } else {
      key += g_ascii_tolower(name[i]);
    }
    ++i;
  }
  return key + zeros;
}

}  // namespace

std::string finderLikeKey(std::string_view name) {
  if (isASCII(name) && hasPlainOrder()) return plainKey(name);
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
