// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/CallGraph.h"

#include <gtest/gtest.h>

#include "ParsedReport.h"
#include "sample/Flames.h"
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

TEST(Flames, HaveABoxForTheProcessEachThreadAndEachFunction) {
  const Sampling sampling = samplingOf({{stack({3, 2, 1}), 4}, {stack({2, 1}), 2}}, 1);
  const flamegraph::FlameGraph graph = flameGraph(sampling);
  EXPECT_EQ(graph.title, "<&\"cook'> [42]");
  EXPECT_EQ(graph.subtitle, "10 samples in 1.00 s, 1 threads, 7 stacks");
  EXPECT_EQ(graph.all.width, 7u);
  ASSERT_EQ(graph.all.above.size(), 1u);
  const flamegraph::Box& thread = graph.all.above[0];
  EXPECT_EQ(thread.name, "thread 43 \"a]]><script>\"");
  ASSERT_EQ(thread.above.size(), 2u);
  EXPECT_EQ(thread.above[0].name, "0x1");
  EXPECT_EQ(thread.above[0].above[0].above[0].name, "0x3");
  EXPECT_EQ(thread.above[0].above[0].above[0].width, 4u);
}

TEST(Flames, AreThoseOfTheReport) {
  const Sampling sampling =
      samplingOf({{stack({3, 2, 1}), 4}, {stack({2, 1}), 2}, {stack({4, 1}), 7}}, 1);
  const std::string report = reportText(sampling);
  const auto read = flamegraph::fromReport(report);
  ASSERT_TRUE(read);
  EXPECT_EQ(flamegraph::picture(*read), flamegraph::picture(flameGraph(sampling)));
}

}  // namespace
}  // namespace hoist::sample
