// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Regular files, links and missing items.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXNonexistentFile.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXRegularFile.h"
#include "filesystem/PXSubPath.h"
#include "filesystem/PXSymbolicLink.h"
#include "platform/FileDescriptor.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

Ref<PXPath> at(const std::string& path) {
  return PXPath::initWithCPath(path);
}

TEST(PXRegularFile, IsAnsweredForAFileAndNeverRaisedAboutForAMissingOne) {
  TemporaryFolder folder;
  EXPECT_TRUE(PXRegularFile::regularInfoForPathObject(at(folder.write("x", ""))));
  EXPECT_FALSE(PXRegularFile::regularInfoForPathObject(at(folder / "missing")));
}

TEST(PXRegularFile, RaisesForAnythingElseUnlessNoReasonIsGiven) {
  TemporaryFolder folder;
  auto exception = raisedBy([&] { PXRegularFile::regularInfoForPathObject(at(folder.path())); });
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "expected regular file");
  EXPECT_EQ(detailOf(exception, "Path"), folder.path());
  auto other = raisedBy(
      [&] { PXRegularFile::regularInfoForPathObject(at("/dev/null"), "no device, please"); });
  EXPECT_EQ(other.reason(), "no device, please");
  EXPECT_FALSE(PXRegularFile::regularInfoForPathObject(at(folder.path()), std::nullopt));
}

TEST(PXRegularFile, OfHolesTakesLessSpaceThanItIsLong) {
  TemporaryFolder folder;
  FileDescriptor file(::open((folder / "x").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  ASSERT_EQ(::ftruncate(file.get(), 1 << 20), 0);
  auto info = PXRegularFile::regularInfoForPathObject(at(folder / "x"));
  EXPECT_EQ(info->logicalSize(), 1u << 20);
  EXPECT_EQ(info->dataLength(), 1u << 20);
  EXPECT_LT(info->physicalSize(), info->logicalSize());
}

TEST(PXRegularFile, IsAHardLinkWhenItHasMoreNamesThanOne) {
  TemporaryFolder folder;
  folder.write("x", "");
  auto info = PXRegularFile::regularInfoForPathObject(at(folder / "x"));
  EXPECT_FALSE(info->isHardLink());
  ASSERT_EQ(::link((folder / "x").c_str(), (folder / "y").c_str()), 0);
  info->flushAttributes();
  EXPECT_EQ(info->linkCount(), 2u);
  EXPECT_TRUE(info->isHardLink());
  EXPECT_FALSE(PXFileInfo::infoForPath("/")->isHardLink());
}

class SymbolicLink : public testing::Test {
 protected:
  Ref<PXSymbolicLink> linkTo(const std::string& target) {
    EXPECT_EQ(::symlink(target.c_str(), (folder_ / "link").c_str()), 0);
    return PXFileInfo::infoForPath(folder_ / "link")->asSymbolicLink();
  }
  std::string onDisk() {
    char target[100];
    auto length = ::readlink((folder_ / "link").c_str(), target, sizeof target);
    return length < 0 ? "" : std::string(target, static_cast<std::size_t>(length));
  }
  TemporaryFolder folder_;
};

TEST_F(SymbolicLink, TellsItsTargetThoughItDangles) {
  auto link = linkTo("no/where");
  EXPECT_STREQ(link->contents(), "no/where");
  EXPECT_EQ(link->dataLength(), 8u);
  EXPECT_EQ(link->totalLength(), 8u);
  EXPECT_EQ(link->rsrcLength(), 0u);
}

TEST_F(SymbolicLink, AnswersItsNewTargetWithoutReadingTheDisk) {
  auto link = linkTo("old");
  link->setContents("new");
  EXPECT_EQ(onDisk(), "new");
  ASSERT_EQ(::unlink((folder_ / "link").c_str()), 0);
  EXPECT_STREQ(link->contents(), "new");
}

TEST_F(SymbolicLink, CanBeGivenItsOwnTargetAnew) {
  auto link = linkTo("a/target/of/some/length");
  link->setContents(link->contents());
  EXPECT_EQ(onDisk(), "a/target/of/some/length");
  EXPECT_STREQ(link->contents(), "a/target/of/some/length");
}

TEST_F(SymbolicLink, KeepsItsEditsForTheLinkThatIsMadeAnew) {
  auto link = linkTo("old");
  link->setModifiedTimeSpec({1000, 0});
  link->setContents("new");
  link->setModifiedAttributes();
  EXPECT_EQ(PXFileInfo::infoForPath(folder_ / "link")->modifiedTimeSpec().tv_sec, 1000);
}

TEST_F(SymbolicLink, CutsALongTargetAndSaysSo) {
  LogRecorder log;
  auto link = linkTo(std::string(2000, 't'));
  EXPECT_EQ(link->dataLength(), 1025u);
  EXPECT_EQ(link->dataLength(), 1025u);
  EXPECT_EQ(log.texts(classification::Caution).size(), 1u);
  ASSERT_EQ(::unlink((folder_ / "link").c_str()), 0);
  EXPECT_EQ(linkTo(std::string(1025, 't'))->dataLength(), 1025u);
  EXPECT_EQ(log.texts(classification::Caution).size(), 1u);
}

TEST_F(SymbolicLink, RaisesWhenThereIsNothingToRead) {
  auto link = linkTo("x");
  ASSERT_EQ(::unlink((folder_ / "link").c_str()), 0);
  auto exception = raisedBy([&] { link->contents(); });
  EXPECT_EQ(exception.reason(), "cannot read content of symbolic link");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ENOENT));
  EXPECT_EQ(detailOf(exception, "Type"), "symblic link");
}

TEST_F(SymbolicLink, RaisesWhenItCannotBeReplacedOrMade) {
  auto link = linkTo("x");
  auto exception = raisedBy([&] { link->setContents(""); });
  EXPECT_EQ(exception.reason(), "cannot write content of symbolic link");
  EXPECT_EQ(detailOf(exception, "Name"), "link");
  auto gone = raisedBy([&] { link->setContents("y"); });
  EXPECT_EQ(gone.reason(), "cannot delete item");
  EXPECT_EQ(detailOf(gone, "POSIXErr"), std::to_string(ENOENT));
}

TEST_F(SymbolicLink, RemovesNothingButALink) {
  auto link = linkTo("x");
  ASSERT_EQ(::unlink((folder_ / "link").c_str()), 0);
  folder_.write("link/precious", "");
  EXPECT_EQ(raisedBy([&] { link->setContents("y"); }).reason(), "cannot delete item");
  EXPECT_EQ(::access((folder_ / "link/precious").c_str(), F_OK), 0);
}

TEST(PXNonexistentFile, KnowsTheDeviceOnlyWhereItsLocationWasAListedFolder) {
  TemporaryFolder folder;
  folder.write("sub/x", "");
  auto parent = PXDirectory::directoryWithPath(folder.path());
  auto path = PXSubPath::initAssumingCNameParentPath("sub", parent->pathObject());
  auto sub = PXFileInfo::initWithType(VnodeType::Directory, path);
  EXPECT_EQ(PXNonexistentFile::initWithPathObject(path)->deviceID(), parent->deviceID());
  EXPECT_EQ(PXNonexistentFile::initWithPathObject(at(folder / "sub"))->deviceID(), 0u);
}

}  // namespace
}  // namespace hoist
