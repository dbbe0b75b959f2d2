// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXDirectory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <latch>
#include <optional>
#include <regex>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "filesystem/PXPath.h"
#include "filesystem/PXSubPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "support/Raised.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

using Names = std::vector<std::string>;

Names namesOf(const PXDirectory& directory) {
  Names names;
  for (auto& child : directory) names.push_back(child->cName());
  return names;
}

class Directory : public testing::Test {
 protected:
  Ref<PXDirectory> directory(const std::string& name = "") {
    return PXDirectory::directoryWithPath(name.empty() ? folder_.path() : folder_ / name);
  }
  TemporaryFolder folder_;
};

TEST_F(Directory, IsOnlyAnsweredForAFolder) {
  EXPECT_TRUE(directory());
  EXPECT_FALSE(PXDirectory::directoryWithPath(folder_.write("x", "")));
  EXPECT_FALSE(PXDirectory::directoryWithPath(folder_ / "missing"));
}

TEST_F(Directory, AnswersTheFirstOfAKind) {
  folder_.write("sub/x", "");
  auto directory = this->directory();
  EXPECT_FALSE(directory->firstContentFile() || directory->firstRegularFile());
  EXPECT_EQ(directory->firstDirectory()->name(), "sub");
  ASSERT_EQ(::symlink("sub", (folder_ / "link").c_str()), 0);
  directory->flushDirectoryContents();
  EXPECT_EQ(directory->firstContentFile()->name(), "link");
  EXPECT_FALSE(directory->firstRegularFile());
  folder_.write("file", "");
  directory->flushDirectoryContents();
  EXPECT_EQ(directory->firstRegularFile()->name(), "file");
  directory->sort();
  EXPECT_EQ(directory->firstObject()->name(), "file");
  EXPECT_EQ(directory->firstObject()->nextContentFile()->name(), "link");
  EXPECT_EQ(directory->firstObject()->nextDirectory()->name(), "sub");
  EXPECT_FALSE(directory->firstDirectory()->nextObj());
  EXPECT_FALSE(directory->firstObject()->nextRegularFile());
}

TEST_F(Directory, AnswersItsAbstractFormsAsItsConcreteOnes) {
  folder_.write("sub/x", "");
  folder_.write("file", "");
  auto directory = this->directory();
  directory->sort();
  const PXAbstractDirectory& view = *directory;
  EXPECT_EQ(view.firstAbstractObject(), directory->firstObject());
  EXPECT_EQ(view.firstAbstractContentFile(), directory->firstContentFile());
  EXPECT_EQ(view.firstAbstractRegularFile(), directory->firstRegularFile());
  EXPECT_EQ(view.firstAbstractDirectory(), directory->firstDirectory());
  EXPECT_EQ(view.abstractObjectMatchingCName("file"), directory->firstObject());
  EXPECT_EQ(view.abstractObjectMatchingName("file"), directory->firstObject());
  EXPECT_EQ(view.abstractSubdirectoryMatchingCName("sub"), directory->firstDirectory());
  EXPECT_FALSE(view.abstractSubdirectoryMatchingName("file"));
  EXPECT_EQ(directory->firstObject()->nextAbstractObj(), directory->firstDirectory());
  EXPECT_EQ(directory->firstObject()->nextAbstractDirectory(), directory->firstDirectory());
  EXPECT_FALSE(directory->firstObject()->nextAbstractRegularFile());
  EXPECT_FALSE(directory->firstObject()->nextAbstractContentFile());
}

TEST_F(Directory, FindsChildrenAndLocationsByName) {
  folder_.write("file", "");
  auto directory = this->directory();
  EXPECT_FALSE(directory->objectMatchingName("missing"));
  EXPECT_FALSE(directory->subdirectoryMatchingName("file"));
  EXPECT_EQ(directory->infoForName("file"), directory->objectMatchingCName("file"));
  folder_.write("later", "");
  EXPECT_TRUE(directory->infoForName("later")->isRegularFile());
  EXPECT_FALSE(directory->infoForName("missing")->exists());
  EXPECT_EQ(directory->pathForName("any")->path(), folder_ / "any");
  EXPECT_EQ(directory->pathForName("any")->parentPath(), directory->pathObject());
}

TEST_F(Directory, ContainsByItsTextWhatBeginsWithItAndASlash) {
  folder_.write("sub/deep/x", "");
  folder_.write("subway", "");
  auto sub = directory("sub");
  EXPECT_TRUE(sub->containsFile(*PXFileInfo::infoForPath(folder_ / "sub/deep/x")));
  EXPECT_FALSE(sub->containsFile(*PXFileInfo::infoForPath(folder_ / "subway")));
  EXPECT_FALSE(sub->containsFile(*sub));
  EXPECT_FALSE(PXDirectory::directoryWithPath("/")->containsFile(*sub));
}

