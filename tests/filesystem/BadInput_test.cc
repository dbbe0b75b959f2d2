// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Paths that lead nowhere, to the wrong thing, or are no paths at all, given to every operation: an
// exception of the stated kind or a stated answer, never anything else, and nothing changes on
// disk.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXNonexistentFile.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXRegularFile.h"
#include "filesystem/PXSymbolicLink.h"
#include "filesystem/PXVolumeInfo.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;

// By name, so that a failure tells which.
struct Path {
  const char* kind;
  // Answers it for a folder that holds "dir/file", "link" (to "dir"), "loop" (to itself) and
  // "dangling".
  std::function<std::string(const std::string& folder)> make;
  friend void PrintTo(const Path& path, std::ostream* out) { *out << path.kind; }
};

const std::vector<Path>& nowhere() {
  static const auto& paths = *new std::vector<Path>{
      {"empty", [](auto&) { return ""; }},
      {"relative", [](auto&) { return "no/such/item"; }},
      {"missing", [](auto& folder) { return folder + "/missing"; }},
      {"below a missing one", [](auto& folder) { return folder + "/missing/x"; }},
      {"below a file", [](auto& folder) { return folder + "/dir/file/x"; }},
      {"below a dangling link", [](auto& folder) { return folder + "/dangling/x"; }},
      {"below a link to itself", [](auto& folder) { return folder + "/loop/x"; }},
      {"dotted", [](auto& folder) { return folder + "/dir/../missing/./x"; }},
      {"a name too long", [](auto& folder) { return folder + "/" + std::string(256, 'n'); }},
      {"a path too long",
       [](auto& folder) {
         auto path = folder;
         while (path.size() < 5000) path += "/component";
         return path;
       }},
      {"no UTF-8", [](auto& folder) { return folder + "/\xff\xfe/\x80"; }},
      {"with a line feed", [](auto& folder) { return folder + "/a\nb"; }},
  };
  return paths;
}

class LeadsNowhere : public testing::TestWithParam<Path> {
 protected:
  void SetUp() override {
    folder_.write("dir/file", "content");
    fs::create_symlink("dir", folder_ / "link");
    fs::create_symlink("loop", folder_ / "loop");
    fs::create_symlink("nothing", folder_ / "dangling");
    bytes_ = GetParam().make(folder_.path());
    path_ = PXPath::initWithCPath(bytes_);
    before_ = listing();
  }
  void TearDown() override { EXPECT_EQ(listing(), before_); }

  std::vector<std::string> listing() const {
    std::vector<std::string> names;
    for (auto& entry : fs::recursive_directory_iterator(folder_.path()))
      names.push_back(entry.path().string());
    return names;
  }
  Ref<PXPath> file() const { return PXPath::initWithCPath(folder_ / "dir/file"); }

  TemporaryFolder folder_;
  std::string bytes_;
  Ref<PXPath> path_;
  std::vector<std::string> before_;
  LogRecorder log_;
};

TEST_P(LeadsNowhere, APathIsStillAPath) {
  EXPECT_EQ(std::string(path_->cPath()), bytes_);
  EXPECT_FALSE(path_->exists());
  EXPECT_EQ(path_->real(), path_);
  EXPECT_EQ(path_->displayName(), path_->name());
  EXPECT_TRUE(path_->parent());
  EXPECT_TRUE(path_->isEqual(*PXPath::initWithURL(path_->url())) || bytes_.empty() ||
              bytes_.front() != '/');
  EXPECT_EQ(path_->minTransferSize(), 0);
  EXPECT_EQ(path_->fileSizeBits(), 0);
  EXPECT_FALSE(path_->containsPath(*file()));
  EXPECT_FALSE(path_->directoryInfo());
  EXPECT_EQ(file()->pathRelativeToPath(*path_), file()->path());
}

TEST_P(LeadsNowhere, AProbeFindsNothingOrSaysWhy) {
  try {
    auto info = PXFileInfo::infoForPathObject(path_);
    ASSERT_TRUE(info);
    EXPECT_FALSE(info->exists());
    EXPECT_EQ(info->ownerID(), 0u);
    EXPECT_FALSE(info->volumeInfo());
    EXPECT_FALSE(PXDirectory::directoryWithPath(bytes_));
    EXPECT_FALSE(PXRegularFile::regularInfoForPathObject(path_));
    EXPECT_EQ(path_->directory(), nullptr);
    EXPECT_FALSE(info->parentDirectoryInfo() && info->parentDirectoryInfo()->containsFile(*info) &&
                 !fs::exists(fs::path(bytes_).parent_path()));
  } catch (const KLException& exception) {
    EXPECT_EQ(exception.name(), "IO");
    EXPECT_EQ(exception.reason(), "failed to probe object vtype");
    EXPECT_NE(detailOf(exception, "POSIXErr"), std::to_string(ENOENT));
  }
}

TEST_P(LeadsNowhere, AVolumeIsNotFound) {
  EXPECT_EQ(raisedBy([&] { PXVolumeInfo::volumeInfoForPathObject(*path_); }).reason(),
            "problem getting volume statfs");
}

TEST_P(LeadsNowhere, NothingIsMovedCopiedRemovedOrExchanged) {
  auto target = folder_ / "target";
  EXPECT_EQ(raisedBy([&] { path_->moveTo(target, true); }).reason(),
            "cannot rename filesystem object");
  EXPECT_EQ(raisedBy([&] { path_->moveTo(target, false); }).reason(), "cannot move item");
  EXPECT_EQ(raisedBy([&] { path_->copyTo(target, false); }).reason(), "cannot copy item");
  EXPECT_EQ(raisedBy([&] { path_->copyTo(target, true); }).reason(), "cannot copy item");
  EXPECT_EQ(raisedBy([&] { path_->deleteFile(); }).reason(), "cannot delete item");
  EXPECT_FALSE(path_->tryToDeleteFile());
  EXPECT_EQ(raisedBy([&] { path_->swapWith(*file()); }).reason(), "cannot exchange files");
  EXPECT_EQ(raisedBy([&] { file()->swapWith(*path_); }).reason(), "cannot exchange files");
  path_->touch();
}

