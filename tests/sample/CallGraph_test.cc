// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/CallGraph.h"

#include <glib.h>
#include <gtest/gtest.h>

#include "ParsedReport.h"
#include "sample/FlameGraph.h"
#include "sample/Report.h"
#include "sample/Sampling.h"

namespace hoist::sample {
namespace {

// Stacks of addresses without an image, innermost first.
std::vector<Frame> stack(std::initializer_list<Address> addresses) {
  std::vector<Frame> frames;
  for (Address address : addresses) frames.push_back({address, nullptr});
  return frames;
}

Sampling samplingOf(const std::vector<std::pair<std::vector<Frame>, unsigned>>& stacks,
                    std::uint64_t outOfReach = 0) {
  StackTree tree;
  for (const auto& [frames, weight] : stacks) tree.add(frames, weight);
  Sampling sampling;
  sampling.process = 42;
  sampling.name = "<&\"cook'>";
  sampling.samples = 10;
  sampling.sampled = std::chrono::seconds(1);
  sampling.threads.push_back(
      {43, "a]]><script>", CallGraph(tree, *sampling.functions, outOfReach)});
  return sampling;
}

TEST(StackTree, CountsAStackWhereItEnds) {
  StackTree tree;
  auto deep = tree.add(stack({3, 2, 1}), 1);
  auto shallow = tree.add(stack({2, 1}), 5);
  EXPECT_EQ(tree.add(stack({3, 2, 1}), 1), deep);
  tree.addAgain(deep, 2);
  EXPECT_EQ(tree.entries()[deep].own, 4u);
  EXPECT_EQ(tree.entries()[shallow].own, 5u);
  EXPECT_EQ(tree.entries()[deep].parent, shallow);
  EXPECT_EQ(tree.entries().size(), 4u);
}

TEST(StackTree, TellsTwoImagesAtOneAddressApart) {
  StackTree tree;
  char images[2];
  Frame before{1, reinterpret_cast<Image*>(&images[0])};
  Frame after{1, reinterpret_cast<Image*>(&images[1])};
  EXPECT_NE(tree.add({&before, 1}, 1), tree.add({&after, 1}, 1));
}

TEST(CallGraph, AddsUp) {
  Sampling sampling = samplingOf(
      {{stack({3, 2, 1}), 4}, {stack({2, 1}), 2}, {stack({4, 1}), 7}, {stack({9}), 1}}, 3);
  EXPECT_EQ(sampling.stackCount(), 17u);
  const CallGraph& graph = sampling.threads[0].graph;
  ASSERT_EQ(graph.root().children.size(), 3u);
  const auto& first = graph.nodes()[graph.root().children[0]];
  EXPECT_EQ(first.total, 13u);  // the most frequent child comes first
  EXPECT_EQ(first.own, 0u);
  ParsedReport report(reportText(sampling));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_EQ(report.stacks, 17u);
  EXPECT_EQ(report.countOf("out of reach"), 3u);
}

TEST(SampleReport, SaysTheTrueRate) {
  Sampling sampling = samplingOf({{stack({1}), 1}});
  sampling.wishedInterval = std::chrono::milliseconds(1);
  ParsedReport report(reportText(sampling));
  EXPECT_EQ(report.header["Sampled"],
            "for 1.000 s, 10 times, every 100.00 ms (asked for: 1.00 ms)");
  EXPECT_EQ(report.header["Ended"], "because the time was up");
}

TEST(SampleReport, IsWrittenForAProcessThatWasNeverSeen) {
  Sampling sampling = samplingOf({});
  sampling.samples = 0;
  sampling.threads.clear();
  sampling.end = TraceResult::End::ProcessEnded;
  ParsedReport report(reportText(sampling));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_EQ(report.header["Ended"], "because the process ended");
}

// What a strict reader of XML finds in the picture.
struct Picture {
  explicit Picture(const std::string& text) {
    GMarkupParser parser = {begin, nullptr, content, nullptr, nullptr};
    GMarkupParseContext* context =
        g_markup_parse_context_new(&parser, G_MARKUP_TREAT_CDATA_AS_TEXT, this, nullptr);
    GError* error = nullptr;
    wellFormed = g_markup_parse_context_parse(context, text.data(),
                                              static_cast<gssize>(text.size()), &error) &&
                 g_markup_parse_context_end_parse(context, &error);
    if (error != nullptr) message = error->message;
    g_clear_error(&error);
    g_markup_parse_context_free(context);
  }
  static void begin(GMarkupParseContext*, const char* element, const char** names,
                    const char** values, gpointer self, GError**) {
    auto& picture = *static_cast<Picture*>(self);
    picture.inTitle = std::string_view(element) == "title";
    for (int i = 0; names[i] != nullptr; ++i) {
      const std::string_view name = names[i];
      if (name == "data-width") picture.widths.push_back(std::stoull(values[i]));
      picture.loadsSomething = picture.loadsSomething || name == "href" || name == "src";
    }
    picture.scripts += std::string_view(element) == "script";
  }
  static void content(GMarkupParseContext*, const char* text, gsize length, gpointer self,
                      GError**) {
    auto& picture = *static_cast<Picture*>(self);
    if (picture.inTitle) picture.titles.emplace_back(text, length);
    picture.inTitle = false;
  }

  bool wellFormed = false;
  bool inTitle = false;
  bool loadsSomething = false;
  int scripts = 0;
  std::string message;
  std::vector<std::uint64_t> widths;
  std::vector<std::string> titles;
};

TEST(FlameGraph, IsWellFormedWhateverTheNames) {
  Picture picture(flameGraph(samplingOf({{stack({3, 2, 1}), 4}, {stack({2, 1}), 2}})));
  EXPECT_TRUE(picture.wellFormed) << picture.message;
  EXPECT_EQ(picture.scripts, 1);
  EXPECT_FALSE(picture.loadsSomething);
  ASSERT_GE(picture.titles.size(), 3u);
  EXPECT_EQ(picture.titles[0], "Flame graph of <&\"cook'> [42]");
  EXPECT_EQ(picture.titles[2], "thread 43 \"a]]><script>\": 6 of 6 samples, 100.00%");
}

TEST(FlameGraph, HasABoxOfTheRightWidthForEveryFunction) {
  Picture picture(flameGraph(samplingOf({{stack({3, 2, 1}), 4}, {stack({2, 1}), 2}})));
  // The process, the thread, functions 1 and 2, and function 3 in part of them.
  EXPECT_EQ(picture.widths, (std::vector<std::uint64_t>{6, 6, 6, 6, 4}));
}

TEST(FlameGraph, LeavesOutWhatNobodyCouldSeeAndSaysSo) {
  const std::string text = flameGraph(samplingOf({{stack({1}), 10'000'000}, {stack({2}), 1}}));
  EXPECT_EQ(Picture(text).widths.size(), 3u);
  EXPECT_NE(text.find("1 boxes too narrow to be seen are left out."), text.npos);
}

TEST(FlameGraph, IsDrawnWithoutASingleSample) {
  EXPECT_TRUE(Picture(flameGraph(samplingOf({}))).wellFormed);
}

}  // namespace
}  // namespace hoist::sample
