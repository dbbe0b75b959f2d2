// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What somebody could do to a tree between two system calls is prevented by the arguments of the
// calls: here they are looked at.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/files/FileManager.h"
#include "support/TemporaryFolder.h"
#include "support/TracedCalls.h"

namespace hoist::files {
namespace {

class TreeCalls : public testing::Test {
 protected:
  void SetUp() override { folder_.write("t/sub/x", "content"); }

  std::vector<TracedCall> callsOf(std::function<Ref<Error>()> code) {
    auto calls = systemCallsOf([&] {
      return [&] {
        if (code()) throw 0;
      };
    });
    EXPECT_TRUE(calls);
    return calls.value_or(std::vector<TracedCall>());
  }
  // The flags of what was opened in open folders; the folders on the way to the item are another
  // matter.
  static std::vector<std::uint64_t> flagsOfOpens(const std::vector<TracedCall>& calls) {
    std::vector<std::uint64_t> flags;
    for (auto& call : calls) {
      bool inFolder = static_cast<int>(call.arguments[0]) >= 0;
      if (call.number == SYS_openat && inFolder && !(call.arguments[2] & O_PATH))
        flags.push_back(call.arguments[2]);
    }
    return flags;
  }
  TemporaryFolder folder_;
};

TEST_F(TreeCalls, OfARemovalFollowNoLinkThatTookTheFoldersPlace) {
  auto opens = flagsOfOpens(callsOf([&] { return removeItem(folder_ / "t"); }));
  EXPECT_EQ(opens.size(), 2u);
  for (auto flags : opens) EXPECT_TRUE(flags & O_NOFOLLOW);
}

TEST_F(TreeCalls, OfACopyNeitherFollowALinkNorWaitForAPipe) {
  auto opens = flagsOfOpens(callsOf([&] { return copyItem(folder_ / "t", folder_ / "c"); }));
  // Two folders and a file, each in both trees.
  EXPECT_EQ(opens.size(), 6u);
  for (auto flags : opens) {
    EXPECT_TRUE(flags & O_NOFOLLOW);
    EXPECT_TRUE(flags & (O_DIRECTORY | O_NONBLOCK | O_EXCL));
  }
}

TEST_F(TreeCalls, OfACopyMakeEverythingPrivateUntilItIsComplete) {
  std::vector<mode_t> modes;
  for (auto& call : callsOf([&] { return copyItem(folder_ / "t", folder_ / "c"); })) {
    if (call.number == SYS_mkdirat) modes.push_back(static_cast<mode_t>(call.arguments[2]));
    if (call.number == SYS_openat && (call.arguments[2] & O_CREAT))
      modes.push_back(static_cast<mode_t>(call.arguments[3]));
  }
  EXPECT_EQ(modes, (std::vector<mode_t>{0700, 0700, 0600}));
}

}  // namespace
}  // namespace hoist::files
