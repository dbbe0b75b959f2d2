// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "ParsedReport.h"

#include <charconv>
#include <sstream>

namespace hoist::sample {
namespace {

// "    | 12 name": the guide is two characters a level behind the four of the margin.
bool parseLine(const std::string& line, ParsedReport::Line& parsed) {
  const std::size_t number = line.find_first_not_of(" |");
  if (number == line.npos || number < 4) return false;
  auto [end, error] =
      std::from_chars(line.data() + number, line.data() + line.size(), parsed.count);
  if (error != std::errc() || *end != ' ') return false;
  parsed.depth = (number - 4) / 2;
  parsed.text = end + 1;
  return true;
}

}  // namespace

ParsedReport::ParsedReport(std::string_view text) {
  std::istringstream lines{std::string(text)};
  enum { Header, Graph, Top, Images } part = Header;
  for (std::string line; std::getline(lines, line);) {
    Line parsed;
    if (line == "Call graph:") {
      part = Graph;
    } else if (line.starts_with("Top of stack (")) {
      part = Top;
      stacks = std::stoull(line.substr(14));
    } else if (line == "Loaded images:") {
      part = Images;
    } else if (part == Header) {
      if (std::size_t colon = line.find(':'); colon != line.npos) {
        header[line.substr(0, colon)] = line.substr(line.find_first_not_of(' ', colon + 1));
      }
    } else if (part == Graph && parseLine(line, parsed)) {
      graph.push_back(parsed);
    } else if (part == Top && parseLine(line, parsed)) {
      top.push_back(parsed);
    } else if (part == Images && !line.empty()) {
      images.push_back(line.substr(4));
    }
  }
}

std::uint64_t ParsedReport::threadTotal() const {
  std::uint64_t total = 0;
  for (const Line& line : graph) total += line.depth == 0 ? line.count : 0;
  return total;
}

bool ParsedReport::has(std::string_view text) const {
  for (const Line& line : graph) {
    if (line.text.find(text) != line.text.npos) return true;
  }
  return false;
}

std::uint64_t ParsedReport::countOf(std::string_view text) const {
  std::uint64_t count = 0;
  std::size_t within = SIZE_MAX;  // depth of the counted line that we are below of
  for (const Line& line : graph) {
    if (line.depth <= within) within = SIZE_MAX;
    if (within == SIZE_MAX && line.text.find(text) != line.text.npos) {
      count += line.count;
      within = line.depth;
    }
  }
  return count;
}

std::string ParsedReport::contradiction() const {
  std::uint64_t own = 0;
  for (std::size_t i = 0; i < graph.size(); ++i) {
    std::uint64_t children = 0;
    for (std::size_t j = i + 1; j < graph.size() && graph[j].depth > graph[i].depth; ++j) {
      if (graph[j].depth == graph[i].depth + 1) children += graph[j].count;
    }
    if (children > graph[i].count) return "children have more than: " + graph[i].text;
    if (graph[i].depth == 0 && children != graph[i].count) return "lost in: " + graph[i].text;
    own += graph[i].count - children;
  }
  std::uint64_t tops = 0;
  for (const Line& line : top) tops += line.count;
  if (own != tops) return "top of stack is not what the call graph ends in";
  if (tops != stacks || stacks != threadTotal()) return "the sums differ";
  return {};
}

}  // namespace hoist::sample
