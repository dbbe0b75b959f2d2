// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "filesystem/PXFileInfo.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXNonexistentFile.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXRegularFile.h"
#include "filesystem/PXSubPath.h"
#include "filesystem/PXSymbolicLink.h"
#include "platform/FileDescriptor.h"
#include "support/AsUser.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using namespace attrlist;
using Text = std::string;

// Counts the calls and remembers what was written; the next calls can be made to fail.
class WatchedCalls : public AttributeCalls {
 public:
  int getattrlist(const char* path, const AttributeSet& request, ItemAttributes& reply,
                  std::uint32_t options) override {
    ++reads;
    if (errorOfReads != 0) return fail(errorOfReads);
    return AttributeCalls::getattrlist(path, request, reply, options);
  }
  int setattrlist(const char* path, const ItemIdentity& expected, std::uint32_t set,
                  const CommonValues& values, ItemAttributes& after) override {
    written.push_back(set);
    if (errorOfWrites != 0) return fail(errorOfWrites);
    return AttributeCalls::setattrlist(path, expected, set, values, after);
  }

  int reads = 0;
  std::vector<std::uint32_t> written;
  int errorOfReads = 0;
  int errorOfWrites = 0;

 private:
  static int fail(int error) {
    errno = error;
    return -1;
  }
};

class FileInfo : public testing::Test {
 protected:
  Ref<PXFileInfo> infoOf(const std::string& name) {
    return PXFileInfo::infoForPath(folder_ / name);
  }
  void link(const char* target, const std::string& name) {
    ASSERT_EQ(::symlink(target, (folder_ / name).c_str()), 0);
  }
  mode_t modeOf(const std::string& name) {
    struct stat status;
    EXPECT_EQ(::lstat((folder_ / name).c_str(), &status), 0);
    return status.st_mode & 07777;
  }

  TemporaryFolder folder_;
  WatchedCalls calls_;
  AttributeCallsOverride override_{calls_};
};

TEST_F(FileInfo, IsOfTheClassForTheItemsType) {
  folder_.write("sub/file", "");
  link("nowhere", "dangling");
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  EXPECT_EQ(infoOf("sub")->className(), "PXDirectory");
  EXPECT_EQ(infoOf("sub/file")->className(), "PXRegularFile");
  EXPECT_EQ(infoOf("dangling")->className(), "PXSymbolicLink");
  EXPECT_EQ(infoOf("pipe")->className(), "PXFileInfo");
  EXPECT_EQ(infoOf("pipe")->type(), VnodeType::NamedPipe);
  EXPECT_EQ(infoOf("missing")->className(), "PXNonexistentFile");
  EXPECT_EQ(infoOf("sub/file/below")->className(), "PXNonexistentFile");
  EXPECT_EQ(PXFileInfo::infoForURL("file:///dev/null")->type(), VnodeType::CharacterDevice);
  EXPECT_EQ(PXFileInfo::infoForCPath("")->className(), "PXNonexistentFile");
}

TEST_F(FileInfo, AnswersTypeQuestionsByTheType) {
  folder_.write("sub/file", "");
  link("sub", "link");
  auto directory = infoOf("sub"), file = infoOf("sub/file"), linked = infoOf("link");
  auto missing = infoOf("missing");
  EXPECT_TRUE(directory->isDirectory() && directory->isPersistentObject() && directory->exists());
  EXPECT_EQ(directory->asDirectory(), directory);
  EXPECT_FALSE(directory->asRegularFile() || directory->asSymbolicLink());
  EXPECT_TRUE(file->isRegularFile() && file->isPersistentObject());
  EXPECT_EQ(file->asRegularFile(), file);
  EXPECT_TRUE(linked->isSymbolicLink() && linked->isPersistentObject() && !linked->isDirectory());
  EXPECT_EQ(linked->asSymbolicLink(), linked);
  EXPECT_FALSE(missing->exists() || missing->isPersistentObject() || missing->isRegularFile());
  EXPECT_FALSE(PXFileInfo::infoForPath("/dev/null")->isPersistentObject());
}

