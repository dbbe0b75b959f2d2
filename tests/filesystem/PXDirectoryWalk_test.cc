// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXDirectoryWalk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "platform/Mutex.h"
#include "platform/UserIdentity.h"
#include "support/AsUser.h"
#include "support/DeepTree.h"
#include "support/Moment.h"
#include "support/OneProcessor.h"
#include "support/Raised.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

using namespace attrlist;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::UnorderedElementsAreArray;
using Names = std::vector<std::string>;

// Knows which folders were opened for reading, by which kind of thread, and lets something happen
// first.
class WatchedReads : public AttributeCalls {
 public:
  int getattrlistbulk(int folder, const AttributeSet& request, BulkBuffer& buffer,
                      std::uint32_t options) override {
    auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder));
    auto name = path.filename().string();
    bool isWalker = std::this_thread::get_id() == walker_;
    if (buffer.number() == 0) {
      MutexLock lock(mutex_);
      (isWalker ? walkers_ : helpers_).push_back(name);
    }
    int error = before ? before(isWalker, name) : 0;
    if (error == 0) return AttributeCalls::getattrlistbulk(folder, request, buffer, options);
    errno = error;
    return -1;
  }

  // Answers an error for the read to fail with, or 0.
  std::function<int(bool isWalker, const std::string& name)> before;

  Names readByWalker() {
    MutexLock lock(mutex_);
    return walkers_;
  }
  Names readByHelper() {
    MutexLock lock(mutex_);
    return helpers_;
  }
  Names all() {
    auto names = readByWalker();
    for (auto& name : readByHelper()) names.push_back(name);
    return names;
  }

 private:
  const std::thread::id walker_ = std::this_thread::get_id();
  Mutex mutex_;
  Names walkers_ GUARDED_BY(mutex_);
  Names helpers_ GUARDED_BY(mutex_);
};

class DirectoryWalk : public testing::Test {
 protected:
  Ref<PXPath> top() { return PXPath::initWithPath(folder_.path()); }
  std::string relative(const PXDirectory& folder) {
    return std::filesystem::path(folder.path()).lexically_relative(folder_.path()).string();
  }
  // The folders that are left, as paths below the top.
  Names rest(PXDirectoryWalk& walk) {
    Names names;
    while (auto folder = walk.next()) names.push_back(relative(*folder));
    return names;
  }
  Names all() {
    PXDirectoryWalk walk(top());
    return rest(walk);
  }
  // The same, by asking folder after folder.
  void addByHand(const Ref<PXDirectory>& folder, Names& names) {
    names.push_back(relative(*folder));
    for (auto child = folder->firstDirectory(); child; child = child->nextDirectory()) {
      addByHand(child->asDirectory(), names);
    }
  }
  Names allByHand() {
    Names names;
    addByHand(PXDirectory::directoryWithPath(folder_.path()), names);
    return names;
  }
  void makeTree() {
    for (int i = 0; i < 300; ++i) {
      auto folder = "f" + std::to_string(i % 20) + "/g" + std::to_string(i % 60);
      folder_.write(folder + "/h" + std::to_string(i) + "/file", "content");
      folder_.write(folder + "/file" + std::to_string(i), "");
    }
  }

  TemporaryFolder folder_;
  WatchedReads reads_;
  AttributeCallsOverride override_{reads_};
};

TEST_F(DirectoryWalk, MeetsEachFolderOnceBeforeThoseBelowItInTheOrderOfItsChildren) {
  makeTree();
  auto names = all();
  EXPECT_THAT(names, SizeIs(1 + 20 + 60 + 300));
  EXPECT_EQ(names, allByHand());
}

TEST_F(DirectoryWalk, HandsOutFoldersThatAreRead) {
  makeTree();
  PXDirectoryWalk walk(top());
  int files = 0;
  while (auto folder = walk.next()) {
    ASSERT_TRUE(folder->contentsAreRead());
    for (auto& child : *folder) {
      ASSERT_EQ(child->livingParent(), folder);
      ASSERT_EQ(child->ownerID(), ::geteuid());
      files += child->isRegularFile();
    }
  }
  EXPECT_EQ(files, 600);
  EXPECT_FALSE(walk.next());
}

TEST_F(DirectoryWalk, GoesByNameWhenAsked) {
  for (auto name : {"d2", "d10", "d1"}) folder_.write(name + std::string("/below/x"), "");
  folder_.write("d3", "");
  PXDirectoryWalk walk(top(), PXDirectoryWalk::Order::ByName);
  Names children;
  for (auto& child : *walk.next()) children.push_back(child->cName());
  EXPECT_THAT(children, ElementsAre("d1", "d2", "d3", "d10"));
  EXPECT_THAT(rest(walk), ElementsAre("d1", "d1/below", "d2", "d2/below", "d10", "d10/below"));
}

