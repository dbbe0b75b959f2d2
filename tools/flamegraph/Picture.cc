// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// Every box is a nested <svg> whose place and width are percentages: the picture takes the width of
// its window, the viewer itself cuts texts off at their box, and the script zooms by changing two
// attributes. All names come from the sampled program, so every one is escaped.
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "flamegraph/FlameGraph.h"
#include "flamegraph/Parts.h"

namespace hoist::flamegraph {
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
  explicit Picture(const FlameGraph& graph)
      : graph_(graph),
        whole_(std::max<std::uint64_t>(graph.all.width, 1)),
        least_(static_cast<double>(whole_) * kLeastShare) {}

  std::string draw();

 private:
  using Output = std::back_insert_iterator<std::string>;

  void drawTree(const Box& box, int row, std::uint64_t from);
  void drawBox(const Box& box, int row, std::uint64_t from);
  void drawFrame(Output out) const;

  const FlameGraph& graph_;
  const std::uint64_t whole_;
  const double least_;
  int rows_ = 0;
  std::uint64_t leftOut_ = 0;
  std::string boxes_;
};

void Picture::drawTree(const Box& box, int row, std::uint64_t from) {
  if (static_cast<double>(box.width) < least_ || box.width == 0) {
    ++leftOut_;
    return;
  }
  drawBox(box, row, from);
  for (const Box& above : box.above) {
    drawTree(above, row + 1, from);
    from += above.width;
  }
}

void Picture::drawBox(const Box& box, int row, std::uint64_t from) {
  rows_ = std::max(rows_, row + 1);
  const double percent = 100.0 / static_cast<double>(whole_);
  const double width = static_cast<double>(box.width) * percent;
  const std::string shown = escaped(box.name);
  const std::string place = box.image.empty() ? std::string() : " (in " + escaped(box.image) + ")";
  // The row counts from below; the group around the boxes turns it into a place.
  fmt::format_to(Output(boxes_),
                 R"(<svg class="box" x="{:.4f}%" y="{}" width="{:.4f}%" height="{}" )"
                 R"(data-from="{}" data-width="{}"><title>{}{}: {} of {} samples, {:.2f}%</title>)"
                 R"(<rect width="100%" height="100%" fill="{}"/><text x="4" y="13">{}</text></svg>)"
                 "\n",
                 static_cast<double>(from) * percent, -(row + 1) * kRowHeight, width,
                 kRowHeight - 1, from, box.width, shown, place, box.width, whole_, width,
                 colour(box.image), shown);
}

void Picture::drawFrame(Output out) const {
  const int height = kHeaderHeight + rows_ * kRowHeight + kFooterHeight;
  fmt::format_to(out,
                 R"(<?xml version="1.0" encoding="UTF-8"?>
<svg xmlns="http://www.w3.org/2000/svg" width="100%" height="{}" data-whole="{}">
<title>Flame graph of {}</title>
<style>{}</style>
<rect class="paper" width="100%" height="100%"/>
<text class="title" x="10" y="24">{}</text>
<text class="subtitle" x="10" y="44">{}</text>
)",
                 height, whole_, escaped(graph_.title), kStyle, escaped(graph_.title),
                 escaped(graph_.subtitle));
  fmt::format_to(out, "<svg y=\"{}\" overflow=\"visible\" id=\"boxes\">\n",
                 kHeaderHeight + rows_ * kRowHeight);
}

std::string Picture::draw() {
  drawTree(graph_.all, 0, 0);
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
                 kHeaderHeight + rows_ * kRowHeight + 20, note, kScript);
  return text;
}

}  // namespace

std::string titleText(std::string_view process, long id) {
  return fmt::format("{} [{}]", process, id);
}

std::string subtitleText(std::uint64_t samples, double seconds, std::size_t threads,
                         std::uint64_t stacks) {
  return fmt::format("{} samples in {:.2f} s, {} threads, {} stacks", samples, seconds, threads,
                     stacks);
}

std::string threadText(long id, std::string_view name) {
  return fmt::format("thread {} \"{}\"", id, name);
}

std::string picture(const FlameGraph& graph) {
  return Picture(graph).draw();
}

}  // namespace hoist::flamegraph