TEST_F(Directory, IsEnumeratedInPieces) {
  for (int i = 0; i < 5; ++i) folder_.write("x" + std::to_string(i), "");
  auto directory = this->directory();
  PXDirectory::Enumeration state;
  Ref<PXFileInfo> objects[2];
  std::set<std::string> names;
  std::vector<std::size_t> counts;
  std::size_t count;
  while ((count = directory->countByEnumerating(state, objects)) > 0) {
    counts.push_back(count);
    for (std::size_t i = 0; i < count; ++i) names.insert(objects[i]->name());
  }
  EXPECT_EQ(counts, (std::vector<std::size_t>{2, 2, 1}));
  EXPECT_EQ(names.size(), 5u);
  EXPECT_EQ(directory->countByEnumerating(state, objects), 0u);
}

TEST_F(Directory, ReportsAFlushDuringAnEnumeration) {
  folder_.write("a", "");
  folder_.write("b", "");
  auto directory = this->directory();
  PXDirectory::Enumeration state;
  Ref<PXFileInfo> objects[1];
  directory->countByEnumerating(state, objects);
  directory->flushDirectoryContents();
  EXPECT_THROW(directory->countByEnumerating(state, objects), Exception);
  // A loop goes on with the children that it began with.
  int seen = 0;
  for (auto& child : *directory) {
    if (++seen == 1) directory->flushDirectoryContents();
    EXPECT_TRUE(child);
  }
  EXPECT_EQ(seen, 2);
}

TEST_F(Directory, SortsByNameOnce) {
  for (auto name : {"x10", "A", "b", "x1", "X2"}) folder_.write(name, "");
  auto directory = this->directory();
  directory->sort();
  EXPECT_EQ(namesOf(*directory), (Names{"A", "b", "x1", "X2", "x10"}));
  // A second sort does nothing: it would undo what stands here.
  int comparisons = 0;
  directory->resortUsing([&](auto& a, auto& b) {
    ++comparisons;
    return std::string_view(b.cName()) <=> std::string_view(a.cName());
  });
  EXPECT_GT(comparisons, 0);
  EXPECT_EQ(namesOf(*directory), (Names{"x10", "x1", "b", "X2", "A"}));
  directory->sort();
  EXPECT_EQ(namesOf(*directory), (Names{"A", "b", "x1", "X2", "x10"}));
  directory->sort();
  directory->flushDirectoryContents();
  directory->sort();
  EXPECT_EQ(namesOf(*directory), (Names{"A", "b", "x1", "X2", "x10"}));
}

TEST_F(Directory, IsNotSortedAgainUntilItIsResorted) {
  for (auto name : {"a", "b"}) folder_.write(name, "");
  auto directory = this->directory();
  directory->sort();
  directory->firstObject()->moveTo("c", false);
  directory->sort();
  EXPECT_EQ(namesOf(*directory), (Names{"c", "b"}));
  directory->resortUsing([](auto&, auto&) { return std::strong_ordering::equal; });
  directory->sort();
  EXPECT_EQ(namesOf(*directory), (Names{"b", "c"}));
}

TEST_F(Directory, IsSortedOnceItCanBeReadThoughItCouldNotBeBefore) {
  folder_.write("sub/x", "");
  auto sub = directory("sub");
  ASSERT_EQ(::rename((folder_ / "sub").c_str(), (folder_ / "away").c_str()), 0);
  sub->sort();
  ASSERT_EQ(::rename((folder_ / "away").c_str(), (folder_ / "sub").c_str()), 0);
  Names names;
  for (int i = 1; i < 50; ++i) {
    names.push_back("n" + std::to_string(i));
    folder_.write("sub/" + names.back(), "");
  }
  names.push_back("x");
  ASSERT_NE(namesOf(*sub), names);
  sub->sort();
  EXPECT_EQ(namesOf(*sub), names);
}

TEST_F(Directory, KeepsTheOrderOfEqualChildrenAndAllOfThemWhenAComparisonRaises) {
  for (int i = 0; i < 100; ++i) folder_.write("x" + std::to_string(i), "");
  auto directory = this->directory();
  auto order = namesOf(*directory);
  directory->resortUsing([](auto&, auto&) { return std::strong_ordering::equal; });
  EXPECT_EQ(namesOf(*directory), order);
  int calls = 0;
  EXPECT_THROW(directory->resortUsing([&](auto& a, auto& b) -> std::strong_ordering {
    if (++calls == 50) throw std::runtime_error("no more");
    return std::string_view(a.cName()) <=> std::string_view(b.cName());
  }),
               std::runtime_error);
  EXPECT_EQ(namesOf(*directory), order);
}

