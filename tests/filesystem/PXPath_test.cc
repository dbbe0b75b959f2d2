// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXPath.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <regex>
#include <thread>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXSubPath.h"
#include "platform/Thread.h"
#include "platform/URL.h"
#include "support/PlainCoders.h"
#include "support/RecordingLogger.h"
#include "support/TemporaryFolder.h"
#include "values/ClassRegistry.h"

namespace hoist {
namespace {

using Text = std::string;

Ref<PXPath> pathOf(std::string_view cPath) {
  return PXPath::initWithCPath(cPath);
}

Ref<PXSubPath> child(std::string_view name, const Ref<PXPath>& parent) {
  return PXSubPath::initAssumingCNameParentPath(name, parent);
}

TEST(PXPath, TakesNameAndPathFromWhatItIsMadeOf) {
  EXPECT_EQ(pathOf("/a/b.txt")->cPath(), Text("/a/b.txt"));
  EXPECT_EQ(pathOf("/a/b.txt")->cName(), Text("b.txt"));
  EXPECT_EQ(pathOf("/a/b.txt")->extension(), "txt");
  EXPECT_EQ(pathOf("/a/b/")->cName(), Text("b"));
  EXPECT_EQ(pathOf("/")->cName(), Text("/"));
  EXPECT_EQ(pathOf("")->cPath(), Text(""));
  EXPECT_EQ(pathOf("")->cName(), Text("."));
  EXPECT_EQ(PXPath::initWithURL("file:///a%20b/c")->cPath(), Text("/a b/c"));
  EXPECT_EQ(PXPath::initWithURL("nonsense")->cPath(), Text(""));
  auto named = PXPath::initAssumingNamePath("Volume", "/mnt/x");
  EXPECT_EQ(named->cName(), Text("Volume"));
  EXPECT_EQ(named->cPath(), Text("/mnt/x"));
}

TEST(PXPath, EndsAtANulInTheText) {
  auto path = PXPath::initWithPath(std::string("/a\0/b", 5));
  EXPECT_EQ(path->path(), "/a");
  EXPECT_EQ(path->cName(), Text("a"));
}

TEST(PXPath, KeepsBytesThatAreNoUTF8AndShowsThemReplaced) {
  auto path = pathOf("/a/\xff.x");
  EXPECT_EQ(path->cName(), Text("\xff.x"));
  EXPECT_EQ(path->name(), "\xef\xbf\xbd.x");
  EXPECT_EQ(path->path(), "/a/\xef\xbf\xbd.x");
  EXPECT_EQ(path->url(), "file:///a/%FF.x");
  EXPECT_EQ(PXPath::initWithURL(path->url())->cPath(), Text("/a/\xff.x"));
}

TEST(PXPath, JoinsAChildWithOneSlash) {
  EXPECT_EQ(pathOf("/a")->pathOfChild("b")->cPath(), Text("/a/b"));
  EXPECT_EQ(pathOf("/a/")->pathOfChild("b")->cPath(), Text("/a/b"));
  EXPECT_EQ(pathOf("/")->pathOfChild("b")->cPath(), Text("/b"));
  EXPECT_EQ(pathOf("")->pathOfChild("b")->cPath(), Text("/b"));
}

TEST(PXPath, MadeRelativeToABaseIsTheBaseItselfForAnEmptyText) {
  auto base = pathOf("/base");
  EXPECT_EQ(PXPath::initWithCPathRelativeToPath("", base), base);
  EXPECT_EQ(base->relativePath(""), base);
  EXPECT_EQ(base->relativePath("/abs")->cPath(), Text("/abs"));
  EXPECT_EQ(base->relativePath("sub/./x")->cPath(), Text("/base/sub/./x"));
  EXPECT_EQ(pathOf("/base/")->relativePath("sub")->cPath(), Text("/base/sub"));
}

TEST(PXPath, ResolvesARelativeTextWithADotIfItLeadsSomewhere) {
  TemporaryFolder folder;
  folder.write("sub/file", "");
  folder.write("other/file", "");
  auto base = pathOf(folder / "sub");
  EXPECT_EQ(base->relativePath("../other/file")->cPath(), folder / "other/file");
  EXPECT_EQ(base->relativePath("./file")->cPath(), folder / "sub/file");
  EXPECT_EQ(base->relativePath("../missing")->cPath(), folder / "sub/../missing");
  // One without stays as it is.
  std::filesystem::create_symlink("file", folder / "sub/link");
  EXPECT_EQ(base->relativePath("link")->cPath(), folder / "sub/link");
  EXPECT_EQ(base->relativePath("./link")->cPath(), folder / "sub/file");
}

TEST(PXPath, HasItsDirectoryPartAsParentUpToTheRoot) {
  EXPECT_EQ(pathOf("/a/b")->parent()->cPath(), Text("/a"));
  EXPECT_EQ(pathOf("/a")->parent()->cPath(), Text("/"));
  EXPECT_EQ(pathOf("/")->parent()->cPath(), Text("/"));
  EXPECT_EQ(pathOf("a")->parent()->cPath(), Text("."));
}

TEST(PXPath, TellsTheTextThatLeadsToItFromABase) {
  auto relative = [](const char* path, const char* base) {
    return pathOf(path)->pathRelativeToPath(*pathOf(base));
  };
  EXPECT_EQ(relative("/a/b/c", "/a/b"), "c");
  EXPECT_EQ(relative("/a/b/c", "/a/b/"), "c");
  EXPECT_EQ(relative("/a/bc", "/a/b"), "/a/bc");
  EXPECT_EQ(relative("/a/b", "/a/b"), "");
  EXPECT_EQ(relative("/a", "/a/b"), "/a");
  EXPECT_EQ(relative("/a", ""), "/a");
  EXPECT_EQ(relative("/a", "/"), "a");
  // Two names that are shown as the same text.
  EXPECT_EQ(relative("/\xfe/c", "/\xff"), "/\xef\xbf\xbd/c");
  EXPECT_EQ(relative("/\xff/\xfe", "/\xff"), "\xef\xbf\xbd");
}

TEST(PXPath, ContainsItselfAndWhatIsBelowOnTheSameVolume) {
  TemporaryFolder folder;
  auto file = pathOf(folder.write("sub/file", ""));
  auto sub = pathOf(folder / "sub");
  EXPECT_TRUE(sub->containsPath(*sub));
  EXPECT_TRUE(sub->containsPath(*file));
  EXPECT_FALSE(file->containsPath(*sub));
  EXPECT_FALSE(sub->containsPath(*pathOf(folder.write("subway", ""))));
  EXPECT_TRUE(pathOf("/")->containsPath(*pathOf("/etc")));
  EXPECT_FALSE(pathOf("/")->containsPath(*pathOf("/proc/self")));
  // Nothing is known of either: they count as equal.
  EXPECT_TRUE(pathOf("/no such/a")->containsPath(*pathOf("/no such/a/b")));
}

TEST(PXPath, EqualsPathsByBytesAndTheStringThatIsItsPath) {
  auto path = pathOf("/a/b");
  EXPECT_TRUE(path->isEqual(*pathOf("/a/b")));
  EXPECT_TRUE(path->isEqual(*child("b", pathOf("/a"))));
  EXPECT_FALSE(path->isEqual(*pathOf("/a/b/")));
  EXPECT_TRUE(path->isEqual(Value("/a/b")));
  EXPECT_FALSE(path->isEqual(Value("/a")));
  EXPECT_FALSE(path->isEqual(Value(7)));
  EXPECT_FALSE(path->isEqual(URL("/a/b")));
  EXPECT_EQ(path->hash(), pathOf("/a/b")->hash());
  EXPECT_EQ(path->hash(), child("b", pathOf("/a"))->hash());
}

TEST(PXPath, OrdersByBytesAndBeforeEverythingElse) {
  EXPECT_TRUE(pathOf("/a")->compare(*pathOf("/b")) < 0);
  EXPECT_TRUE(pathOf("/b")->compare(*pathOf("/B")) > 0);
  EXPECT_TRUE(pathOf("/\xfe")->compare(*pathOf("/\xff")) < 0);
  EXPECT_TRUE(pathOf("/a")->compare(*child("a", pathOf("/"))) == 0);
  EXPECT_TRUE(pathOf("/z")->compare(URL("file:///a")) < 0);
}

TEST(PXPath, DescribesItselfWithItsPath) {
  EXPECT_TRUE(
      std::regex_match(pathOf("/a")->description(), std::regex("<PXPath: 0x[0-9a-f]+>\\(/a\\)")));
}

TEST(PXPath, MakesPathsFromTheStringsAndURLsOfACollection) {
  auto paths =
      PXPath::arrayFromPathsOrURLs({Value("/a"), Value(7), Value(make<URL>("file:///b%20c")),
                                    Value(), Value(make<URL>("mailto:a")), Value("d")});
  ASSERT_EQ(paths.size(), 3u);
  EXPECT_EQ(paths[0]->path(), "/a");
  EXPECT_EQ(paths[1]->path(), "/b c");
  EXPECT_EQ(paths[2]->path(), "d");
}

TEST(PXPath, InventsTemporaryNamesThatDoNotExist) {
  auto path = PXPath::tempPathWithPrefix("hoist", "ext");
  EXPECT_TRUE(std::regex_match(path->name(), std::regex("hoist-[0-9a-f]{8}\\.ext")));
  EXPECT_FALSE(path->exists());
  EXPECT_TRUE(path->parent()->isEqual(*PXPath::tempPath()));
  EXPECT_TRUE(PXPath::tempPathWithPrefix("p", "")->name().ends_with("."));
  EXPECT_EQ(PXPath::tempPath(), PXPath::tempPath());
}

TEST(PXPath, ExistsWhenAnItemIsThereAndADanglingLinkIsNone) {
  TemporaryFolder folder;
  auto file = pathOf(folder.write("file", ""));
  ASSERT_EQ(::symlink("nowhere", (folder / "link").c_str()), 0);
  EXPECT_TRUE(file->exists());
  EXPECT_FALSE(pathOf(folder / "link")->exists());
  EXPECT_FALSE(file->pathOfChild("below")->exists());
}

TEST(PXPath, ResolvesLinksAndAnswersItselfWhenThereAreNone) {
  TemporaryFolder folder;
  auto file = pathOf(folder.write("file", ""));
  ASSERT_EQ(::symlink("file", (folder / "link").c_str()), 0);
  EXPECT_EQ(file->real(), file);
  EXPECT_EQ(file->hardenedReal(), file);
  EXPECT_EQ(pathOf(folder / "link")->real()->cPath(), Text(file->cPath()));
  EXPECT_EQ(PXPath::realPath(folder / "link")->cPath(), Text(file->cPath()));
  auto missing = pathOf(folder / "missing");
  EXPECT_EQ(missing->real(), missing);
}

TEST(PXPath, ShowsTheNameAndLogsForDebuggingWhenThereIsNoItem) {
  LogRecorder log;
  TemporaryFolder folder;
  EXPECT_EQ(pathOf(folder.write("file", ""))->displayName(), "file");
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(pathOf(folder / "missing")->displayName(), "missing");
  ASSERT_EQ(log.texts(classification::Debug).size(), 1u);
  EXPECT_TRUE(log.texts()[0].starts_with(
      "-[PXPath displayName] could not obtain display name for " + (folder / "missing") + " ("));
}

TEST(PXPath, KnowsTheLimitsOfItsFileSystem) {
  EXPECT_GE(pathOf("/")->fileSizeBits(), 32);
  EXPECT_EQ(pathOf("/no such item")->fileSizeBits(), 0);
  EXPECT_EQ(pathOf("/no such item")->minTransferSize(), 0);
  EXPECT_EQ(pathOf("/no such item")->maxTransferSize(), 0);
}

TEST(PXPath, AnswersItsRegisteredDirectoryAsLongAsThatLives) {
  TemporaryFolder folder;
  auto path = pathOf(folder.path());
  auto directory = path->directory();
  ASSERT_TRUE(directory);
  EXPECT_EQ(path->directoryInfo(), directory);
  EXPECT_EQ(path->fileInfo(), directory);
  directory = nullptr;
  EXPECT_FALSE(path->directoryInfo());
  EXPECT_TRUE(path->directory());
  EXPECT_FALSE(pathOf(folder.write("file", ""))->directory());
}

TEST(PXPath, MakesItsURLAnewAfterAFlush) {
  auto path = PXPath::initWithURL("file://localhost/a%20b");
  EXPECT_EQ(path->url(), "file://localhost/a%20b");
  EXPECT_EQ(path->copy()->url(), "file://localhost/a%20b");
  path->flushInfo();
  EXPECT_EQ(path->url(), "file:///a%20b");
  EXPECT_EQ(path->path(), "/a b");
}

TEST(PXPath, OfARelativeTextHasTheURLOfTheItemInTheWorkingFolder) {
  auto path = PXPath::initWithURL(pathOf("a/b")->url());
  EXPECT_EQ(path->parent()->parent()->cPath(), std::filesystem::current_path().string());
  EXPECT_EQ(PXPath::initWithURL(pathOf("")->url())->cPath(), Text(""));
}

TEST(PXPath, AnswersTheSameFromManyThreads) {
  auto path = child("\xff name", pathOf("/parent"));
  std::vector<std::jthread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      EXPECT_EQ(path->cPath(), Text("/parent/\xff name"));
      EXPECT_EQ(path->url(), "file:///parent/%FF%20name");
      path->flushInfo();
      EXPECT_EQ(path->name(), "\xef\xbf\xbd name");
    });
  }
}