TEST_F(FileInfo, RaisesWhenTheItemCannotBeProbed) {
  calls_.errorOfReads = EACCES;
  auto exception = raisedBy([&] { infoOf("x"); });
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "failed to probe object vtype");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EACCES));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "x");
}

TEST_F(FileInfo, IsNothingForATypeThatNoFileHas) {
  auto path = PXPath::initWithCPath("/x");
  EXPECT_FALSE(PXFileInfo::initWithType(VnodeType::None, path));
  EXPECT_FALSE(PXFileInfo::initWithType(VnodeType::Bad, path));
}

TEST_F(FileInfo, StaysTheSameObjectWhileTheTypeDoes) {
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setAccess(0600);
  EXPECT_EQ(info->reevaluateType(), info);
  EXPECT_EQ(info->modifiedAttributes(), ATTR_CMN_ACCESSMASK);

  ASSERT_EQ(::unlink((folder_ / "x").c_str()), 0);
  auto missing = info->reevaluateType();
  EXPECT_FALSE(missing->exists());
  EXPECT_EQ(missing->reevaluateType(), missing);
  ASSERT_EQ(::mkdir((folder_ / "x").c_str(), 0700), 0);
  EXPECT_TRUE(missing->reevaluateType()->isDirectory());
}

TEST_F(FileInfo, IsHardenedToTheItemWithoutLinks) {
  folder_.write("file", "");
  link("file", "link");
  auto info = infoOf("file");
  EXPECT_EQ(info->hardened(), info);
  EXPECT_EQ(infoOf("link")->hardened()->path(), folder_ / "file");
}

TEST_F(FileInfo, ReadsItsAttributesOnceUntilFlushed) {
  folder_.write("x", "abc");
  auto info = infoOf("x");
  calls_.reads = 0;
  EXPECT_EQ(info->ownerID(), ::geteuid());
  EXPECT_EQ(info->asRegularFile()->logicalSize(), 3u);
  EXPECT_EQ(calls_.reads, 1);
  folder_.write("x", "abcdef");
  EXPECT_EQ(info->asRegularFile()->logicalSize(), 3u);
  info->flushAttributes();
  EXPECT_EQ(info->asRegularFile()->logicalSize(), 6u);
  EXPECT_EQ(calls_.reads, 2);
}

TEST_F(FileInfo, AnswersWhatStatSays) {
  auto path = folder_.write("x", "abc");
  ASSERT_EQ(::chmod(path.c_str(), 04751), 0);
  struct stat status;
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  auto info = infoOf("x");
  EXPECT_EQ(info->access(), 04751);
  EXPECT_EQ(info->groupID(), status.st_gid);
  EXPECT_EQ(info->localIdentifier(), status.st_ino);
  EXPECT_EQ(info->deviceID(), static_cast<std::uint32_t>(status.st_dev));
  EXPECT_EQ(info->modifiedTimeSpec().tv_nsec, status.st_mtim.tv_nsec);
  EXPECT_EQ(info->modifiedDate(), Date(status.st_mtim.tv_sec, status.st_mtim.tv_nsec));
  EXPECT_EQ(info->attributeChangedDate(), Date(status.st_ctim.tv_sec, status.st_ctim.tv_nsec));
  EXPECT_GT(info->createdDate()->seconds(), 1'000'000'000);
  EXPECT_EQ(info->script(), 0u);
}

TEST_F(FileInfo, NeverShowsTypeBitsInTheAccess) {
  EXPECT_EQ(PXFileInfo::infoForPath("/dev/null")->access() & ~07777, 0);
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setAccess(0177777);
  EXPECT_EQ(info->access(), 07777);
}

TEST_F(FileInfo, AsksForExactlyTheStatedAttributes) {
  folder_.write("x", "");
  link("x", "link");
  AttributeSet file, folder, other;
  EXPECT_EQ(infoOf("x")->prepareAttrRequest(file), 116u);
  EXPECT_EQ(infoOf("")->prepareAttrRequest(folder), 100u);
  EXPECT_EQ(infoOf("link")->prepareAttrRequest(other), 88u);
  EXPECT_EQ(file.common, 0x2278F0Au);
  EXPECT_EQ(file.file, 0x207u);
  EXPECT_EQ(folder.directory, 7u);
  EXPECT_EQ(other.file | other.directory, 0u);
  EXPECT_EQ(infoOf("x")->commonAttrSize(), 128u);
  EXPECT_EQ(infoOf("")->commonAttrSize(), 112u);
  EXPECT_EQ(infoOf("link")->commonAttrSize(), 96u);
}

TEST_F(FileInfo, KnowsTheEffectiveAccessRatherThanTheBits) {
  auto path = folder_.write("x", "");
  ASSERT_EQ(::chmod(path.c_str(), 0), 0);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  if (::geteuid() == 0) {
    auto info = infoOf("x");
    EXPECT_EQ(info->effectiveAccess(), R_OK | W_OK);
    ASSERT_EQ(::chmod(path.c_str(), 0100), 0);
    EXPECT_EQ(info->effectiveAccess(), R_OK | W_OK);
    info->flushAttributes();
    EXPECT_EQ(info->effectiveAccess(), R_OK | W_OK | X_OK);
    AsUser user(65534);
    EXPECT_EQ(infoOf("x")->effectiveAccess(), 0);
  } else {
    EXPECT_EQ(infoOf("x")->effectiveAccess(), 0);
  }
  EXPECT_EQ(infoOf("missing")->effectiveAccess(), 0);
}

TEST_F(FileInfo, RaisesWhenTheAttributesCannotBeRead) {
  folder_.write("x", "");
  auto info = infoOf("x");
  ASSERT_EQ(::unlink((folder_ / "x").c_str()), 0);
  auto exception = raisedBy([&] { info->ownerID(); });
  EXPECT_EQ(exception.reason(), "failed to get attributes");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ENOENT));
  EXPECT_EQ(detailOf(exception, "Name"), "x");
  EXPECT_EQ(detailOf(exception, "Type"), "regular file");
}

