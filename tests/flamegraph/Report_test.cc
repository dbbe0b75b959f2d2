// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "flamegraph/FlameGraph.h"

namespace hoist::flamegraph {
namespace {

const std::string kHeader =
    "Sample of process 42 (cook)\n"
    "\n"
    "Process:     cook [42]\n"
    "Sampled:     for 2.000 s, 1873 times, every 1.07 ms (asked for: 1.00 ms)\n"
    "\n"
    "Call graph:\n"
    "\n";
const std::string kEnd = "\nTop of stack (9 stacks):\n";

TEST(ReportOfASample, BecomesAFlameGraph) {
  const std::string report = kHeader +
                             "    5 Thread 43  \"the \"oven\"\"\n"
                             "      5 main  (in cook) + 24  [0x55d0c3a01018]\n"
                             "        3 bake (a, b)  (in lib(1).so) + 22,27,...  [0x55d0c3a01216]\n"
                             "        | 2 0x7f00\n"
                             "        1 wait  (in libc.so.6) + 12  [0x7f01aa00120c]\n"
                             "\n"
                             "    4 Thread 44  \"\"\n"
                             "      4 run  (in cook) + 1  [0x55d0c3a02000]\n" +
                             kEnd;
  const auto graph = fromReport(report);
  ASSERT_TRUE(graph);
  EXPECT_EQ(graph->title, "cook [42]");
  EXPECT_EQ(graph->subtitle, "1873 samples in 2.00 s, 2 threads, 9 stacks");
  EXPECT_EQ(graph->all.name, "cook [42]");
  EXPECT_EQ(graph->all.width, 9u);
  ASSERT_EQ(graph->all.above.size(), 2u);
  const Box& oven = graph->all.above[0];
  EXPECT_EQ(oven.name, "thread 43 \"the \"oven\"\"");
  EXPECT_EQ(oven.width, 5u);
  ASSERT_EQ(oven.above.size(), 1u);
  ASSERT_EQ(oven.above[0].above.size(), 2u);
  const Box& bake = oven.above[0].above[0];
  EXPECT_EQ(bake.name, "bake (a, b)");
  EXPECT_EQ(bake.image, "lib(1).so");
  EXPECT_EQ(bake.width, 3u);
  EXPECT_EQ(bake.above[0].name, "0x7f00");
  EXPECT_EQ(bake.above[0].image, "");
  EXPECT_EQ(oven.above[0].above[1].name, "wait");
  EXPECT_EQ(graph->all.above[1].name, "thread 44 \"\"");
}

TEST(ReportOfASample, MayHoldNoSample) {
  const auto graph = fromReport(kHeader + kEnd);
  ASSERT_TRUE(graph);
  EXPECT_EQ(graph->all.width, 0u);
}

TEST(ReportOfASample, IsNothingElse) {
  const std::string thread = "    5 Thread 43  \"oven\"\n";
  const std::string broken[] = {
      "",
      "Sample of process 42 (cook)\n",
      kHeader,
      kHeader + thread,
      "A report of another kind\n" + kHeader + kEnd,
      kHeader + "5 outside the margin\n" + kEnd,
      kHeader + "    nothing counted\n" + kEnd,
      kHeader + "    5\n" + kEnd,
      kHeader + "    5 \n" + kEnd,
      kHeader + "    99999999999999999999 too much\n" + kEnd,
      kHeader + "      5 a function of no thread\n" + kEnd,
      kHeader + thread + "          5 two steps to the right\n" + kEnd,
  };
  for (const std::string& report : broken) EXPECT_FALSE(fromReport(report)) << report;
}

TEST(ReportOfASample, IsNoDeeperThanASamplerGoes) {
  std::string report = kHeader;
  for (std::size_t depth = 0; depth < 3000; ++depth) {
    report += std::string(4 + 2 * depth, ' ') + "1 deeper\n";
  }
  EXPECT_FALSE(fromReport(report + kEnd));
}

}  // namespace
}  // namespace hoist::flamegraph