TEST_F(DirectoryWalk, IsSharedByTwoThreads) {
  if (processorsOfThisThread() < 2) GTEST_SKIP() << "needs two processors";
  for (int i = 0; i < 40; ++i) folder_.write(std::to_string(i) + "/x", "");
  Moment helps;
  // The walker stays at its first folder below the top until the helper has come to one.
  reads_.before = [&](bool isWalker, const std::string& name) {
    if (!isWalker) helps.comes();
    if (isWalker && name.size() <= 2) helps.await();
    return 0;
  };
  EXPECT_THAT(all(), SizeIs(41));
  EXPECT_THAT(reads_.readByHelper(), Not(IsEmpty()));
  Names expected = {std::filesystem::path(folder_.path()).filename()};
  for (int i = 0; i < 40; ++i) expected.push_back(std::to_string(i));
  EXPECT_THAT(reads_.all(), UnorderedElementsAreArray(expected));
}

TEST_F(DirectoryWalk, IsTheSameWithOneThread) {
  makeTree();
  OneProcessor one;
  EXPECT_EQ(all(), allByHand());
  EXPECT_THAT(reads_.readByHelper(), IsEmpty());
}

TEST_F(DirectoryWalk, IsNotSharedWithAThreadThatHasOtherRights) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to take another user's rights";
  makeTree();
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
  platform::UsersFileRights rights({54321, 54322, {}});
  EXPECT_THAT(all(), SizeIs(381));
  EXPECT_THAT(reads_.readByHelper(), IsEmpty());
}

TEST_F(DirectoryWalk, ReadsAStretchOfFoldersAtATime) {
  for (int i = 0; i < 200; ++i) folder_.write(std::to_string(i) + "/sub/x", "");
  PXDirectoryWalk walk(top());
  walk.next();
  EXPECT_THAT(reads_.all(), SizeIs(1));
  walk.next();
  EXPECT_THAT(reads_.all(), SizeIs(1 + 64));
  walk.next();
  EXPECT_THAT(reads_.all(), SizeIs(1 + 64 + 64)) << "what is below those";
  for (int handedOut = 3; handedOut < 1 + 64 + 64; ++handedOut) walk.next();
  EXPECT_THAT(reads_.all(), SizeIs(1 + 64 + 64));
  EXPECT_THAT(rest(walk), SizeIs(400 - 64 - 64));
  EXPECT_THAT(reads_.all(), SizeIs(401));
}

TEST_F(DirectoryWalk, IsNotFurtherAheadThanSomeThousandItems) {
  OneProcessor one;
  for (auto name : {"1/below", "2", "3", "4"}) folder_.write(name + std::string("/file"), "");
  for (int i = 0; i < 10'000; ++i) {
    auto name = folder_ / ("2/" + std::to_string(i));
    ASSERT_EQ(::link((folder_ / "2/file").c_str(), name.c_str()), 0);
  }
  PXDirectoryWalk walk(top(), PXDirectoryWalk::Order::ByName);
  walk.next();
  EXPECT_EQ(relative(*walk.next()), "1");
  EXPECT_THAT(reads_.all(), SizeIs(3)) << "with the large one";
  auto below = walk.next();
  EXPECT_EQ(relative(*below), "1/below");
  EXPECT_TRUE(below->contentsAreRead()) << "its turn has come";
  EXPECT_THAT(reads_.all(), SizeIs(4));
  EXPECT_EQ(walk.next()->count(), 10'001u);
  EXPECT_THAT(reads_.all(), SizeIs(4));
  walk.next();
  EXPECT_THAT(reads_.all(), SizeIs(6)) << "the two small ones together";
}

TEST_F(DirectoryWalk, LetsGoOfWhatItHasPassedAndKeepsTheFoldersAbove) {
  folder_.write("a/b/c/x", "");
  folder_.write("z/y", "");
  PXDirectoryWalk walk(top(), PXDirectoryWalk::Order::ByName);
  auto first = walk.next();
  WeakRef<PXFileInfo> z = first->objectMatchingCName("z");
  WeakRef<PXDirectory> watched = first;
  first = nullptr;
  auto a = walk.next();
  EXPECT_EQ(a->livingParent(), watched.lock());
  EXPECT_FALSE(watched.lock()->contentsAreRead());
  WeakRef<PXFileInfo> b = a->firstObject();
  a = nullptr;
  EXPECT_EQ(relative(*walk.next()), "a/b");
  auto c = walk.next();
  EXPECT_EQ(c->livingParent(), b.lock());
  EXPECT_EQ(c->livingParent()->livingParent()->livingParent(), watched.lock());
  c = nullptr;
  EXPECT_EQ(walk.next(), z.lock());
  while (!b.expired()) std::this_thread::yield();
  EXPECT_FALSE(walk.next());
  while (!watched.expired()) std::this_thread::yield();
}

TEST_F(DirectoryWalk, RaisesForAFolderThatCannotBeReadWhenItsTurnComesAndGoesOn) {
  for (auto name : {"1", "2", "3"}) folder_.write(name + std::string("/below/x"), "");
  reads_.before = [](bool, const std::string& name) { return name == "2" ? EIO : 0; };
  PXDirectoryWalk walk(top(), PXDirectoryWalk::Order::ByName);
  walk.next();
  EXPECT_EQ(relative(*walk.next()), "1");
  EXPECT_EQ(relative(*walk.next()), "1/below");
  auto exception = raisedBy([&] { walk.next(); });
  EXPECT_EQ(exception.reason(), "failed to read directory");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EIO));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "2");
  EXPECT_THAT(rest(walk), ElementsAre("3", "3/below"));
}

