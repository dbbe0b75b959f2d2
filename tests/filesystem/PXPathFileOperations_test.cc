// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>

#include "filesystem/PXDirectory.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXSubPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "platform/FacilityLevel.h"
#include "platform/files/ExchangeCalls.h"
#include "platform/volumes/VolumeCalls.h"
#include "support/AsUser.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TestVolumes.h"

namespace hoist {
namespace {

std::string contentOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

bool isThere(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

class FileOperations : public testing::Test {
 protected:
  Ref<PXPath> at(const std::string& name) { return PXPath::initWithCPath(folder_ / name); }
  Ref<PXFileInfo> infoOf(const std::string& name) {
    return PXFileInfo::infoForPath(folder_ / name);
  }
  std::size_t itemsIn(const std::string& name) {
    return PXDirectory::directoryWithPath(folder_ / name)->count();
  }
  TemporaryFolder folder_;
};

using Moving = FileOperations;

TEST_F(Moving, RenamesWithinItsFolderForARelativeName) {
  folder_.write("sub/x", "content");
  auto path = at("sub/x");
  auto moved = path->moveTo("new.txt", false);
  EXPECT_EQ(moved->path(), folder_ / "sub/new.txt");
  EXPECT_EQ(path->path(), folder_ / "sub/x");
  EXPECT_EQ(contentOf(folder_ / "sub/new.txt"), "content");
  ::mkdir((folder_ / "up").c_str(), 0755);
  EXPECT_EQ(moved->moveTo("../up//./y", true)->path(), folder_ / "up/y");
  // A tilde that begins no path is part of a name.
  EXPECT_EQ(at("up/y")->moveTo("~", true)->path(), folder_ / "up/~");
}

TEST_F(Moving, ReplacesAnItemOnlyWhenOverwriting) {
  folder_.write("x", "x");
  folder_.write("y", "y");
  auto exception = raisedBy([&] { at("x")->moveTo("y", false); });
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "cannot move item");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EEXIST));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "x");
  EXPECT_EQ(detailOf(exception, "target"), folder_ / "y");
  EXPECT_EQ(contentOf(folder_ / "y"), "y");
  at("x")->moveTo("y", true);
  EXPECT_EQ(contentOf(folder_ / "y"), "x");
  EXPECT_FALSE(isThere(folder_ / "x"));
}

TEST_F(Moving, RaisesWithTheTargetWhenTheRenameFails) {
  auto exception = raisedBy([&] { at("missing")->moveTo("/no such/./y", true); });
  EXPECT_EQ(exception.reason(), "cannot rename filesystem object");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ENOENT));
  EXPECT_EQ(detailOf(exception, "to"), "/no such/y");
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "missing");
}

TEST_F(Moving, ToADirectoryKeepsNameOrFolderWhenOneIsAbsent) {
  folder_.write("x", "content");
  ::mkdir((folder_ / "sub").c_str(), 0755);
  EXPECT_EQ(at("x")->moveToDirectory(folder_ / "sub", std::nullopt, false)->path(),
            folder_ / "sub/x");
  EXPECT_EQ(at("sub/x")->moveToDirectory(std::nullopt, "y", false)->path(), folder_ / "sub/y");
  EXPECT_TRUE(isThere(folder_ / "sub/y"));
}

TEST_F(Moving, FindsTheFolderOfASubPathThatHasLostItsParent) {
  folder_.write("sub/x", "content");
  auto sub = PXDirectory::directoryWithPath(folder_ / "sub");
  auto orphan = sub->pathForName("x")->copy();
  ASSERT_FALSE(orphan->parent());
  EXPECT_EQ(orphan->moveTo("y", false)->path(), folder_ / "sub/y");
}

TEST_F(Moving, KeepsNamesThatAreNoText) {
  folder_.write("\xff", "content");
  auto moved = at("\xff")->moveToDirectory(folder_.path(), "\xfe", true);
  EXPECT_EQ(std::string(moved->cPath()), folder_ / "\xfe");
  EXPECT_EQ(contentOf(folder_ / "\xfe"), "content");
  folder_.write("sub/x", "");
  EXPECT_EQ(std::string(moved->moveToDirectory(folder_ / "sub", std::nullopt, false)->cPath()),
            folder_ / "sub/\xfe");
}

