// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/MemoryMap.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace hoist::sample {
namespace {

// Reads a number and the one character behind it off the front.
bool takeNumber(std::string_view& line, std::uint64_t& number, char behind, int base = 16) {
  auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), number, base);
  if (error != std::errc() || end == line.data() + line.size() || *end != behind) return false;
  line.remove_prefix(static_cast<std::size_t>(end - line.data()) + 1);
  return true;
}

// "55d0c3a00000-55d0c3a02000 r-xp 00001000 fe:00 1234    /usr/bin/x"
std::optional<Mapping> parseLine(std::string_view line) {
  Mapping mapping;
  if (!takeNumber(line, mapping.start, '-') || !takeNumber(line, mapping.end, ' ')) return {};
  if (line.size() < 5 || line[4] != ' ') return {};
  mapping.executable = line[2] == 'x';
  line.remove_prefix(5);
  std::uint64_t major = 0;
  std::uint64_t minor = 0;
  if (!takeNumber(line, mapping.offset, ' ') || !takeNumber(line, major, ':') ||
      !takeNumber(line, minor, ' ')) {
    return {};
  }
  mapping.device = major << 32 | minor;
  auto [end, error] = std::from_chars(line.data(), line.data() + line.size(), mapping.inode);
  if (error != std::errc()) return {};
  line.remove_prefix(static_cast<std::size_t>(end - line.data()));
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  mapping.path = line;
  return mapping;
}

// A second mapping of the file's beginning is a second image, unless it joins on: the segments of a
// small file may all lie in its first page.
bool belongs(const Mapping& mapping, const ImageRange& image) {
  return mapping.isFile() && mapping.device == image.first.device &&
         mapping.inode == image.first.inode &&
         (mapping.offset > image.first.offset || mapping.start == image.end);
}

}  // namespace

std::vector<Mapping> parseMemoryMap(std::string_view text) {
  std::vector<Mapping> mappings;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (auto mapping = parseLine(line); mapping && mapping->start < mapping->end) {
      mappings.push_back(std::move(*mapping));
    }
  }
  return mappings;
}

std::vector<ImageRange> imageRanges(const std::vector<Mapping>& mappings) {
  std::vector<ImageRange> images;
  std::vector<bool> isProgram;
  for (const Mapping& mapping : mappings) {
    // Memory without a file between two mappings of one is the program's own: its zeroed data, or
    // text that was moved to large pages.
    if (!mapping.isFile() && mapping.path != "[vdso]") continue;
    if (!images.empty() && belongs(mapping, images.back())) {
      images.back().end = mapping.end;
    } else {
      images.push_back({mapping.start, mapping.end, mapping});
      isProgram.push_back(false);
    }
    if (mapping.executable) isProgram.back() = true;
  }
  std::size_t next = 0;
  std::erase_if(images, [&](const ImageRange&) { return !isProgram[next++]; });
  return images;
}

}  // namespace hoist::sample
