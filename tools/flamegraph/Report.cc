// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// A report's call graph says the depth of a line by how far its number is from the margin:
//
//     900 Thread 43  "oven"
//       900 main  (in cook) + 24  [0x55d0c3a01018]
//       | 300 bake()  (in cook) + 8  [0x55d0c3a01216]
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <utility>

#include "flamegraph/FlameGraph.h"

namespace hoist::flamegraph {
namespace {

constexpr std::size_t kMargin = 4;
constexpr std::size_t kIndent = 2;
// Above what any report has; a deeper one is a forgery that would exhaust the stack.
constexpr std::size_t kDeepest = 1024;

std::string_view takeLine(std::string_view& text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  return line;
}

struct GraphLine {
  std::size_t depth;
  std::uint64_t count;
  std::string_view text;
};

std::optional<GraphLine> parseGraphLine(std::string_view line) {
  GraphLine parsed;
  const std::size_t number = line.find_first_not_of(" |");
  if (number == std::string_view::npos || number < kMargin) return std::nullopt;
  const char* const end = line.data() + line.size();
  const auto [next, error] = std::from_chars(line.data() + number, end, parsed.count);
  // A name stands behind the number.
  if (error != std::errc() || end - next < 2 || *next != ' ') return std::nullopt;
  parsed.depth = (number - kMargin) / kIndent;
  parsed.text = std::string_view(next + 1, end);
  return parsed;
}

// "main  (in cook) + 24  [0x55d0c3a01018]"; a function outside of all images has a name only.
Box functionBox(const GraphLine& line) {
  constexpr std::string_view kIn = "  (in ";
  const std::size_t in = line.text.rfind(kIn);
  if (in == std::string_view::npos) return {.name = line.text, .width = line.count};
  const std::string_view image = line.text.substr(in + kIn.size());
  return {.name = line.text.substr(0, in),
          .image = image.substr(0, image.rfind(") + ")),
          .width = line.count};
}

class Reader {
 public:
  bool read(std::string_view text);
  FlameGraph take() { return std::move(graph_); }

 private:
  bool readHeader(std::string_view& text);
  bool readGraph(std::string_view& text);
  bool add(const GraphLine& line);
  Box threadBox(const GraphLine& line);

  FlameGraph graph_;
  // The line's ancestors, and where the next one goes.
  std::vector<Box*> path_{&graph_.all};
  std::uint64_t samples_ = 0;
  double seconds_ = 0;
};

bool Reader::read(std::string_view text) {
  if (!text.starts_with("Sample of process ")) return false;
  if (!readHeader(text) || !readGraph(text)) return false;
  for (const Box& thread : graph_.all.above) graph_.all.width += thread.width;
  graph_.ownNames.push_back(graph_.title);
  graph_.all.name = graph_.ownNames.back();
  graph_.subtitle = subtitleText(samples_, seconds_, graph_.all.above.size(), graph_.all.width);
  return true;
}

bool Reader::readHeader(std::string_view& text) {
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    const std::size_t value = line.find_first_not_of(' ', line.find(':') + 1);
    if (line.starts_with("Process:") && value != std::string_view::npos) {
      graph_.title = line.substr(value);
    } else if (line.starts_with("Sampled:") && value != std::string_view::npos) {
      // A report that holds not a single sample says so in words.
      static_cast<void>(std::sscanf(std::string(line.substr(value)).c_str(), "for %lf s, %lu times",
                                    &seconds_, &samples_));
    } else if (line == "Call graph:") {
      return true;
    }
  }
  return false;
}

bool Reader::readGraph(std::string_view& text) {
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    if (line.starts_with("Top of stack")) return true;
    if (line.empty()) continue;
    const auto parsed = parseGraphLine(line);
    if (!parsed || !add(*parsed)) return false;
  }
  return false;
}

bool Reader::add(const GraphLine& line) {
  // A child stands one step to the right of its parent, never more.
  if (line.depth + 1 > path_.size() || line.depth > kDeepest) return false;
  path_.resize(line.depth + 1);
  Box& parent = *path_.back();
  parent.above.push_back(line.depth == 0 ? threadBox(line) : functionBox(line));
  path_.push_back(&parent.above.back());
  return true;
}

// "Thread 43  "oven""
Box Reader::threadBox(const GraphLine& line) {
  long id = 0;
  static_cast<void>(std::sscanf(std::string(line.text).c_str(), "Thread %ld", &id));
  std::string_view name = line.text.substr(std::min(line.text.find('"'), line.text.size() - 1) + 1);
  if (name.ends_with('"')) name.remove_suffix(1);
  graph_.ownNames.push_back(threadText(id, name));
  return {.name = graph_.ownNames.back(), .width = line.count};
}

}  // namespace

std::optional<FlameGraph> fromReport(std::string_view report) {
  Reader reader;
  if (!reader.read(report)) return std::nullopt;
  return reader.take();
}

}  // namespace hoist::flamegraph