TEST_F(Moving, OfAnInfoReplacesItsPathAndKeepsItWhenItFails) {
  folder_.write("x", "content");
  auto info = infoOf("x");
  info->ownerID();
  info->moveTo("y", false);
  EXPECT_EQ(info->path(), folder_ / "y");
  info->moveToDirectory(std::nullopt, "z", true);
  EXPECT_EQ(info->path(), folder_ / "z");
  EXPECT_THROW(info->moveTo("/no such/z", false), KLException);
  EXPECT_EQ(info->path(), folder_ / "z");
}

using Copying = FileOperations;

TEST_F(Copying, AnswersTheTargetAndLeavesTheSource) {
  folder_.write("sub/x", "content");
  EXPECT_EQ(at("sub/x")->copyTo("y", false)->path(), folder_ / "sub/y");
  EXPECT_EQ(at("sub")->copyToDirectory(std::nullopt, "copy", false, false)->path(),
            folder_ / "copy");
  EXPECT_EQ(contentOf(folder_ / "copy/y"), "content");
  EXPECT_EQ(contentOf(folder_ / "sub/x"), "content");
}

TEST_F(Copying, ReplacesAnItemOnlyWhenOverwriting) {
  folder_.write("x", "x");
  folder_.write("y/old", "y");
  auto exception = raisedBy([&] { at("x")->copyTo("y", false); });
  EXPECT_EQ(exception.reason(), "cannot copy item");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EEXIST));
  EXPECT_EQ(detailOf(exception, "target"), folder_ / "y");
  EXPECT_TRUE(isThere(folder_ / "y/old"));
  at("x")->copyTo("y", true);
  EXPECT_EQ(contentOf(folder_ / "y"), "x");
}

TEST_F(Copying, LeavesTheTargetRemovedWhenTheCopyFails) {
  folder_.write("y", "y");
  EXPECT_EQ(raisedBy([&] { at("missing")->copyTo("y", true); }).reason(), "cannot copy item");
  EXPECT_FALSE(isThere(folder_ / "y"));
}

TEST_F(Copying, RefusesToRemoveWhatItIsToCopy) {
  folder_.write("t/sub/x", "content");
  for (std::string target : {"../../t", "../sub", ".", "./x"}) {
    auto exception = raisedBy([&] { at("t/sub/x")->copyTo(target, true); });
    EXPECT_EQ(exception.reason(), "cannot overwrite item") << target;
  }
  EXPECT_EQ(raisedBy([&] { at("t/sub/x")->copyTo("", true); }).reason(), "cannot overwrite item");
  EXPECT_EQ(contentOf(folder_ / "t/sub/x"), "content");
}

TEST_F(Copying, AndDeletingRaiseWithTheItemThatFailed) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  folder_.write("t/sub/secret", "content");
  ::chmod(folder_.path().c_str(), 0777);
  ::chmod((folder_ / "t/sub/secret").c_str(), 0600);
  auto failedItem = [&](const KLException& exception) {
    auto detail = exception.userInfo().find(detail_key::HiddenError);
    if (detail == exception.userInfo().end()) return std::string("(none)");
    return *detail->second.objectAs<Error>()->userInfo().at(Error::kFilePath).string();
  };
  AsUser user(65534);
  auto copying = raisedBy([&] { at("t")->copyTo("copy", false); });
  EXPECT_EQ(detailOf(copying, "Path"), folder_ / "t");
  EXPECT_EQ(failedItem(copying), folder_ / "t/sub/secret");
  EXPECT_EQ(failedItem(raisedBy([&] { at("t")->deleteFile(); })), folder_ / "t/sub/secret");
  EXPECT_FALSE(isThere(folder_ / "copy/sub/secret"));
}

TEST_F(Copying, RaisesWhenTheTargetCannotBeRemoved) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto source = volumes.folder().write("x", "x");
  auto busy = volumes.make("tmpfs", "busy");
  auto exception = raisedBy([&] { PXPath::initWithCPath(source)->copyTo(busy, true); });
  EXPECT_EQ(exception.reason(), "cannot overwrite item");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EBUSY));
  EXPECT_EQ(detailOf(exception, "target"), busy);
}

TEST_F(Copying, OfAnInfoAnswersTheCopy) {
  folder_.write("x", "content");
  auto info = infoOf("x");
  auto copy = info->copyTo("y", false);
  EXPECT_EQ(copy->path(), folder_ / "y");
  EXPECT_TRUE(copy->isRegularFile());
  EXPECT_EQ(info->path(), folder_ / "x");
  EXPECT_TRUE(infoOf("")
                  ->copyToDirectory(std::nullopt, folder_.path().substr(5) + ".copy", false)
                  ->isDirectory());
  PXPath::initWithCPath(folder_.path() + ".copy")->tryToDeleteFile();
}

