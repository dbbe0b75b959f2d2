// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/FilePaths.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

TEST(FileSystemRepresentation, ShowsEachByteThatIsNoUTF8AsTheReplacementCharacter) {
  EXPECT_EQ(stringFromFileSystemRepresentation("caf\xc3\xa9"), "caf\xc3\xa9");
  EXPECT_EQ(stringFromFileSystemRepresentation("a\xff\xfe"
                                               "b"),
            "a\xef\xbf\xbd\xef\xbf\xbd"
            "b");
  EXPECT_EQ(stringFromFileSystemRepresentation("\xc3"), "\xef\xbf\xbd");
  EXPECT_EQ(stringFromFileSystemRepresentation(""), "");
}

TEST(JoinPath, PutsOneSlashBetweenUnlessTheParentEndsInOne) {
  EXPECT_EQ(joinPath("/a", "b"), "/a/b");
  EXPECT_EQ(joinPath("/a/", "b"), "/a/b");
  EXPECT_EQ(joinPath("/", "b"), "/b");
  EXPECT_EQ(joinPath("", "b"), "/b");
}

TEST(BaseName, IsTheLastComponentWithoutSlashesAtTheEnd) {
  EXPECT_EQ(baseName("/a/b"), "b");
  EXPECT_EQ(baseName("/a/b//"), "b");
  EXPECT_EQ(baseName("b"), "b");
  EXPECT_EQ(baseName("/"), "/");
  EXPECT_EQ(baseName("///"), "/");
  EXPECT_EQ(baseName(""), ".");
}

TEST(DirectoryName, IsWhatIsBeforeTheLastComponent) {
  EXPECT_EQ(directoryName("/a/b"), "/a");
  EXPECT_EQ(directoryName("/a//b/"), "/a");
  EXPECT_EQ(directoryName("/a"), "/");
  EXPECT_EQ(directoryName("/"), "/");
  EXPECT_EQ(directoryName("a"), ".");
  EXPECT_EQ(directoryName(""), ".");
}

TEST(PathComponents, AreAppendedAndDeletedOneAtATime) {
  EXPECT_EQ(appendPathComponent("/a", "b"), "/a/b");
  EXPECT_EQ(appendPathComponent("/a/", "/b"), "/a/b");
  EXPECT_EQ(appendPathComponent("", "b"), "b");
  EXPECT_EQ(appendPathComponent("/a", ""), "/a");
  EXPECT_EQ(deleteLastPathComponent("/a/b"), "/a");
  EXPECT_EQ(deleteLastPathComponent("/a/b/"), "/a");
  EXPECT_EQ(deleteLastPathComponent("/a"), "/");
  EXPECT_EQ(deleteLastPathComponent("/"), "/");
  EXPECT_EQ(deleteLastPathComponent("a"), "");
}

TEST(PathExtension, IsWhatFollowsTheLastDotOfTheLastComponent) {
  EXPECT_EQ(pathExtension("/a.b/archive.tar.gz"), "gz");
  EXPECT_EQ(pathExtension("/a.b/plain"), "");
  EXPECT_EQ(pathExtension("/a/.app"), "");
  EXPECT_EQ(pathExtension("/a/ends."), "");
  EXPECT_EQ(pathExtension("/a/X.app/"), "app");
  EXPECT_EQ(appendPathExtension("a", "txt"), "a.txt");
  EXPECT_EQ(appendPathExtension("a", ""), "a");
}

TEST(StandardizePath, RemovesDotsAndRepeatedSlashesWithoutLookingAtTheDisk) {
  EXPECT_EQ(standardizePath("/a/./b//c/"), "/a/b/c");
  EXPECT_EQ(standardizePath("/a/../b"), "/b");
  EXPECT_EQ(standardizePath("/../../b"), "/b");
  EXPECT_EQ(standardizePath("/.."), "/");
  EXPECT_EQ(standardizePath("../a/../b"), "../b");
  EXPECT_EQ(standardizePath("../../b"), "../../b");
  EXPECT_EQ(standardizePath("a/.."), ".");
  EXPECT_EQ(standardizePath(""), "");
}

TEST(StandardizePath, ExpandsALeadingTilde) {
  auto home = homeDirectory(::geteuid());
  ASSERT_TRUE(home);
  EXPECT_EQ(standardizePath("~/x/../y"), *home + "/y");
  EXPECT_EQ(expandTilde("~root/y"), *homeDirectory(0) + "/y");
  EXPECT_EQ(expandTilde("~no such user/y"), "~no such user/y");
  EXPECT_EQ(expandTilde("a~/y"), "a~/y");
}

TEST(FileURL, LeadsBackToExactlyTheBytes) {
  EXPECT_EQ(fileURL("/a b/100%"), "file:///a%20b/100%25");
  for (std::string path : {"/plain", "/a b#c?d", "/\xff\n", "/caf\xc3\xa9", "/"}) {
    EXPECT_EQ(pathOfURL(fileURL(path)), path);
  }
}

TEST(PathOfURL, IsThePathOfAnyURLThatHasOne) {
  EXPECT_EQ(pathOfURL("http://host/a?b#c"), "/a");
  EXPECT_EQ(pathOfURL("http://host"), std::nullopt);
  EXPECT_EQ(pathOfURL("no url"), std::nullopt);
  EXPECT_EQ(pathOfURL("file:///a%00b"), std::nullopt);
  EXPECT_EQ(pathOfURL("file:///a%zz"), std::nullopt);
}

TEST(RealPath, FollowsLinksAndAnswersNothingForWhatIsNotThere) {
  TemporaryFolder folder;
  folder.write("file", "");
  ASSERT_EQ(::symlink("file", (folder / "link").c_str()), 0);
  EXPECT_EQ(realPath((folder / "./link").c_str()), folder / "file");
  EXPECT_EQ(realPath((folder / "missing").c_str()), std::nullopt);
}

}  // namespace
}  // namespace hoist
