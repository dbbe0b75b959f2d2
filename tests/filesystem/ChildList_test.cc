// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Chains of siblings and trees of folders that are long or deep: nothing recurses along them.

#include "filesystem/ChildList.h"

#include <gtest/gtest.h>

#include <future>
#include <string>
#include <thread>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "platform/Thread.h"
#include "support/DeepTree.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

TEST(SiblingChain, OfAHundredThousandIsReleasedOnASmallStack) {
  constexpr int kSiblings = 100'000;
  std::promise<void> done;
  startDetachedThread("release", [&] {
    auto parent = PXPath::initWithCPath("/parent");
    ChildList list;
    WeakRef<PXFileInfo> last;
    for (int i = 0; i < kSiblings; ++i) {
      auto child = PXFileInfo::initWithDirEntry("x", 8, parent);
      last = child;
      list.append(std::move(child));
    }
    list = ChildList();
    // The background queue gets there.
    while (!last.expired()) std::this_thread::yield();
    done.set_value();
  });
  done.get_future().get();
}

TEST(FolderTree, OfManyLevelsIsReleasedOnASmallStack) {
  // As many as a path can name.
  constexpr int kLevels = 1900;
  TemporaryFolder folder;
  makeDeepTree(folder / "t", kLevels);
  std::promise<int> depth;
  startDetachedThread("release", [&] {
    auto top = PXDirectory::directoryWithPath(folder / "t");
    WeakRef<PXFileInfo> last;
    int levels = 0;
    for (auto next = top->firstDirectory(); next; ++levels) {
      last = next;
      next = next->asDirectory()->firstDirectory();
    }
    top = nullptr;
    while (!last.expired()) std::this_thread::yield();
    // Nor are the memory and the paths of all levels, which the last one held.
    last.reset();
    depth.set_value(levels);
  });
  EXPECT_EQ(depth.get_future().get(), kLevels);
}

TEST(SiblingChain, IsSortedAndWalkedWhateverItsLength) {
  auto parent = PXPath::initWithCPath("/parent");
  ChildList list;
  for (int i = 20'000; i > 0; --i) {
    list.append(PXFileInfo::initWithDirEntry(("n" + std::to_string(i)).c_str(), 8, parent));
  }
  list.sortByName();
  EXPECT_STREQ(list.first()->cName(), "n1");
  EXPECT_STREQ(list.first()->nextObj()->cName(), "n2");
  EXPECT_EQ(list.count(), 20'000u);
  EXPECT_FALSE(list.first()->nextDirectory());
}

}  // namespace
}  // namespace hoist