using Deleting = FileOperations;

TEST_F(Deleting, RemovesATreeAndRaisesForWhatIsNotThere) {
  folder_.write("t/sub/x", "");
  at("t")->deleteFile();
  EXPECT_FALSE(isThere(folder_ / "t"));
  auto exception = raisedBy([&] { at("t")->deleteFile(); });
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "cannot delete item");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(ENOENT));
  EXPECT_EQ(detailOf(exception, "Path"), folder_ / "t");
  EXPECT_EQ(detailOf(exception, "target"), "(none)");
  EXPECT_FALSE(at("t")->tryToDeleteFile());
  folder_.write("x", "");
  EXPECT_TRUE(at("x")->tryToDeleteFile());
}

TEST_F(Deleting, OfAnInfoAnswersAMissingItemAtTheSamePath) {
  folder_.write("x", "");
  auto info = infoOf("x");
  auto missing = info->deleteFile();
  EXPECT_FALSE(missing->exists());
  EXPECT_EQ(missing->pathObject(), info->pathObject());
  EXPECT_FALSE(isThere(folder_ / "x"));
  EXPECT_EQ(raisedBy([&] { info->deleteFile(); }).reason(), "cannot delete item");
  EXPECT_FALSE(info->tryToDeleteFile());
}

TEST_F(FileOperations, TouchSetsTheTimesToNowAndIgnoresWhatIsNotThere) {
  auto path = folder_.write("x", "");
  timespec times[2] = {{1, 0}, {2, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  at("x")->touch();
  EXPECT_GT(infoOf("x")->modifiedTimeSpec().tv_sec, 1'000'000'000);
  at("missing")->touch();
  EXPECT_FALSE(isThere(folder_ / "missing"));
}

// ---- Exchange ----

// Counts the calls and fails, or ends the process, where a test says so.
class FailingExchange : public files::ExchangeCalls {
 public:
  int swap(const char* a, const char* b) override {
    ++swaps;
    if (errorOfSwap == 0) return ExchangeCalls::swap(a, b);
    errno = errorOfSwap;
    return -1;
  }
  int exchangedata(const char* a, const char* b) override {
    ++exchanges;
    return exchangesContent ? ExchangeCalls::swap(a, b) : ExchangeCalls::exchangedata(a, b);
  }
  int rename(const char* from, const char* to) override {
    ++renames;
    if (renames == 1) temporary = PXPath::initWithCPath(to)->cName();
    if (renames == diesAtRename) ::_exit(0);
    if (renames == failsAtRename) {
      errno = EIO;
      return -1;
    }
    return ExchangeCalls::rename(from, to);
  }
  int swaps = 0;
  int exchanges = 0;
  int renames = 0;
  int errorOfSwap = 0;
  bool exchangesContent = false;
  std::string temporary;
  int failsAtRename = 0;
  int diesAtRename = 0;
};

// Says of every volume what it can do.
class CapableVolumes : public volumes::VolumeCalls {
 public:
  explicit CapableVolumes(std::uint32_t interfaces) : interfaces_(interfaces) {}
  int getattrlist(const volumes::VolumeStatistics& volume,
                  volumes::VolumeAttributes& attributes) override {
    int result = VolumeCalls::getattrlist(volume, attributes);
    attributes.capabilities.interfaces = interfaces_;
    return result;
  }

 private:
  std::uint32_t interfaces_;
};

class Exchange : public FileOperations {
 protected:
  void SetUp() override {
    folder_.write("a/x", "one");
    folder_.write("b/y", "two");
  }
  bool isExchanged() {
    return contentOf(folder_ / "a/x") == "two" && contentOf(folder_ / "b/y") == "one" &&
           itemsIn("a") == 1 && itemsIn("b") == 1;
  }
  FailingExchange calls_;
  files::ExchangeCallsOverride override_{calls_};
  LogRecorder log_;
};

TEST_F(Exchange, HappensAtOnceWhereTheVolumeCan) {
  CapableVolumes volumes(volumes::VOL_CAP_INT_RENAME_SWAP);
  volumes::VolumeCallsOverride override(volumes);
  at("a/x")->swapWith(*at("b/y"));
  EXPECT_TRUE(isExchanged());
  EXPECT_EQ(calls_.swaps, 1);
  EXPECT_EQ(calls_.renames, 0);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Exchange, AsksTheVolumeOfTheFolderNotWhereALinkLeads) {
  CapableVolumes volumes(volumes::VOL_CAP_INT_RENAME_SWAP);
  volumes::VolumeCallsOverride override(volumes);
  std::filesystem::remove(folder_ / "a/x");
  std::filesystem::create_symlink("nowhere", folder_ / "a/x");
  at("a/x")->swapWith(*at("b/y"));
  EXPECT_EQ(contentOf(folder_ / "a/x"), "two");
  EXPECT_EQ(calls_.swaps, 1);
}

TEST_F(Exchange, FallsBackStepByStepAndSaysSo) {
  CapableVolumes volumes(volumes::VOL_CAP_INT_RENAME_SWAP | volumes::VOL_CAP_INT_EXCHANGEDATA);
  volumes::VolumeCallsOverride override(volumes);
  calls_.errorOfSwap = EINVAL;
  at("a/x")->swapWith(*at("b/y"));
  EXPECT_TRUE(isExchanged());
  EXPECT_EQ(calls_.exchanges, 1);
  EXPECT_EQ(calls_.renames, 3);
  auto line = [&](const char* call, int error) {
    return std::string("-[PXPath swapWith:] ") + call + "('" + (folder_ / "a/x") + "','" +
           (folder_ / "b/y") + "') failed; errno=" + std::to_string(error) + " (" +
           std::strerror(error) + ")";
  };
  EXPECT_EQ(log_.texts(classification::Debug),
            (std::vector<std::string>{line("renamex_np", EINVAL), line("exchangedata", ENOTSUP)}));
}

TEST_F(Exchange, EndsWithTheContentWhereTheVolumeCanExchangeThat) {
  CapableVolumes volumes(volumes::VOL_CAP_INT_EXCHANGEDATA);
  volumes::VolumeCallsOverride override(volumes);
  calls_.exchangesContent = true;
  at("a/x")->swapWith(*at("b/y"));
  EXPECT_TRUE(isExchanged());
  EXPECT_EQ(calls_.exchanges, 1);
  EXPECT_EQ(calls_.swaps + calls_.renames, 0);
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Exchange, DoesNotHappenAtOnceBeforeTheSystemCouldDoThat) {
  CapableVolumes volumes(volumes::VOL_CAP_INT_RENAME_SWAP);
  volumes::VolumeCallsOverride override(volumes);
  for (int minor : {11, 12}) {
    FacilityLevelOverride level(packedVersion(10, minor));
    SetUp();
    at("a/x")->swapWith(*at("b/y"));
    EXPECT_TRUE(isExchanged());
    EXPECT_EQ(calls_.swaps, minor - 11);
    EXPECT_EQ(calls_.renames, 3);
  }
}

TEST_F(Exchange, TakesThreeRenamesWhereTheVolumeCanDoNothing) {
  CapableVolumes volumes(0);
  volumes::VolumeCallsOverride override(volumes);
  at("a/x")->swapWith(*at("b/y"));
  EXPECT_TRUE(isExchanged());
  EXPECT_EQ(calls_.swaps + calls_.exchanges, 0);
  EXPECT_EQ(calls_.renames, 3);
}

TEST_F(Exchange, RaisesAndPutsBackWhatItCan) {
  CapableVolumes volumes(0);
  volumes::VolumeCallsOverride override(volumes);
  for (int failing : {1, 2}) {
    calls_.renames = 0;
    calls_.failsAtRename = failing;
    auto exception = raisedBy([&] { at("a/x")->swapWith(*at("b/y")); });
    EXPECT_EQ(exception.name(), "IO");
    EXPECT_EQ(exception.reason(), "cannot exchange files");
    EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EIO));
    EXPECT_EQ(detailOf(exception, "API"), "rename");
    EXPECT_EQ(detailOf(exception, "Path"), folder_ / "a/x");
    EXPECT_EQ(detailOf(exception, "with"), folder_ / "b/y");
    EXPECT_EQ(contentOf(folder_ / "a/x"), "one");
    EXPECT_EQ(contentOf(folder_ / "b/y"), "two");
    EXPECT_EQ(itemsIn("a"), 1u);
  }
  calls_.renames = 0;
  calls_.failsAtRename = 3;
  EXPECT_EQ(raisedBy([&] { at("a/x")->swapWith(*at("b/y")); }).reason(), "cannot exchange files");
  EXPECT_EQ(contentOf(folder_ / "b/y"), "one");
  auto left = PXDirectory::directoryWithPath(folder_ / "a")->firstObject();
  EXPECT_TRUE(left->name().starts_with("_xchng_") && left->name().ends_with("_x"));
  EXPECT_EQ(contentOf(left->path()), "two");
}

TEST_F(Exchange, LosesNothingWhenTheProcessEndsBetweenTwoRenames) {
  CapableVolumes volumes(0);
  volumes::VolumeCallsOverride override(volumes);
  for (int dying : {1, 2, 3}) {
    std::filesystem::remove_all(folder_ / "a");
    std::filesystem::remove_all(folder_ / "b");
    SetUp();
    pid_t child = ::fork();
    if (child == 0) {
      calls_.diesAtRename = dying;
      at("a/x")->swapWith(*at("b/y"));
      ::_exit(1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    std::multiset<std::string> contents;
    for (auto& file : std::filesystem::recursive_directory_iterator(folder_.path())) {
      if (file.is_regular_file()) contents.insert(contentOf(file.path()));
    }
    EXPECT_EQ(contents, (std::multiset<std::string>{"one", "two"})) << dying;
  }
}

TEST_F(Exchange, CutsTheTemporaryName) {
  CapableVolumes volumes(0);
  volumes::VolumeCallsOverride override(volumes);
  auto longest = std::string(255, 'n');
  folder_.write("a/" + longest, "long");
  at("a/" + longest)->swapWith(*at("b/y"));
  EXPECT_EQ(contentOf(folder_ / "b/y"), "long");
  EXPECT_EQ(calls_.temporary.size(), 254u);
  EXPECT_EQ(calls_.temporary.substr(15), "_" + longest.substr(0, 238));
}

TEST_F(Exchange, CutsTheTemporaryNameBetweenTwoCharacters) {
  CapableVolumes volumes(0);
  volumes::VolumeCallsOverride override(volumes);
  std::string longest = "x";
  for (int i = 0; i < 127; ++i) longest += "\xc3\xa4";
  folder_.write("a/" + longest, "long");
  at("a/" + longest)->swapWith(*at("b/y"));
  EXPECT_EQ(contentOf(folder_ / "b/y"), "long");
  EXPECT_EQ(calls_.temporary.size(), 253u);
}

TEST_F(Exchange, OfInfosAnswersWhatLiesAtTheOthersPath) {
  std::filesystem::remove(folder_ / "b/y");
  ASSERT_EQ(::symlink("nowhere", (folder_ / "b/y").c_str()), 0);
  auto file = infoOf("a/x"), link = infoOf("b/y");
  auto now = file->swapWith(*link);
  EXPECT_TRUE(now->isRegularFile());
  EXPECT_EQ(now->path(), folder_ / "b/y");
  EXPECT_TRUE(infoOf("a/x")->isSymbolicLink());
}

class ExchangeOnEveryVolume : public testing::TestWithParam<std::string> {};

TEST_P(ExchangeOnEveryVolume, LeavesNoTemporaryItem) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto point = volumes.make(GetParam(), "vol");
  ::mkdir((point + "/a").c_str(), 0755);
  std::ofstream(point + "/a/x") << "one";
  std::ofstream(point + "/y") << "two";
  PXPath::initWithCPath(point + "/a/x")->swapWith(*PXPath::initWithCPath(point + "/y"));
  EXPECT_EQ(contentOf(point + "/a/x"), "two");
  EXPECT_EQ(contentOf(point + "/y"), "one");
  EXPECT_EQ(PXDirectory::directoryWithPath(point + "/a")->count(), 1u);
}

TEST_P(ExchangeOnEveryVolume, MovesAcrossVolumesOnlyWithoutOverwriting) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto point = volumes.make(GetParam(), "vol");
  auto source = volumes.folder().write("x", "content");
  auto path = PXPath::initWithCPath(source);
  auto exception = raisedBy([&] { path->moveTo(point + "/x", true); });
  EXPECT_EQ(exception.reason(), "cannot rename filesystem object");
  EXPECT_EQ(detailOf(exception, "POSIXErr"), std::to_string(EXDEV));
  path->moveTo(point + "/x", false);
  EXPECT_EQ(contentOf(point + "/x"), "content");
  EXPECT_FALSE(isThere(source));
}

std::vector<std::string> kinds() {
  return TestVolumes::kinds();
}
INSTANTIATE_TEST_SUITE_P(Kinds, ExchangeOnEveryVolume, testing::ValuesIn(kinds()),
                         [](auto& info) { return info.param; });

}  // namespace
}  // namespace hoist