TEST_F(DirectoryWalk, HandsOutUnreadWhatCannotBeOpened) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to be an ordinary user";
  for (auto name : {"1", "2", "3"}) folder_.write(name + std::string("/below/x"), "");
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
  std::filesystem::permissions(folder_ / "2", std::filesystem::perms(0700));
  AsUser user(65534);
  PXDirectoryWalk walk(top(), PXDirectoryWalk::Order::ByName);
  walk.next();
  std::map<std::string, bool> wasRead;
  while (auto folder = walk.next()) wasRead[relative(*folder)] = folder->contentsAreRead();
  EXPECT_EQ(wasRead,
            (std::map<std::string, bool>{
                {"1", true}, {"1/below", true}, {"2", false}, {"3", true}, {"3/below", true}}));
}

TEST_F(DirectoryWalk, LosesNothingBesideFoldersThatCannotBeLookedAt) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to be an ordinary user";
  for (auto name : {"1/a/x", "2/p/x", "2/q/x", "3/b/x", "3/c/below/x"}) folder_.write(name, "");
  std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
  // It may be listed, but what is in it is known by name and type only.
  std::filesystem::permissions(folder_ / "2", std::filesystem::perms(0744));
  AsUser user(65534);
  PXDirectoryWalk walk(top(), PXDirectoryWalk::Order::ByName);
  std::map<std::string, bool> wasRead;
  while (auto folder = walk.next()) wasRead[relative(*folder)] = folder->contentsAreRead();
  EXPECT_EQ(wasRead, (std::map<std::string, bool>{{".", true},
                                                  {"1", true},
                                                  {"1/a", true},
                                                  {"2", true},
                                                  {"2/p", false},
                                                  {"2/q", false},
                                                  {"3", true},
                                                  {"3/b", true},
                                                  {"3/c", true},
                                                  {"3/c/below", true}}));
}

TEST_F(DirectoryWalk, SurvivesFoldersThatVanish) {
  makeTree();
  PXDirectoryWalk walk(top());
  for (int i = 0; i < 5; ++i) ASSERT_TRUE(walk.next());
  std::filesystem::remove_all(folder_.path());
  while (auto folder = walk.next()) {
    if (!folder->contentsAreRead()) {
      ASSERT_EQ(folder->count(), 0u);
    }
  }
}

TEST_F(DirectoryWalk, DoesNotFollowLinks) {
  folder_.write("a/x", "");
  ASSERT_EQ(::symlink("a", (folder_ / "link").c_str()), 0);
  ASSERT_EQ(::symlink("..", (folder_ / "a/up").c_str()), 0);
  EXPECT_THAT(all(), ElementsAre(".", "a"));
}

TEST_F(DirectoryWalk, OfWhatIsNoFolderIsEmpty) {
  folder_.write("file", "");
  ASSERT_EQ(::symlink(".", (folder_ / "link").c_str()), 0);
  for (auto name : {"file", "link", "missing"}) {
    PXDirectoryWalk walk(PXPath::initWithPath(folder_ / name));
    EXPECT_FALSE(walk.next()) << name;
    EXPECT_FALSE(walk.next()) << name;
  }
}

TEST_F(DirectoryWalk, ComesToTheEndOfATreeThatIsDeeperThanAPathIsLong) {
  constexpr int kLevels = 3000;
  makeDeepTree(folder_ / "deep", kLevels);
  PXDirectoryWalk walk(PXPath::initWithPath(folder_ / "deep"));
  int folders = 0;
  Ref<PXDirectory> last;
  while (auto folder = walk.next()) {
    ++folders;
    last = folder;
  }
  // A folder whose path is longer than the kernel takes cannot be opened.
  EXPECT_FALSE(last->contentsAreRead());
  EXPECT_GT(folders, 1900);
  EXPECT_LT(folders, kLevels);
}

TEST(DirectoryWalkOfMounts, ListsWhatIsMountedInTheTreeAndDoesNotEnterIt) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto top = volumes.make("tmpfs", "top");
  std::filesystem::create_directories(top + "/a/b");
  std::filesystem::create_directories(top + "/inside");
  volumes.mount("tmpfs", top + "/inside", "tmpfs", 0, "size=1m");
  std::filesystem::create_directories(top + "/inside/not");
  PXDirectoryWalk walk(PXPath::initWithPath(top));
  Names names;
  while (auto folder = walk.next()) {
    names.push_back(folder->cName());
    if (names.size() == 1) {
      EXPECT_TRUE(folder->objectMatchingCName("inside"));
    }
  }
  EXPECT_THAT(names, ElementsAre("top", "a", "b"));
}

}  // namespace
}  // namespace hoist
