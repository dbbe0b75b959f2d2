// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/Report.h"

#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <iterator>
#include <unordered_map>

#include "sample/Sampling.h"

namespace hoist::sample {
namespace {

// Places within a function that a line names; the most frequent ones.
constexpr std::size_t kOffsetsShown = 3;

// In local time, like "2024-03-05 13:07:09.250 +0100".
std::string dateText(Date date) {
  std::time_t seconds = date.seconds();
  std::tm local{};
  ::localtime_r(&seconds, &local);
  char day[64];
  char zone[16];
  std::strftime(day, sizeof day, "%Y-%m-%d %H:%M:%S", &local);
  std::strftime(zone, sizeof zone, "%z", &local);
  return fmt::format("{}.{:03} {}", day, date.nanoseconds() / 1'000'000, zone);
}

double milliseconds(std::chrono::nanoseconds time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

const char* endText(TraceResult::End end) {
  switch (end) {
    case TraceResult::End::TimeIsUp:
      return "the time was up";
    case TraceResult::End::ProcessEnded:
      return "the process ended";
    case TraceResult::End::ProcessReplaced:
      return "the process began another program";
    case TraceResult::End::Interrupted:
      return "the sampler was interrupted";
  }
  return "";
}

std::string rateText(const Sampling& sampling) {
  if (sampling.samples == 0) return "not once";
  const double true_ = milliseconds(sampling.sampled) / static_cast<double>(sampling.samples);
  return fmt::format("{} times, every {:.2f} ms (asked for: {:.2f} ms)", sampling.samples, true_,
                     milliseconds(sampling.wishedInterval));
}

using Output = std::back_insert_iterator<std::string>;

void writeHeader(Output out, const Sampling& sampling) {
  fmt::format_to(out, "Sample of process {} ({})\n\n", sampling.process, sampling.name);
  auto line = [&](std::string_view name, std::string_view value) {
    fmt::format_to(out, "{:<12} {}\n", name, value);
  };
  line("Process:", fmt::format("{} [{}]", sampling.name, sampling.process));
  line("Path:", sampling.path.empty() ? "not known" : sampling.path);
  line("Parent:", fmt::format("{}", sampling.parent));
  line("Started:", dateText(sampling.started));
  line("Date:", dateText(sampling.date));
  line("Sampled:",
       fmt::format("for {:.3f} s, {}", milliseconds(sampling.sampled) / 1000, rateText(sampling)));
  line("Ended:", fmt::format("because {}", endText(sampling.end)));
  line("Threads:", fmt::format("{}{}", sampling.threads.size(),
                               sampling.followedAllThreads
                                   ? ""
                                   : " (others began and ended too quickly to be followed)"));
}

std::string placeText(const CallGraph::Node& node) {
  if (node.function->imageName.empty()) return {};
  std::vector<std::pair<Address, std::uint64_t>> offsets(node.offsets.begin(), node.offsets.end());
  std::stable_sort(offsets.begin(), offsets.end(),
                   [](const auto& a, const auto& b) { return a.second > b.second; });
  std::string text = " + ";
  for (std::size_t i = 0; i < std::min(offsets.size(), kOffsetsShown); ++i) {
    fmt::format_to(std::back_inserter(text), "{}{}", i > 0 ? "," : "", offsets[i].first);
  }
  if (offsets.size() > kOffsetsShown) text += ",...";
  return text + fmt::format("  [{:#x}]", node.function->start + offsets[0].first);
}

std::string functionText(const Function& function) {
  return function.imageName.empty() ? function.name
                                    : fmt::format("{}  (in {})", function.name, function.imageName);
}

// A line for the node and, indented, the lines of what it called; the bars of the guide lead from a
// node to its later siblings.
void writeNode(Output out, const CallGraph& graph, std::uint32_t index, std::string& guide) {
  const CallGraph::Node& node = graph.nodes()[index];
  fmt::format_to(out, "    {}{} {}{}\n", guide, node.total, functionText(*node.function),
                 placeText(node));
  for (std::size_t i = 0; i < node.children.size(); ++i) {
    guide += i + 1 < node.children.size() ? "| " : "  ";
    writeNode(out, graph, node.children[i], guide);
    guide.resize(guide.size() - 2);
  }
}

void writeThread(Output out, const ThreadGraph& thread) {
  const CallGraph::Node& root = thread.graph.root();
  fmt::format_to(out, "    {} Thread {}  \"{}\"\n", root.total, thread.id, thread.name);
  for (std::size_t i = 0; i < root.children.size(); ++i) {
    std::string guide = i + 1 < root.children.size() ? "| " : "  ";
    writeNode(out, thread.graph, root.children[i], guide);
  }
  fmt::format_to(out, "\n");
}

void writeTopOfStack(Output out, const Sampling& sampling) {
  std::unordered_map<const Function*, std::uint64_t> counts;
  for (const ThreadGraph& thread : sampling.threads) {
    for (const CallGraph::Node& node : thread.graph.nodes()) {
      if (node.function != nullptr && node.own > 0) counts[node.function] += node.own;
    }
  }
  std::vector<std::pair<const Function*, std::uint64_t>> sorted(counts.begin(), counts.end());
  std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
    return a.second != b.second ? a.second > b.second : a.first->name < b.first->name;
  });
  fmt::format_to(out, "Top of stack ({} stacks):\n\n", sampling.stackCount());
  for (const auto& [function, count] : sorted) {
    fmt::format_to(out, "    {:>8} {}\n", count, functionText(*function));
  }
}

void writeImages(Output out, const Sampling& sampling) {
  fmt::format_to(out, "\nLoaded images:\n\n");
  for (const auto& image : sampling.images) {
    fmt::format_to(out, "    {:#x} - {:#x}  {}  <{}>  {}\n", image.range.start, image.range.end - 1,
                   image.name, image.buildID.empty() ? "no build identifier" : image.buildID,
                   image.path);
  }
}

}  // namespace

std::string reportText(const Sampling& sampling) {
  std::string text;
  Output out(text);
  writeHeader(out, sampling);
  fmt::format_to(out, "\nCall graph:\n\n");
  for (const ThreadGraph& thread : sampling.threads) writeThread(out, thread);
  writeTopOfStack(out, sampling);
  writeImages(out, sampling);
  return text;
}

}  // namespace hoist::sample