TEST_F(FileInfo, WritesOnlyWhatWasChangedAndOnlyOnce) {
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setAccess(0640);
  info->setModifiedAttributes();
  info->setModifiedAttributes();
  EXPECT_EQ(calls_.written, std::vector<std::uint32_t>{0x20000});
  EXPECT_EQ(modeOf("x"), 0640u);
}

TEST_F(FileInfo, MarksEachSettersAttribute) {
  folder_.write("x", "");
  auto bitOf = [&](auto&& set) {
    auto info = infoOf("x");
    set(*info);
    return info->modifiedAttributes();
  };
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setScript(0); }), 0x100u);
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setCreatedTimeSpec({}); }), 0x200u);
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setModifiedTimeSpec({}); }), 0x400u);
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setAttributeChangedTimeSpec({}); }), 0x800u);
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setOwnerID(0); }), 0x8000u);
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setGroupID(0); }), 0x10000u);
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setAccess(0); }), 0x20000u);
  EXPECT_EQ(bitOf([](PXFileInfo& info) { info.setFileFlags(0); }), 0x40000u);
}

TEST_F(FileInfo, WritesNothingForASetOfWhatCannotBeWrittenOrWithoutARecord) {
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setCommonAttributes(ATTR_CMN_ACCESSMASK);
  info->ownerID();
  info->setCommonAttributes(ATTR_CMN_FILEID | ATTR_CMN_USERACCESS | ATTR_CMN_NAME);
  EXPECT_TRUE(calls_.written.empty());
  info->setCommonAttributes(ATTR_CMN_FILEID | ATTR_CMN_ACCESSMASK);
  EXPECT_EQ(calls_.written, std::vector<std::uint32_t>{ATTR_CMN_ACCESSMASK});
}

TEST_F(FileInfo, WritesEverythingBackTwiceThoughTheChangeTimeMoves) {
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setModifiedTimeSpec({100, 200});
  info->setCommonAttributes(kWritableCommonAttributes);
  info->setModifiedTimeSpec({300, 400});
  info->setCommonAttributes(kWritableCommonAttributes);
  EXPECT_EQ(infoOf("x")->modifiedTimeSpec().tv_nsec, 400);
}