TEST(PXSubPath, BuildsItsPathFromItsParents) {
  auto path = child("c", child("b", pathOf("/a/")));
  EXPECT_EQ(path->cName(), Text("c"));
  EXPECT_EQ(path->cPath(), Text("/a/b/c"));
  EXPECT_EQ(path->cPath(), path->cPath());
  EXPECT_EQ(path->parent()->cPath(), Text("/a/b"));
  EXPECT_EQ(path->parent(), path->parentPath());
}

TEST(PXSubPath, CopiesToASubPathThatHasLostItsParent) {
  auto path = child("b", pathOf("/a"));
  auto copy = as<PXSubPath>(path->copy());
  ASSERT_TRUE(copy);
  EXPECT_EQ(copy->cPath(), Text("/a/b"));
  EXPECT_EQ(copy->cName(), Text("b"));
  EXPECT_FALSE(copy->parent());
  EXPECT_TRUE(copy->isEqual(*path));
  EXPECT_TRUE(as<PXPath>(pathOf("/x")->copy())->isEqual(*pathOf("/x")));
}

TEST(PXSubPath, StandsAHundredThousandLevelsOnASmallStack) {
  constexpr std::size_t kLevels = 100'000;
  std::promise<std::size_t> length;
  startDetachedThread("deep", [&] {
    Ref<PXPath> path = pathOf("/top");
    for (std::size_t i = 0; i < kLevels; ++i) path = child("d", path);
    std::size_t found = std::string_view(path->cPath()).size();
    path = nullptr;
    length.set_value(found);
  });
  EXPECT_EQ(length.get_future().get(), 4 + 2 * kLevels);
}