TEST_F(Directory, RegistersWithItsPathAndShareNone) {
  auto path = PXPath::initWithCPath(folder_.path());
  auto first = PXFileInfo::infoForPathObject(path)->asDirectory();
  auto second = PXFileInfo::infoForPathObject(path)->asDirectory();
  EXPECT_EQ(path->directoryInfo(), first);
  EXPECT_NE(second->pathObject(), path);
  EXPECT_EQ(second->pathObject()->directoryInfo(), second);
  second = nullptr;
  EXPECT_EQ(path->directoryInfo(), first);
  first = nullptr;
  EXPECT_FALSE(path->directoryInfo());
}

TEST_F(Directory, KnowsItsChildrensParentWhileItLives) {
  folder_.write("sub/x", "");
  auto directory = this->directory();
  auto sub = directory->subdirectoryMatchingName("sub");
  auto file = sub->firstObject();
  EXPECT_EQ(file->livingParent(), sub);
  EXPECT_EQ(sub->parentDirectoryInfo(), directory);
  EXPECT_EQ(file->path(), folder_ / "sub/x");
}

TEST_F(Directory, MakesAChildsPathObjectOnceForAllThreads) {
  folder_.write("x", "");
  auto directory = this->directory();
  auto child = directory->firstObject();
  constexpr std::size_t kThreads = 8;
  std::vector<Ref<PXPath>> paths(kThreads);
  {
    std::vector<std::jthread> threads;
    for (auto& path : paths) {
      threads.emplace_back([&] {
        EXPECT_STREQ(child->cName(), "x");
        path = child->pathObject();
      });
    }
  }
  for (auto& path : paths) EXPECT_EQ(path, child->pathObject());
  EXPECT_EQ(child->pathObject()->parent(), directory->pathObject());
}

TEST_F(Directory, MakesFoldersAndRaisesWhenItCannot) {
  ::umask(022);
  auto directory = this->directory();
  auto made = directory->createSubdirectoryWithName("new", 0750);
  EXPECT_EQ(made->path(), folder_ / "new");
  EXPECT_EQ(made->access(), 0750);
  auto exception = raisedBy([&] { directory->createSubdirectoryWithName("new", 0700); });
  EXPECT_EQ(exception.reason(), "could not create directory");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EEXIST));
  EXPECT_EQ(detailOf(exception, "mode"), std::to_string(0700));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "new");
}

TEST_F(Directory, MakesFoldersOfUniqueNames) {
  auto directory = this->directory();
  auto plain = directory->createUniqueSubdirectoryWithPrefix("p", std::nullopt, 0700);
  EXPECT_TRUE(std::regex_match(plain->name(), std::regex("p\\.[0-9a-f]{8}")));
  auto extended = directory->createUniqueSubdirectoryWithPrefix("p", "ext", 0700);
  EXPECT_TRUE(std::regex_match(extended->name(), std::regex("p\\.[0-9a-f]{8}\\.ext")));
  EXPECT_EQ(raisedBy([&] {
              directory->createUniqueSubdirectoryWithPrefix("missing/p", std::nullopt, 0700);
            }).reason(),
            "could not create directory");
}

TEST_F(Directory, IsAPackageWhenItIsAnApplication) {
  folder_.write("X.app/Contents/Info.plist", "");
  EXPECT_TRUE(directory("X.app")->isPackage());
  EXPECT_FALSE(directory()->isPackage());
  auto gone = directory("X.app");
  std::filesystem::remove_all(folder_ / "X.app");
  EXPECT_FALSE(gone->isPackage());
}

TEST_F(Directory, DescribesItselfWithoutRaising) {
  folder_.write("sub/x", "");
  auto sub = directory("sub");
  EXPECT_EQ(sub->logDescription(), "folder sub");
  EXPECT_EQ(sub->displayName(), "sub");
  auto gone = directory("sub");
  std::filesystem::remove_all(folder_ / "sub");
  gone->flushAttributes();
  EXPECT_EQ(gone->logDescription(), "folder sub");
  EXPECT_EQ(gone->displayName(), "sub");
  EXPECT_EQ(gone->displayPath(), "?/sub/");
  EXPECT_EQ(PXDirectory::directoryWithPath("/proc")->logTypeDescription(), "volume");
}

TEST_F(Directory, AnswersOneVolumeToAllThreads) {
  folder_.write("sub/x", "");
  for (int round = 0; round < 50; ++round) {
    auto directory = this->directory();
    auto sub = directory->subdirectoryMatchingName("sub");
    std::vector<Ref<PXVolumeInfo>> volumes(4);
    {
      std::latch start(4);
      std::vector<std::jthread> threads;
      for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
          start.arrive_and_wait();
          volumes[i] = (i % 2 == 0 ? directory : sub)->volumeInfo();
        });
      }
    }
    for (auto& volume : volumes) ASSERT_EQ(volume, directory->volumeInfo()) << round;
  }
}

