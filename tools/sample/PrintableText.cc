// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/PrintableText.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace hoist::sample {
namespace {

// Real names of templates reach some thousand bytes; longer ones are shown as they are, because a
// forged name of few bytes can stand for gigabytes.
constexpr std::size_t kLongestMangledName = 8192;
constexpr std::size_t kLongestFunctionName = 1024;

// Length of the UTF-8 sequence of a printable character at the front, 0 if there is none.
std::size_t printableSequence(std::string_view text) {
  auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first >= 0x20 && first < 0x7f) return 1;
  const std::size_t length = first >= 0xc2 && first < 0xe0   ? 2
                             : first >= 0xe0 && first < 0xf0 ? 3
                             : first >= 0xf0 && first < 0xf5 ? 4
                                                             : 0;
  if (length == 0 || length > text.size()) return 0;
  unsigned long code = first & (0xffu >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3f);
  }
  const unsigned long least = length == 2 ? 0xa0 : length == 3 ? 0x800 : 0x10000;
  const bool surrogate = code >= 0xd800 && code < 0xe000;
  // Marks that turn the direction of writing, and line separators, would disguise a line.
  const bool formatting = (code >= 0x200b && code <= 0x200f) ||
                          (code >= 0x2028 && code <= 0x202e) ||
                          (code >= 0x2066 && code <= 0x2069) || code == 0xfeff;
  const bool noncharacter = (code & 0xfffe) == 0xfffe || code > 0x10ffff;
  return code < least || surrogate || formatting || noncharacter ? 0 : length;
}

}  // namespace

std::string printableText(std::string_view text, std::size_t limit) {
  std::string result;
  while (!text.empty()) {
    const std::size_t length = printableSequence(text);
    if (result.size() + std::max<std::size_t>(length, 1) > limit) return result + "...";
    if (length == 0) {
      result += '?';
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

std::string functionName(const char* symbol) {
  if (std::strncmp(symbol, "_Z", 2) == 0 &&
      ::strnlen(symbol, kLongestMangledName) < kLongestMangledName) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> name(
        abi::__cxa_demangle(symbol, nullptr, nullptr, &status), std::free);
    if (name) return printableText(name.get(), kLongestFunctionName);
  }
  // "read@@GLIBC_2.2.5": the version says nothing to the reader.
  const std::string_view name = symbol;
  return printableText(name.substr(0, name.find('@', 1)), kLongestFunctionName);
}

}  // namespace hoist::sample