TEST(PXPathCoding, KeepsTheBytesWhateverTheyAre) {
  PXPath::registerClasses();
  auto path = pathOf("/a/\xff\n");
  PlainKeyedEncoder keyed;
  path->encodeWithCoder(keyed);
  EXPECT_EQ(keyed.fields["path"].data()->size(), 6u);
  PlainKeyedDecoder keyedDecoder(keyed.fields);
  auto decoded = as<PXPath>(ClassRegistry::shared().find("PXPath")->decode(keyedDecoder));
  EXPECT_EQ(decoded->cPath(), Text("/a/\xff\n"));

  PlainSequence sequence;
  child("c", path)->encodeWithCoder(sequence);
  PlainSequenceReader reader(sequence.values);
  auto sub = as<PXSubPath>(ClassRegistry::shared().find("PXSubPath")->decode(reader));
  ASSERT_TRUE(sub);
  EXPECT_EQ(sub->cPath(), Text("/a/\xff\n/c"));
  EXPECT_EQ(sub->cName(), Text("c"));
}

TEST(PXPathCoding, RefusesAnArchiveWithoutTheBytes) {
  PXPath::registerClasses();
  PlainKeyedDecoder empty({});
  EXPECT_THROW(ClassRegistry::shared().find("PXPath")->decode(empty), DecodeError);
}

}  // namespace
}  // namespace hoist