TEST_F(Directory, HoldsTheVolumeThatRefersToItWeaklyAndNoOtherThen) {
  auto directory = this->directory();
  WeakRef<PXVolumeInfo> own = directory->volumeInfo();
  EXPECT_FALSE(own.expired());
  auto other = PXVolumeInfo::initWithPath(folder_.path().c_str());
  directory->setVolumeInfo(other);
  EXPECT_TRUE(own.expired());
  EXPECT_EQ(directory->volumeInfo(), other);
  WeakRef<PXVolumeInfo> weak = std::exchange(other, nullptr);
  EXPECT_TRUE(weak.expired());
  EXPECT_TRUE(directory->volumeInfo());
}

class DirectoryOnEveryVolume : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
    point_ = volumes_->make(GetParam(), "vol");
  }
  std::optional<TestVolumes> volumes_;
  std::string point_;
};

TEST_P(DirectoryOnEveryVolume, ListsEveryKindOfItemAndOddNames) {
  auto odd = point_ + "/\xff line\nfeed";
  auto longest = point_ + "/" + std::string(255, 'n');
  ASSERT_EQ(::mkdir((point_ + "/sub").c_str(), 0711), 0);
  ASSERT_EQ(::symlink("sub", (point_ + "/link").c_str()), 0);
  ASSERT_EQ(::mkfifo((point_ + "/pipe").c_str(), 0600), 0);
  ASSERT_EQ(::mknod(odd.c_str(), S_IFREG | 0640, 0), 0);
  ASSERT_EQ(::mknod(longest.c_str(), S_IFREG | 0640, 0), 0);
  auto root = PXDirectory::directoryWithPath(point_);
  EXPECT_EQ(root->objectMatchingName("sub")->access(), 0711);
  EXPECT_TRUE(root->objectMatchingName("link")->isSymbolicLink());
  EXPECT_EQ(root->objectMatchingName("pipe")->type(), VnodeType::NamedPipe);
  EXPECT_EQ(root->objectMatchingCName("\xff line\nfeed")->access(), 0640);
  EXPECT_TRUE(root->objectMatchingCName(std::string(255, 'n')));
  EXPECT_EQ(root->objectMatchingName("sub")->linkCount(), 1u);
  EXPECT_EQ(root->linkCount(), 1u);
}

TEST_P(DirectoryOnEveryVolume, EndsTheWayUpAtTheMountPoint) {
  ASSERT_EQ(::mkdir((point_ + "/sub").c_str(), 0755), 0);
  ASSERT_EQ(::mkdir((point_ + "/sub/deep").c_str(), 0755), 0);
  auto root = PXDirectory::directoryWithPath(point_);
  EXPECT_TRUE(root->isMountPoint());
  EXPECT_FALSE(root->parentDirectoryInfo());
  EXPECT_EQ(root->logTypeDescription(), "volume");
  auto name = root->volumeInfo()->displayName();
  EXPECT_EQ(root->displayName(), name);
  EXPECT_EQ(root->displayPath(), name + ":/");
  auto deep = PXDirectory::directoryWithPath(point_ + "/sub/deep");
  EXPECT_EQ(deep->displayPath(), name + ":/sub/deep/");
  EXPECT_EQ(deep->displayName(), "deep");
  EXPECT_FALSE(deep->isMountPoint());
}

TEST_P(DirectoryOnEveryVolume, SharesTheVolumeOfTheFolderThatListedIt) {
  ASSERT_EQ(::mkdir((point_ + "/sub").c_str(), 0755), 0);
  auto root = PXDirectory::directoryWithPath(point_);
  auto sub = root->subdirectoryMatchingName("sub");
  EXPECT_EQ(sub->volumeInfo(), root->volumeInfo());
  EXPECT_EQ(sub->volumeInfo()->path(), point_);
  // A mount inside the listing is a volume of its own.
  volumes_->mount("tmpfs", point_ + "/sub", "tmpfs", 0, "");
  root->flushDirectoryContents();
  auto mounted = root->subdirectoryMatchingName("sub");
  EXPECT_TRUE(mounted->isMountPoint());
  EXPECT_EQ(mounted->volumeInfo()->path(), point_ + "/sub");
}

std::vector<std::string> kinds() {
  return TestVolumes::kinds();
}
INSTANTIATE_TEST_SUITE_P(Kinds, DirectoryOnEveryVolume, testing::ValuesIn(kinds()),
                         [](auto& info) { return info.param; });

}  // namespace
}  // namespace hoist
