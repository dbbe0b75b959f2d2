// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "sample/MemoryMap.h"

#include <gtest/gtest.h>

namespace hoist::sample {
namespace {

constexpr char kMap[] =
    "400000-401000 r--p 00000000 fe:00 77    /usr/bin/a b\n"
    "401000-402000 r-xp 00001000 fe:00 77    /usr/bin/a b\n"
    "402000-403000 rw-p 00000000 00:00 0 \n"
    "403000-404000 rw-p 00002000 fe:00 77    /usr/bin/a b\n"
    "500000-501000 rw-p 00000000 00:00 0     [heap]\n"
    "600000-601000 r--p 00000000 fe:00 78    /usr/share/data\n"
    "7000000000-7000001000 r--p 00000000 00:1f 9    /lib/x.so\\012y (deleted)\n"
    "7000001000-7000003000 r-xp 00001000 00:1f 9    /lib/x.so\\012y (deleted)\n"
    "7000003000-7000004000 r-xp 00000000 00:00 0    [vdso]\n";

TEST(MemoryMap, IsReadLineByLine) {
  auto mappings = parseMemoryMap(kMap);
  ASSERT_EQ(mappings.size(), 9u);
  EXPECT_EQ(mappings[1].start, 0x401000u);
  EXPECT_EQ(mappings[1].end, 0x402000u);
  EXPECT_TRUE(mappings[1].executable);
  EXPECT_EQ(mappings[1].offset, 0x1000u);
  EXPECT_EQ(mappings[1].device, 0xfeull << 32);
  EXPECT_EQ(mappings[1].inode, 77u);
  EXPECT_EQ(mappings[1].path, "/usr/bin/a b");
  EXPECT_FALSE(mappings[2].isFile());
  EXPECT_EQ(mappings[2].path, "");
  EXPECT_EQ(mappings[7].device, 0x1full);
}

TEST(MemoryMap, LeavesOutLinesOfAnotherForm) {
  for (const char* line : {"", "\n\n", "nonsense", "1-", "1-2", "1-2 r-xp", "1-2 r-xp 0",
                           "1-2 r-xp 0 1:", "2-1 r-xp 0 1:2 3 /x", "1-2 r-xp 0 1:2 x /x",
                           "-2 r-xp 0 1:2 3 /x", "1-2 rwxpqqq 0 1:2 3 /x"}) {
    EXPECT_TRUE(parseMemoryMap(line).empty()) << line;
  }
  EXPECT_EQ(parseMemoryMap("1-2 r-xp 0 1:2 3").size(), 1u);  // no path, no line feed
}

TEST(MemoryMap, PutsTheMappingsOfAProgramTogether) {
  auto images = imageRanges(parseMemoryMap(kMap));
  ASSERT_EQ(images.size(), 3u);
  EXPECT_EQ(images[0].start, 0x400000u);
  EXPECT_EQ(images[0].end, 0x404000u);
  EXPECT_EQ(images[1].start, 0x7000000000u);
  EXPECT_EQ(images[1].end, 0x7000003000u);
  EXPECT_EQ(images[2].first.path, "[vdso]");
}

TEST(MemoryMap, TellsTwoCopiesOfALibraryApart) {
  auto images =
      imageRanges(parseMemoryMap("1000-2000 r--p 0 fe:00 5 /l\n2000-3000 r-xp 1000 fe:00 5 /l\n"
                                 "9000-a000 r--p 0 fe:00 5 /l\na000-b000 r-xp 1000 fe:00 5 /l\n"));
  ASSERT_EQ(images.size(), 2u);
  EXPECT_EQ(images[1].start, 0x9000u);
}

TEST(MemoryMap, KeepsASmallProgramWhoseSegmentsShareAPage) {
  auto images =
      imageRanges(parseMemoryMap("1000-2000 r--p 0 fe:00 5 /l\n2000-3000 r-xp 0 fe:00 5 /l\n"));
  ASSERT_EQ(images.size(), 1u);
  EXPECT_EQ(images[0].end, 0x3000u);
}

}  // namespace
}  // namespace hoist::sample