TEST_F(FileInfo, WritesEverythingBackAfterAWriteBackThatWasUndone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  auto path = folder_.write("x", "");
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
  ASSERT_EQ(::chown(path.c_str(), 1234, 1234), 0);
  AsUser user(1234);
  auto info = infoOf("x");
  info->setAccess(0600);
  // Which its owner may not set; undoing what was written moves the change time.
  info->setFileFlags(SF_IMMUTABLE);
  raisedBy([&] { info->setCommonAttributes(kWritableCommonAttributes); });
  info->setFileFlags(0);
  info->setCommonAttributes(kWritableCommonAttributes);
  EXPECT_EQ(modeOf("x"), 0600u);
}

TEST_F(FileInfo, KeepsTheMarksWhenTheWriteBackFails) {
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setAccess(0600);
  calls_.errorOfWrites = EROFS;
  auto exception = raisedBy([&] { info->setModifiedAttributes(); });
  EXPECT_EQ(exception.reason(), "unable to set attributes");
  EXPECT_EQ(detailOf(exception, "attributeSet"), "0x00020000");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EROFS));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "x");
  EXPECT_EQ(info->modifiedAttributes(), ATTR_CMN_ACCESSMASK);
  calls_.errorOfWrites = 0;
  info->setModifiedAttributes();
  EXPECT_EQ(modeOf("x"), 0600u);
}

TEST_F(FileInfo, ForgetsEditsWhenFlushed) {
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setAccess(0);
  info->flushAttributes();
  EXPECT_EQ(info->modifiedAttributes(), 0u);
  EXPECT_NE(info->access(), 0);
}

TEST_F(FileInfo, HasAnAccessListOnlyWhereThereIsMoreThanBits) {
  auto path = folder_.write("x", "");
  link("x", "link");
  auto info = infoOf("x");
  EXPECT_FALSE(info->acl());
  auto command = "setfacl -m u:65534:r " + path;
  if (::system((command + " 2>/dev/null").c_str()) != 0) GTEST_SKIP() << "no access lists here";
  EXPECT_FALSE(info->acl());
  info->flushAttributes();
  auto list = info->acl();
  EXPECT_TRUE(list);
  EXPECT_FALSE(infoOf("link")->acl());
  // The list stays with whoever holds it.
  info->flushAttributes();
  EXPECT_GT(::acl_size(list.get()), 0);
}

TEST_F(FileInfo, ReadsTheAttributesOfAnOpenFileWhateverItsPathLeadsTo) {
  auto path = folder_.write("x", "old");
  ASSERT_EQ(::chmod(path.c_str(), 04755), 0);
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(::unlink(path.c_str()), 0);
  ASSERT_EQ(::mkdir(path.c_str(), 0700), 0);
  auto info = PXFileInfo::infoForOpenFile(file.get(), PXPath::initWithCPath(path));
  EXPECT_TRUE(info->isRegularFile());
  EXPECT_EQ(info->access(), 04755);
  EXPECT_EQ(info->asRegularFile()->logicalSize(), 3u);
}

TEST_F(FileInfo, ChangesNothingAfterItsItemWasReplaced) {
  folder_.write("x", "");
  auto info = infoOf("x");
  info->setAccess(0777);
  folder_.write("new", "");
  ASSERT_EQ(::rename((folder_ / "new").c_str(), (folder_ / "x").c_str()), 0);
  auto exception = raisedBy([&] { info->setModifiedAttributes(); });
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ESTALE));
  EXPECT_NE(modeOf("x"), 0777u);
}

TEST_F(FileInfo, ChangesNothingAfterItsItemWasReplacedByOneThatGotItsNumber) {
  auto path = folder_.write("x", "");
  auto info = infoOf("x");
  info->setAccess(0777);
  auto isReplaced = [&] {
    ::unlink(path.c_str());
    folder_.write("x", "");
    auto now = infoOf("x");
    auto before = info->createdTimeSpec(), after = now->createdTimeSpec();
    return now->localIdentifier() == info->localIdentifier() &&
           (before.tv_sec != after.tv_sec || before.tv_nsec != after.tv_nsec);
  };
  int tries = 0;
  while (tries < 5000 && !isReplaced()) ++tries;
  if (tries == 5000) GTEST_SKIP() << "numbers are not used again here";
  auto exception = raisedBy([&] { info->setModifiedAttributes(); });
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ESTALE));
  EXPECT_NE(modeOf("x"), 0777u);
}

