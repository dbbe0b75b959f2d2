// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace hoist::flamegraph {

// A function, as long as something else is not said, and above it what it called. Texts are
// borrowed from where the graph was made of.
struct Box {
  std::string_view name;
  // Where the function is loaded from; may be empty.
  std::string_view image;
  // How often it was on the stack.
  std::uint64_t width = 0;
  // From left to right; together no wider than this one.
  std::vector<Box> above;
};

// The samples of a process: at the bottom all of them, above that its threads, above them their
// functions.
struct FlameGraph {
  std::string title;
  std::string subtitle;
  Box all;
  // Names that stand nowhere else. (A deque, so that they stay where they are.)
  std::deque<std::string> ownNames;
};

// "cook [42]"
std::string titleText(std::string_view process, long id);
// "900 samples in 1.00 s, 4 threads, 3600 stacks"
std::string subtitleText(std::uint64_t samples, double seconds, std::size_t threads,
                         std::uint64_t stacks);
// "thread 43 "oven""
std::string threadText(long id, std::string_view name);

// One SVG file that needs nothing else. In a browser a click zooms, a search marks functions and
// says their share; any other viewer shows the still picture. Boxes too narrow to be seen even when
// zoomed are left out, which the picture says.
std::string picture(const FlameGraph& graph);

// The flame graph of a report of the tool "sample", whose text must outlive it. Nothing if the text
// is no such report.
std::optional<FlameGraph> fromReport(std::string_view report);

}  // namespace hoist::flamegraph
