// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace hoist::sample {

// A report read back from its text, as a person reads it.
struct ParsedReport {
  struct Line {
    // 0 for a thread, 1 for its outermost function.
    std::size_t depth;
    std::uint64_t count;
    // The rest of the line.
    std::string text;
  };

  explicit ParsedReport(std::string_view text);

  std::uint64_t threadTotal() const;
  // True if some line of the call graph has the text in it.
  bool has(std::string_view text) const;
  // How many samples passed through a function on lines with this text, in all threads: the highest
  // line of each branch counts.
  std::uint64_t countOf(std::string_view text) const;
  // Why the counts do not add up; empty if they do.
  std::string contradiction() const;

  std::map<std::string, std::string> header;
  std::vector<Line> graph;
  std::uint64_t stacks = 0;
  std::vector<Line> top;
  std::vector<std::string> images;
};

}  // namespace hoist::sample