TEST_F(FileInfo, OfAMissingItemAnswersNothingAndIgnoresEdits) {
  auto missing = infoOf("missing");
  EXPECT_FALSE(missing->attrs());
  EXPECT_EQ(missing->ownerID(), 0u);
  EXPECT_EQ(missing->access(), 0);
  EXPECT_EQ(missing->linkCount(), 0u);
  EXPECT_EQ(missing->deviceID(), 0u);
  EXPECT_EQ(missing->createdDate(), std::nullopt);
  EXPECT_EQ(missing->modifiedDate(), std::nullopt);
  EXPECT_EQ(missing->attributeChangedDate(), std::nullopt);
  EXPECT_EQ(missing->createdTimeSpec().tv_sec, 0);
  EXPECT_FALSE(missing->acl());
  missing->setAccess(0777);
  missing->setModifiedAttributes();
  missing->setCommonAttributes(ATTR_CMN_ACCESSMASK);
  missing->flushAttributes();
  EXPECT_TRUE(calls_.written.empty());
}

TEST_F(FileInfo, LogsForDebuggingWhatCannotBeKnownOfTheItem) {
  folder_.write(".x", "");
  LogRecorder log;
  EXPECT_TRUE(infoOf(".x")->isHidden());
  EXPECT_FALSE(infoOf(".x")->isHiddenExtension());
  EXPECT_FALSE(infoOf(".x")->isExcludedFromBackup());
  EXPECT_TRUE(infoOf(".x")->volumeIdentifier());
  EXPECT_TRUE(log.lines().empty());

  auto missing = infoOf(".missing");
  EXPECT_FALSE(missing->isHidden());
  EXPECT_FALSE(missing->isHiddenExtension());
  EXPECT_FALSE(missing->isExcludedFromBackup());
  EXPECT_FALSE(missing->volumeIdentifier());
  std::vector<std::string> reasons;
  for (auto& line : log.lines()) {
    if (line.text.starts_with("problem obtaining")) {
      EXPECT_EQ(line.classification, classification::Debug);
      reasons.push_back(line.text);
    }
  }
  EXPECT_EQ(reasons, (std::vector<std::string>{"problem obtaining isHidden attribute",
                                               "problem obtaining isHiddenExtension attribute",
                                               "problem obtaining isExcludedFromBackup attribute",
                                               "problem obtaining volumeIdentifier attribute"}));
}

TEST_F(FileInfo, EqualsAnotherForTheSamePathButHashesByIdentity) {
  folder_.write("x", "");
  auto a = infoOf("x"), b = infoOf("x");
  EXPECT_TRUE(a->isEqual(*b));
  EXPECT_NE(a->hash(), b->hash());
  EXPECT_FALSE(a->isEqual(*infoOf("")));
  EXPECT_FALSE(a->isEqual(*a->pathObject()));
}

TEST_F(FileInfo, DescribesItselfForLogs) {
  folder_.write("x", "");
  link("x", "link");
  EXPECT_EQ(infoOf("x")->logFullDescription(), "file " + (folder_ / "x"));
  EXPECT_EQ(infoOf("x")->logDescription(), "file x");
  EXPECT_EQ(infoOf("link")->logDescription(), "link link");
  EXPECT_EQ(infoOf("missing")->logDescription(), "item missing");
  EXPECT_EQ(infoOf("x")->description(), folder_ / "x");
}

