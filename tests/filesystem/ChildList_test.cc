// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Chains of siblings and trees of folders that are long or deep: nothing recurses along them.

#include "filesystem/ChildList.h"

#include <gtest/gtest.h>

#include <future>
#include <random>
#include <string>
#include <string_view>
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

class Sorting : public testing::Test {
 protected:
  void add(const std::string& name) {
    list_.append(PXFileInfo::initWithDirEntry(name.c_str(), 8, parent_));
  }
  std::string names() const {
    std::string names;
    for (auto child = list_.first().get(); child; child = child->nextObj().get())
      names += child->cName();
    return names;
  }
  Ref<PXPath> parent_ = PXPath::initWithCPath("/parent");
  ChildList list_;
};

TEST_F(Sorting, ComparesLeftWithRightAndMovesTheRightOneOnlyWhenTheyDescend) {
  for (auto name : {"d", "b", "e", "a", "c"}) add(name);
  // Never says "less": that two children do not descend is all that it has to say.
  list_.sort([](auto& left, auto& right) {
    return std::string_view(left.cName()) > right.cName() ? std::strong_ordering::greater
                                                          : std::strong_ordering::equal;
  });
  EXPECT_EQ(names(), "abcde");
  std::string compared;
  list_.sort([&](auto& left, auto& right) {
    compared += std::string(left.cName()) + right.cName() + " ";
    return std::strong_ordering::equal;
  });
  // The first half holds the middle one.
  EXPECT_EQ(compared, "ab ac bc de ad bd cd ");
  EXPECT_EQ(names(), "abcde");
}

TEST_F(Sorting, LosesNoChildWhateverTheComparisonSays) {
  constexpr int kChildren = 1000;
  for (int i = 0; i < kChildren; ++i) add("n");
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    list_.sort([&](auto&, auto&) { return static_cast<int>(random() % 3) <=> 1; });
    ASSERT_EQ(names(), std::string(kChildren, 'n'));
  }
}

TEST_F(Sorting, ComparesNothingWhenThereAreNotTwo) {
  auto compare = [](auto&, auto&) {
    ADD_FAILURE();
    return std::strong_ordering::equal;
  };
  list_.sort(compare);
  add("a");
  list_.sort(compare);
  EXPECT_EQ(names(), "a");
}

}  // namespace
}  // namespace hoist
