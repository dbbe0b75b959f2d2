// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hoist::sample {

using Address = std::uint64_t;

// One line of /proc/PID/maps.
struct Mapping {
  Address start = 0;
  Address end = 0;
  bool executable = false;
  std::uint64_t offset = 0;
  // Device and inode as the kernel prints them; 0 for memory without a file.
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  // As printed: line feeds as \012, " (deleted)" at the end of removed ones, "[vdso]" and the like.
  std::string path;

  bool isFile() const { return inode != 0; }
};

// The mappings in the order of their addresses; lines of another form are left out.
std::vector<Mapping> parseMemoryMap(std::string_view text);

// The mappings of one loaded program or library.
struct ImageRange {
  Address start = 0;
  Address end = 0;
  // The mapping at the start, from which the file is found.
  Mapping first;

  friend bool operator==(const ImageRange& a, const ImageRange& b) {
    return a.start == b.start && a.end == b.end && a.first.device == b.first.device &&
           a.first.inode == b.first.inode && a.first.path == b.first.path;
  }
};

// Puts the mappings of each file that has executable ones together, from the one of the file's
// beginning up; the kernel's own library ([vdso]) is one too.
std::vector<ImageRange> imageRanges(const std::vector<Mapping>& mappings);

}  // namespace hoist::sample