TEST_F(FileInfo, FindsItsParentByTheListingOrByAProbe) {
  folder_.write("sub/x", "");
  auto sub = infoOf("sub")->asDirectory();
  auto listed = PXFileInfo::initWithDirEntry("x", DT_REG, sub->pathObject());
  EXPECT_EQ(listed->livingParent(), sub);
  EXPECT_EQ(listed->parentDirectoryInfo(), sub);
  EXPECT_EQ(listed->abstractParent(), sub);

  auto probed = infoOf("sub/x");
  EXPECT_FALSE(probed->livingParent());
  EXPECT_EQ(probed->parentDirectoryInfo()->path(), folder_ / "sub");
  sub = nullptr;
  EXPECT_FALSE(listed->livingParent());
  EXPECT_EQ(listed->parentDirectoryInfo()->path(), folder_ / "sub");

  listed->setPathObject(listed->pathObject()->copy());
  EXPECT_FALSE(listed->parentDirectoryInfo());
  EXPECT_EQ(listed->displayPath(), "?/x");
}

TEST_F(FileInfo, HasADisplayPathThoughTheFoldersAboveTellNothing) {
  folder_.write("sub/x", "");
  auto sub = infoOf("sub")->asDirectory();
  auto listed = PXFileInfo::initWithDirEntry("x", DT_REG, sub->pathObject());
  auto probed = infoOf("sub/x");
  calls_.errorOfReads = EACCES;
  EXPECT_EQ(listed->displayPath(), "?/sub/x");
  EXPECT_EQ(probed->displayPath(), "?/x");
}

TEST_F(FileInfo, AnswersItsFullPathWhenItsPathOnTheVolumeIsNotKnown) {
  folder_.write("x", "");
  auto info = infoOf("x");
  ASSERT_EQ(::unlink((folder_ / "x").c_str()), 0);
  LogRecorder log;
  EXPECT_EQ(info->volumeRelativePath(), folder_ / "x");
  auto texts = log.texts(classification::Debug);
  ASSERT_GT(texts.size(), 1u);
  EXPECT_EQ(texts[0], "-[PXFileInfo volumeRelativePath] can't determine relative path for " +
                          (folder_ / "x"));
  EXPECT_NE(texts[1].find("volumeRelativePath"), Text::npos) << texts[1];
}

TEST_F(FileInfo, MapsTheTypeBytesOfDirectoryEntries) {
  auto parent = PXPath::initWithCPath("/parent");
  auto typeOf = [&](unsigned char byte) {
    auto info = PXFileInfo::initWithDirEntry("x", byte, parent);
    return info ? info->type() : VnodeType::None;
  };
  EXPECT_EQ(typeOf(1), VnodeType::NamedPipe);
  EXPECT_EQ(typeOf(2), VnodeType::CharacterDevice);
  EXPECT_EQ(typeOf(4), VnodeType::Directory);
  EXPECT_EQ(typeOf(6), VnodeType::BlockDevice);
  EXPECT_EQ(typeOf(8), VnodeType::Regular);
  EXPECT_EQ(typeOf(10), VnodeType::SymbolicLink);
  EXPECT_EQ(typeOf(12), VnodeType::Socket);
  for (unsigned char other : {0, 3, 14, 255}) EXPECT_EQ(typeOf(other), VnodeType::None);
}

TEST_F(FileInfo, ComparesNamesAsAFileBrowserDoes) {
  auto parent = PXPath::initWithCPath("/parent");
  auto named = [&](const char* name) { return PXFileInfo::initWithDirEntry(name, 8, parent); };
  EXPECT_TRUE(named("file2")->compareNames(*named("File10")) < 0);
  EXPECT_TRUE(named("same")->compareNames(*named("same")) == 0);
}

TEST_F(FileInfo, GivesAllThreadsTheSameAttributes) {
  folder_.write("x", "abc");
  auto info = infoOf("x");
  calls_.reads = 0;
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] {
        EXPECT_EQ(info->asRegularFile()->logicalSize(), 3u);
        info->effectiveAccess();
        info->acl();
      });
    }
  }
  EXPECT_EQ(calls_.reads, 1);
}

TEST_F(FileInfo, ServesReadersWhileAnotherThreadFlushes) {
  folder_.write("x", "abc");
  auto info = infoOf("x");
  std::jthread flusher([&](std::stop_token stop) {
    while (!stop.stop_requested()) info->flushAttributes();
  });
  for (int i = 0; i < 1000; ++i) ASSERT_EQ(info->asRegularFile()->dataLength(), 3u);
}

}  // namespace
}  // namespace hoist
