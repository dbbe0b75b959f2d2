// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// Every box is a nested <svg> whose place and width are percentages: the picture takes the width of
// its window, the viewer itself cuts texts off at their box, and the script zooms by changing two
// attributes. All names come from the sampled program, so every one is escaped.
#include "sample/FlameGraph.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "sample/FlameGraphParts.h"
#include "sample/Sampling.h"

namespace hoist::sample {
namespace {

constexpr int kRowHeight = 18;
constexpr int kHeaderHeight = 58;
constexpr int kFooterHeight = 30;
// Boxes of a smaller share of the whole are left out: a fiftieth of a pixel in a window of 1000.
constexpr double kLeastShare = 0.00002;

std::string escaped(std::string_view text) {
  std::string result;
  for (char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

// One colour for everything of an image, the same in every picture: warm tones for most, and the
// hash spreads neighbouring names.
std::string colour(std::string_view image) {
  if (image.empty()) return "hsl(35,12%,83%)";
  std::uint32_t hash = 2166136261u;  // FNV-1a, then the finish of MurmurHash3
  for (unsigned char c : image) hash = (hash ^ c) * 16777619u;
  hash = (hash ^ hash >> 16) * 0x85ebca6bu;
  hash = (hash ^ hash >> 13) * 0xc2b2ae35u;
  hash ^= hash >> 16;
  const unsigned hue = (hash % 4 == 0 ? 165 : 8) + (hash >> 4) % 55;
  return fmt::format("hsl({},{}%,{}%)", hue, 62 + (hash >> 12) % 25, 64 + (hash >> 20) % 12);
}

class Picture {
 public:
  explicit Picture(const Sampling& sampling)
      : sampling_(sampling), whole_(std::max<std::uint64_t>(sampling.stackCount(), 1)) {
    least_ = static_cast<double>(whole_) * kLeastShare;
  }

  std::string draw();

 private:
  using Output = std::back_insert_iterator<std::string>;

  void drawThread(const ThreadGraph& thread, std::uint64_t from);
  void drawNode(const CallGraph& graph, std::uint32_t index, int row, std::uint64_t from);
  bool drawBox(int row, std::uint64_t from, std::uint64_t width, std::string_view name,
               std::string_view image);
  void drawFrame(Output out) const;

  const Sampling& sampling_;
  const std::uint64_t whole_;
  double least_;
  int rows_ = 0;
  std::uint64_t leftOut_ = 0;
  std::string boxes_;
};

// Answers whether the box was wide enough to be drawn.
bool Picture::drawBox(int row, std::uint64_t from, std::uint64_t width, std::string_view name,
                      std::string_view image) {
  if (static_cast<double>(width) < least_ || width == 0) {
    ++leftOut_;
    return false;
  }
  rows_ = std::max(rows_, row + 1);
  const double percent = 100.0 / static_cast<double>(whole_);
  const std::string shown = escaped(name);
  const std::string place = image.empty() ? std::string() : " (in " + escaped(image) + ")";
  // The row counts from below; the group around the boxes turns it into a place.
  fmt::format_to(Output(boxes_),
                 R"(<svg class="box" x="{:.4f}%" y="{}" width="{:.4f}%" height="{}" )"
                 R"(data-from="{}" data-width="{}"><title>{}{}: {} of {} samples, {:.2f}%</title>)"
                 R"(<rect width="100%" height="100%" fill="{}"/><text x="4" y="13">{}</text></svg>)"
                 "\n",
                 static_cast<double>(from) * percent, -(row + 1) * kRowHeight,
                 static_cast<double>(width) * percent, kRowHeight - 1, from, width, shown, place,
                 width, whole_, static_cast<double>(width) * percent, colour(image), shown);
  return true;
}

void Picture::drawNode(const CallGraph& graph, std::uint32_t index, int row, std::uint64_t from) {
  const CallGraph::Node& node = graph.nodes()[index];
  if (!drawBox(row, from, node.total, node.function->name, node.function->imageName)) return;
  for (std::uint32_t child : node.children) {
    drawNode(graph, child, row + 1, from);
    from += graph.nodes()[child].total;
  }
}

void Picture::drawThread(const ThreadGraph& thread, std::uint64_t from) {
  const std::string name = fmt::format("thread {} \"{}\"", thread.id, thread.name);
  if (!drawBox(1, from, thread.graph.root().total, name, {})) return;
  for (std::uint32_t child : thread.graph.root().children) {
    drawNode(thread.graph, child, 2, from);
    from += thread.graph.nodes()[child].total;
  }
}

void Picture::drawFrame(Output out) const {
  const int height = kHeaderHeight + rows_ * kRowHeight + kFooterHeight;
  fmt::format_to(out,
                 R"(<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" width="100%" height="{}" data-whole="{}">
<title>Flame graph of {} [{}]</title>
<style>{}</style>
<rect class="paper" width="100%" height="100%"/>
<text class="title" x="10" y="24">{} [{}]</text>
<text class="subtitle" x="10" y="44">{} samples in {:.2f} s, {} threads, {} stacks</text>
)",
                 height, whole_, escaped(sampling_.name), sampling_.process, kFlameGraphStyle,
                 escaped(sampling_.name), sampling_.process, sampling_.samples,
                 std::chrono::duration<double>(sampling_.sampled).count(), sampling_.threads.size(),
                 sampling_.stackCount());
  fmt::format_to(out, "<svg y=\"{}\" overflow=\"visible\" id=\"boxes\">\n",
                 kHeaderHeight + rows_ * kRowHeight);
}

std::string Picture::draw() {
  drawBox(0, 0, whole_, fmt::format("{} [{}]", sampling_.name, sampling_.process), {});
  std::uint64_t from = 0;
  for (const ThreadGraph& thread : sampling_.threads) {
    drawThread(thread, from);
    from += thread.graph.root().total;
  }
  std::string text;
  Output out(text);
  drawFrame(out);
  const std::string note =
      leftOut_ == 0 ? std::string()
                    : fmt::format("{} boxes too narrow to be seen are left out.", leftOut_);
  text += boxes_;
  fmt::format_to(out,
                 "</svg>\n<text class=\"details\" id=\"details\" x=\"10\" y=\"{}\">{}</text>\n"
                 "<script><![CDATA[\n{}]]></script>\n</svg>\n",
                 kHeaderHeight + rows_ * kRowHeight + 20, note, kFlameGraphScript);
  return text;
}

}  // namespace

std::string flameGraph(const Sampling& sampling) {
  return Picture(sampling).draw();
}

}  // namespace hoist::sample
