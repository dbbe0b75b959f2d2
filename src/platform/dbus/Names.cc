// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Every text of every message passes through here twice, once for each direction, so the common
// case, ASCII, is taken eight bytes at a time, and names by a table of character classes.
#include "platform/dbus/Names.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace hoist::dbus {

namespace {

constexpr std::uint8_t kDigit = 1;
constexpr std::uint8_t kLetter = 2;  // and underscore
constexpr std::uint8_t kHyphen = 4;

constexpr std::array<std::uint8_t, 256> kClasses = [] {
  std::array<std::uint8_t, 256> classes{};
  for (int c = '0'; c <= '9'; ++c) classes[c] = kDigit;
  for (int c = 'a'; c <= 'z'; ++c) classes[c] = kLetter;
  for (int c = 'A'; c <= 'Z'; ++c) classes[c] = kLetter;
  classes['_'] = kLetter;
  classes['-'] = kHyphen;
  return classes;
}();

std::uint8_t classOf(char c) {
  return kClasses[static_cast<std::uint8_t>(c)];
}

// Elements separated by dots, each beginning with a character of class `first`, going on with
// `rest`; at least `minimum`.
bool areElements(std::string_view name, std::uint8_t first, std::uint8_t rest, int minimum) {
  const char* p = name.data();
  const char* end = p + name.size();
  for (int elements = 1;; ++elements) {
    if (p == end || !(classOf(*p) & first)) return false;
    do ++p;
    while (p != end && (classOf(*p) & rest));
    if (p == end) return elements >= minimum;
    if (*p++ != '.') return false;
  }
}

bool isContinuation(std::uint8_t byte) {
  return (byte & 0xC0) == 0x80;
}

// Bytes of the character that begins here, 0 if none does. Source of the bounds: the Unicode
// Standard, table 3-7.
std::size_t characterLength(const std::uint8_t* p, std::size_t size) {
  std::uint8_t lead = p[0];
  if (lead < 0x80) return lead == 0 ? 0 : 1;
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return size >= 2 && isContinuation(p[1]) ? 2 : 0;
  if (lead < 0xF0) {
    if (size < 3 || !isContinuation(p[1]) || !isContinuation(p[2])) return 0;
    if (lead == 0xE0 && p[1] < 0xA0) return 0;   // overlong
    if (lead == 0xED && p[1] >= 0xA0) return 0;  // surrogates
    return 3;
  }
  if (lead > 0xF4 || size < 4) return 0;
  if (!isContinuation(p[1]) || !isContinuation(p[2]) || !isContinuation(p[3])) return 0;
  if (lead == 0xF0 && p[1] < 0x90) return 0;   // overlong
  if (lead == 0xF4 && p[1] >= 0x90) return 0;  // above U+10FFFF
  return 4;
}

// Eight bytes that are all ASCII and none NUL: no top bit set, and none set by subtracting one from
// each.
bool isPlainWord(const std::uint8_t* p) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kTops = 0x8080808080808080;
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  return ((word | (word - kOnes)) & kTops) == 0;
}

// Bytes from the beginning that are valid.
std::size_t validPrefix(std::string_view text) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  std::size_t position = 0;
  while (position < text.size()) {
    if (text.size() - position >= 8 && isPlainWord(bytes + position)) {
      position += 8;
      continue;
    }
    std::size_t length = characterLength(bytes + position, text.size() - position);
    if (length == 0) break;
    position += length;
  }
  return position;
}

}  // namespace

bool isValidText(std::string_view text) {
  return validPrefix(text) == text.size();
}

std::string mendedText(std::string_view text) {
  std::string mended;
  for (;;) {
    std::size_t valid = validPrefix(text);
    mended += text.substr(0, valid);
    if (valid == text.size()) return mended;
    mended += "\uFFFD";
    text.remove_prefix(valid + 1);
  }
}

bool isValidObjectPath(std::string_view path) {
  if (path.empty() || path[0] != '/') return false;
  if (path.size() == 1) return true;
  char previous = '/';
  for (char c : path.substr(1)) {
    if (c == '/' ? previous == '/' : !(classOf(c) & (kLetter | kDigit))) return false;
    previous = c;
  }
  return previous != '/';
}

bool isValidInterfaceName(std::string_view name) {
  return name.size() <= kMaximumNameLength && areElements(name, kLetter, kLetter | kDigit, 2);
}

bool isValidMemberName(std::string_view name) {
  if (name.empty() || name.size() > kMaximumNameLength || !(classOf(name[0]) & kLetter))
    return false;
  for (char c : name) {
    if (!(classOf(c) & (kLetter | kDigit))) return false;
  }
  return true;
}

bool isValidBusName(std::string_view name) {
  if (name.empty() || name.size() > kMaximumNameLength) return false;
  constexpr std::uint8_t kAny = kLetter | kDigit | kHyphen;
  if (name[0] == ':') return areElements(name.substr(1), kAny, kAny, 2);
  return areElements(name, kLetter | kHyphen, kAny, 2);
}

}  // namespace hoist::dbus