TEST_P(LeadsNowhere, AnOldObjectSaysThatItsItemIsGone) {
  auto file = PXFileInfo::initWithType(VnodeType::Regular, path_);
  EXPECT_EQ(raisedBy([&] { file->access(); }).reason(), "failed to get attributes");
  auto link = PXFileInfo::initWithType(VnodeType::SymbolicLink, path_)->asSymbolicLink();
  EXPECT_EQ(raisedBy([&] { link->contents(); }).reason(), "cannot read content of symbolic link");
  EXPECT_EQ(raisedBy([&] { link->setContents("x"); }).reason(), "cannot delete item");
  auto folder = PXFileInfo::initWithType(VnodeType::Directory, path_)->asDirectory();
  EXPECT_FALSE(folder->firstObject());
  EXPECT_FALSE(folder->contentsAreRead());
  EXPECT_EQ(folder->count(), 0u);
  EXPECT_FALSE(folder->isPackage());
  // What is joined to an empty path is in the root folder.
  auto name = bytes_.empty() ? "proc" : "new";
  EXPECT_EQ(raisedBy([&] { folder->createSubdirectoryWithName(name, 0755); }).reason(),
            "could not create directory");
  EXPECT_FALSE(folder->isHidden() && folder->isExcludedFromBackup());
}

INSTANTIATE_TEST_SUITE_P(Paths, LeadsNowhere, testing::ValuesIn(nowhere()), [](auto& info) {
  std::string name;
  for (char c : std::string_view(info.param.kind)) name += std::isalnum(c) ? c : '_';
  return name;
});

class Target : public testing::Test {
 protected:
  void SetUp() override {
    folder_.write("dir/file", "content");
    fs::create_symlink("dir", folder_ / "link");
  }
  Ref<PXPath> file() const { return PXPath::initWithCPath(folder_ / "dir/file"); }
  TemporaryFolder folder_;
};

TEST_F(Target, ThatIsTheRootOrAFolderThatHoldsTheSourceIsRefused) {
  for (const std::string& target : {std::string("/"), std::string("/.."), folder_ / "dir"}) {
    EXPECT_THROW(file()->moveTo(target, true), KLException) << target;
    EXPECT_THROW(file()->moveTo(target, false), KLException) << target;
    EXPECT_THROW(file()->copyTo(target, true), KLException) << target;
    EXPECT_THROW(file()->copyTo(target, false), KLException) << target;
  }
  EXPECT_TRUE(file()->exists());
}

TEST_F(Target, ThatIsEmptyOrADotIsTheFolderItself) {
  for (const std::string& target : {std::string(), std::string("."), std::string("./.")}) {
    EXPECT_EQ(raisedBy([&] { file()->moveTo(target, false); }).reason(), "cannot move item");
    EXPECT_EQ(raisedBy([&] { file()->copyTo(target, true); }).reason(), "cannot overwrite item");
  }
  EXPECT_TRUE(file()->exists());
}

TEST_F(Target, ThroughALinkIsWhereTheLinkLeads) {
  EXPECT_EQ(file()->copyTo(folder_ / "link/copy", false)->path(), folder_ / "link/copy");
  EXPECT_TRUE(fs::exists(folder_ / "dir/copy"));
}

TEST_F(Target, EndsAtANul) {
  fs::create_directory(folder_ / "safe");
  auto target = folder_ / "safe" + std::string("\0/../dir/x", 10);
  EXPECT_EQ(raisedBy([&] { file()->copyTo(target, false); }).reason(), "cannot copy item");
  EXPECT_TRUE(fs::is_empty(folder_ / "safe"));
  EXPECT_EQ(file()->copyTo(target, true)->path(), folder_ / "safe");
  EXPECT_TRUE(fs::is_regular_file(folder_ / "safe"));
  auto name = std::string("moved\0.txt", 10);
  EXPECT_EQ(file()->moveToDirectory(folder_ / "dir" + std::string("\0x", 2), name, false)->path(),
            folder_ / "dir/moved");
  EXPECT_TRUE(fs::exists(folder_ / "dir/moved"));
}

TEST_F(Target, ThatIsADanglingLinkIsInTheWayOfACopy) {
  fs::create_symlink("nowhere", folder_ / "dangling");
  EXPECT_EQ(raisedBy([&] { file()->copyTo(folder_ / "dangling", true); }).reason(),
            "cannot copy item");
  EXPECT_TRUE(fs::is_symlink(folder_ / "dangling"));
}

TEST_F(Target, ThatIsALinkIsReplacedItself) {
  file()->copyTo(folder_ / "link", true);
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(folder_ / "link")));
  EXPECT_TRUE(fs::exists(folder_ / "dir/file"));
}

TEST_F(Target, ThatIsTooLongLeavesTheSource) {
  auto name = std::string(256, 'n');
  EXPECT_EQ(detailOf(raisedBy([&] { file()->moveTo(name, true); }), "POSIXErr"),
            std::to_string(ENAMETOOLONG));
  EXPECT_EQ(raisedBy([&] { file()->moveTo(name, false); }).reason(), "cannot move item");
  EXPECT_EQ(raisedBy([&] { file()->copyTo(name, true); }).reason(), "cannot copy item");
  EXPECT_TRUE(file()->exists());
}

}  // namespace
}  // namespace hoist
