// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/files/FileManager.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <barrier>
#include <cerrno>
#include <fstream>
#include <future>
#include <optional>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/FilePaths.h"
#include "platform/Thread.h"
#include "platform/Trouble.h"
#include "platform/files/NewFolder.h"
#include "support/AsUser.h"
#include "support/DeepTree.h"
#include "support/TestVolumes.h"

namespace hoist::files {
namespace {

std::string contentOf(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

void write(const std::string& path, std::string_view content) {
  std::ofstream(path, std::ios::binary) << content;
}

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

bool isThere(const std::string& path) {
  struct stat status;
  return ::lstat(path.c_str(), &status) == 0;
}

std::string pathOf(const Ref<Error>& error) {
  return *error->userInfo().at(Error::kFilePath).string();
}

std::string randomBytes(std::size_t size) {
  std::mt19937 random(1);
  std::string bytes(size, '\0');
  for (auto& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

TEST(FileManager, SaysWhetherAnItemExists) {
  TemporaryFolder folder;
  ASSERT_EQ(::symlink("nowhere", (folder / "dangling").c_str()), 0);
  EXPECT_TRUE(fileExistsAtPath(folder.write("x", "")));
  EXPECT_FALSE(fileExistsAtPath(folder / "dangling"));
  EXPECT_FALSE(fileExistsAtPath(folder / "missing"));
}

TEST(FileManager, RefusesPathsThatNameNoItemInAFolder) {
  TemporaryFolder folder;
  folder.write("sub/x", "");
  for (std::string path :
       {std::string(""), std::string("/"), folder / "sub/.", folder / "sub/.."}) {
    EXPECT_TRUE(removeItem(path)) << path;
    EXPECT_TRUE(copyItem(path, folder / "copy")) << path;
    EXPECT_TRUE(copyItem(folder / "sub", path)) << path;
  }
  EXPECT_EQ(removeItem(folder / "missing/x")->code(), ENOENT);
  EXPECT_EQ(removeItem(folder / "sub/x/below")->code(), ENOTDIR);
  EXPECT_EQ(removeItem(folder / std::string(300, 'n'))->code(), ENAMETOOLONG);
  EXPECT_TRUE(isThere(folder / "sub/x"));
}

TEST(Removal, TakesATreeAndFollowsNoLink) {
  TemporaryFolder folder;
  folder.write("precious/x", "");
  folder.write("tree/a/b/c", "");
  ASSERT_EQ(::symlink("../precious", (folder / "tree/link").c_str()), 0);
  ASSERT_EQ(::symlink("precious", (folder / "top").c_str()), 0);
  EXPECT_FALSE(removeItem(folder / "tree"));
  EXPECT_FALSE(removeItem(folder / "top"));
  EXPECT_FALSE(isThere(folder / "tree"));
  EXPECT_TRUE(isThere(folder / "precious/x"));
  EXPECT_EQ(removeItem(folder / "tree")->code(), ENOENT);
}

TEST(Removal, TakesAFolderWithManyItems) {
  TemporaryFolder folder;
  for (int i = 0; i < 3000; ++i) folder.write("tree/" + std::to_string(i), "");
  EXPECT_FALSE(removeItem(folder / "tree"));
  EXPECT_FALSE(isThere(folder / "tree"));
}

TEST(Removal, BySeveralAtOnceSucceedsForOneAndEndsForTheOthersWithTheWholeGone) {
  TemporaryFolder folder;
  for (int i = 0; i < 600; ++i) {
    folder.write("tree/" + std::to_string(i % 30) + "/" + std::to_string(i), "");
  }
  std::barrier together(4);
  std::array<Ref<Error>, 4> errors;
  {
    std::vector<std::jthread> threads;
    for (auto& error : errors) {
      threads.emplace_back([&] {
        together.arrive_and_wait();
        error = removeItem(folder / "tree");
      });
    }
  }
  EXPECT_EQ(std::count(errors.begin(), errors.end(), nullptr), 1);
  for (auto& error : errors) {
    EXPECT_EQ(error ? pathOf(error) : folder / "tree", folder / "tree");
  }
  EXPECT_FALSE(isThere(folder / "tree"));
}

TEST(Removal, NamesTheItemThatFailed) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0755);
  folder.write("tree/locked/x", "");
  ASSERT_EQ(::chown((folder / "tree").c_str(), 65534, 65534), 0);
  AsUser user(65534);
  auto error = removeItem(folder / "tree");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), EACCES);
  EXPECT_EQ(pathOf(error), folder / "tree/locked/x");
}

TEST(Removal, TakesAnEmptyFolderThatMayNotBeRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  ::mkdir((folder / "tree").c_str(), 0755);
  ::mkdir((folder / "tree/closed").c_str(), 0);
  ::chmod(folder.path().c_str(), 0777);
  ASSERT_EQ(::chown((folder / "tree").c_str(), 65534, 65534), 0);
  ASSERT_EQ(::chown((folder / "tree/closed").c_str(), 65534, 65534), 0);
  AsUser user(65534);
  EXPECT_FALSE(removeItem(folder / "tree"));
  EXPECT_FALSE(isThere(folder / "tree"));
}

TEST(Trees, OfThousandsOfLevelsAreCopiedAndRemovedOnASmallStack) {
  constexpr int kLevels = 4000;
  TemporaryFolder folder;
  makeDeepTree(folder / "tree", kLevels);
  std::promise<std::pair<Ref<Error>, Ref<Error>>> errors;
  startDetachedThread("deep", [&] {
    auto copied = copyItem(folder / "tree", folder / "copy");
    auto removed = removeItem(folder / "tree");
    errors.set_value({copied, removed});
  });
  auto [copied, removed] = errors.get_future().get();
  EXPECT_FALSE(copied) << copied->description();
  EXPECT_FALSE(removed) << removed->description();
  EXPECT_EQ(depthOfTree(folder / "copy"), kLevels);
  EXPECT_FALSE(isThere(folder / "tree"));
  EXPECT_FALSE(removeItem(folder / "copy"));
}

class CopyOn : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
    point_ = volumes_->make(GetParam(), "vol");
  }
  std::string at(const std::string& name) const { return point_ + "/" + name; }

  std::optional<TestVolumes> volumes_;
  std::string point_;
};

TEST_P(CopyOn, KeepsContentModeOwnerAndTimesToTheNanosecond) {
  auto content = randomBytes(300'000);
  write(at("x"), content);
  ASSERT_EQ(::chown(at("x").c_str(), 1234, 5678), 0);
  ASSERT_EQ(::chmod(at("x").c_str(), 06751), 0);
  timespec times[2] = {{1'000'000'000, 123'456'789}, {1'100'000'000, 987'654'321}};
  ASSERT_EQ(::utimensat(AT_FDCWD, at("x").c_str(), times, 0), 0);
  ASSERT_FALSE(copyItem(at("x"), at("y")));
  auto source = statusOf(at("x")), copy = statusOf(at("y"));
  EXPECT_EQ(contentOf(at("y")), content);
  EXPECT_EQ(copy.st_mode, source.st_mode);
  EXPECT_EQ(copy.st_uid, 1234u);
  EXPECT_EQ(copy.st_gid, 5678u);
  // As it was before the copy read the file.
  EXPECT_EQ(copy.st_atim.tv_sec, times[0].tv_sec);
  EXPECT_EQ(copy.st_atim.tv_nsec, times[0].tv_nsec);
  EXPECT_EQ(copy.st_mtim.tv_sec, source.st_mtim.tv_sec);
  EXPECT_EQ(copy.st_mtim.tv_nsec, source.st_mtim.tv_nsec);
}

TEST_P(CopyOn, KeepsHoles) {
  {
    FileDescriptor file(::open(at("x").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    constexpr off_t kSize = 16 << 20;
    ASSERT_EQ(::ftruncate(file.get(), kSize), 0);
    auto data = randomBytes(100'000);
    for (off_t place : {off_t{0}, off_t{4} << 20, off_t{9} << 20}) {
      ASSERT_EQ(::pwrite(file.get(), data.data(), data.size(), place),
                static_cast<ssize_t>(data.size()));
    }
    ::fsync(file.get());
  }
  auto source = statusOf(at("x"));
  ASSERT_FALSE(copyItem(at("x"), at("y")));
  FileDescriptor made(::open(at("y").c_str(), O_RDONLY | O_CLOEXEC));
  ::fsync(made.get());
  auto copy = statusOf(at("y"));
  EXPECT_EQ(contentOf(at("x")), contentOf(at("y")));
  EXPECT_EQ(copy.st_size, source.st_size);
  EXPECT_LE(copy.st_blocks, source.st_blocks + 64);
  EXPECT_LT(copy.st_blocks * 512, 2 << 20);
}

TEST_P(CopyOn, KeepsExtendedAttributesAndAccessLists) {
  write(at("x"), "");
  ::mkdir(at("d").c_str(), 0755);
  bool attributes = ::setxattr(at("x").c_str(), "user.kept", "value", 5, 0) == 0 &&
                    ::setxattr(at("d").c_str(), "user.kept", "value", 5, 0) == 0;
  bool lists = true;
  try {
    TestVolumes::run("setfacl -m u:1234:r,m::rw " + at("x"));
    TestVolumes::run("setfacl -m u:1234:r -d -m u:99:rwx " + at("d"));
  } catch (const std::runtime_error&) {
    lists = false;
  }
  ASSERT_FALSE(copyItem(at("x"), at("y")));
  ASSERT_FALSE(copyItem(at("d"), at("e")));
  char value[10];
  if (attributes) {
    EXPECT_EQ(::getxattr(at("y").c_str(), "user.kept", value, sizeof value), 5);
    EXPECT_EQ(::getxattr(at("e").c_str(), "user.kept", value, sizeof value), 5);
  }
  if (lists) {
    EXPECT_NO_THROW(TestVolumes::run("getfacl -n " + at("y") + " | grep -q user:1234:r"));
    EXPECT_NO_THROW(TestVolumes::run("getfacl -n " + at("e") + " | grep -q default:user:99:rwx"));
    EXPECT_EQ(statusOf(at("y")).st_mode, statusOf(at("x")).st_mode);
  }
  EXPECT_TRUE(attributes || GetParam() == "fuse");
}

TEST_P(CopyOn, KeepsLinksPipesAndHardLinksOfATree) {
  ::mkdir(at("t").c_str(), 0750);
  ::mkdir(at("t/sub").c_str(), 0700);
  write(at("t/file"), "content");
  ASSERT_EQ(::link(at("t/file").c_str(), at("t/sub/again").c_str()), 0);
  ASSERT_EQ(::symlink("../no where", at("t/sub/link").c_str()), 0);
  ASSERT_EQ(::mkfifo(at("t/pipe").c_str(), 0622), 0);
  // FUSE remembers for a second that each of them had one name.
  bool severalNames = GetParam() != "fuse";
  if (severalNames) {
    ASSERT_EQ(::link(at("t/pipe").c_str(), at("t/sub/pipe").c_str()), 0);
    ASSERT_EQ(::link(at("t/sub/link").c_str(), at("t/link").c_str()), 0);
  }
  timespec times[2] = {{1, 2}, {3, 4}};
  ASSERT_EQ(::utimensat(AT_FDCWD, at("t/sub/link").c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, at("t").c_str(), times, 0), 0);
  ASSERT_FALSE(copyItem(at("t"), at("c")));
  EXPECT_EQ(statusOf(at("c")).st_mode & 07777, 0750u);
  EXPECT_EQ(statusOf(at("c")).st_mtim.tv_sec, 3);
  EXPECT_EQ(statusOf(at("c")).st_atim.tv_sec, 1);
  EXPECT_EQ(contentOf(at("c/sub/again")), "content");
  EXPECT_EQ(statusOf(at("c/file")).st_ino, statusOf(at("c/sub/again")).st_ino);
  EXPECT_NE(statusOf(at("c/file")).st_ino, statusOf(at("t/file")).st_ino);
  EXPECT_TRUE(S_ISFIFO(statusOf(at("c/pipe")).st_mode));
  if (severalNames) {
    EXPECT_EQ(statusOf(at("c/pipe")).st_ino, statusOf(at("c/sub/pipe")).st_ino);
    EXPECT_EQ(statusOf(at("c/link")).st_ino, statusOf(at("c/sub/link")).st_ino);
  }
  EXPECT_EQ(statusOf(at("c/pipe")).st_mode & 07777, statusOf(at("t/pipe")).st_mode & 07777);
  char target[64];
  EXPECT_EQ(::readlink(at("c/sub/link").c_str(), target, sizeof target), 11);
  EXPECT_EQ(statusOf(at("c/sub/link")).st_mtim.tv_sec, 3);
}

TEST_P(CopyOn, MovesToAnotherVolumeAndBack) {
  auto elsewhere = volumes_->newPoint("other");
  volumes_->mount("tmpfs", elsewhere, "tmpfs", 0, "");
  ::mkdir(at("t").c_str(), 0755);
  write(at("t/file"), "content");
  ASSERT_FALSE(moveItem(at("t"), elsewhere + "/t"));
  EXPECT_FALSE(isThere(at("t")));
  EXPECT_EQ(contentOf(elsewhere + "/t/file"), "content");
  ASSERT_FALSE(moveItem(elsewhere + "/t", at("t")));
  EXPECT_FALSE(isThere(elsewhere + "/t"));
  write(elsewhere + "/t", "");
  EXPECT_EQ(moveItem(at("t"), elsewhere + "/t")->code(), EEXIST);
  EXPECT_EQ(contentOf(at("t/file")), "content");
}

TEST_P(CopyOn, MovesWithoutReplacingAnything) {
  write(at("x"), "x");
  write(at("y"), "y");
  EXPECT_EQ(moveItem(at("x"), at("y"))->code(), EEXIST);
  EXPECT_EQ(contentOf(at("y")), "y");
  EXPECT_FALSE(moveItem(at("x"), at("z")));
  EXPECT_EQ(contentOf(at("z")), "x");
  EXPECT_FALSE(isThere(at("x")));
  EXPECT_EQ(moveItem(at("x"), at("w"))->code(), ENOENT);
}

std::vector<std::string> kinds() {
  return TestVolumes::kinds();
}
INSTANTIATE_TEST_SUITE_P(Kinds, CopyOn, testing::ValuesIn(kinds()),
                         [](auto& info) { return info.param; });

TEST(Copy, FailsWhenTheTargetExistsOrLiesInTheSource) {
  TemporaryFolder folder;
  folder.write("t/x", "");
  folder.write("y", "precious");
  EXPECT_EQ(copyItem(folder / "t/x", folder / "y")->code(), EEXIST);
  EXPECT_EQ(copyItem(folder / "t", folder / "y")->code(), EEXIST);
  EXPECT_EQ(contentOf(folder / "y"), "precious");
  EXPECT_EQ(copyItem(folder / "t", folder / "t/copy")->code(), EINVAL);
  EXPECT_FALSE(isThere(folder / "t/copy"));
  EXPECT_EQ(copyItem(folder / "missing", folder / "z")->code(), ENOENT);
}

TEST(Copy, CopiesALinkAsALink) {
  TemporaryFolder folder;
  folder.write("x", "content");
  ASSERT_EQ(::symlink("x", (folder / "link").c_str()), 0);
  ASSERT_FALSE(copyItem(folder / "link", folder / "copy"));
  EXPECT_TRUE(S_ISLNK(statusOf(folder / "copy").st_mode));
}

TEST(Copy, ReadsTheKernelsFilesThatSayTheyAreEmpty) {
  TemporaryFolder folder;
  ASSERT_FALSE(copyItem("/proc/version", folder / "version"));
  EXPECT_EQ(contentOf(folder / "version"), contentOf("/proc/version"));
}

TEST(Copy, ByAnOrdinaryUserBelongsToHimAndHasNoSetIDBits) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0777);
  folder.write("x", "content");
  ASSERT_EQ(::chmod((folder / "x").c_str(), 06755), 0);
  AsUser user(65534);
  ASSERT_FALSE(copyItem(folder / "x", folder / "y"));
  auto copy = statusOf(folder / "y");
  EXPECT_EQ(copy.st_uid, 65534u);
  EXPECT_EQ(copy.st_mode & 07777, 0755u);
}

TEST(Copy, NamesTheItemThatCouldNotBeRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0777);
  folder.write("t/secret", "content");
  ASSERT_EQ(::chmod((folder / "t/secret").c_str(), 0600), 0);
  AsUser user(65534);
  auto error = copyItem(folder / "t", folder / "c");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), EACCES);
  EXPECT_EQ(pathOf(error), folder / "t/secret");
  EXPECT_FALSE(isThere(folder / "c/secret"));
}

TEST(Copy, LeavesNoHalfFileWhenTheDiskIsFull) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto small = volumes.make("tmpfs", "small", 2);
  auto source = volumes.folder().write("big", randomBytes(8 << 20));
  auto error = copyItem(source, small + "/big");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), ENOSPC);
  EXPECT_EQ(pathOf(error), small + "/big");
  EXPECT_FALSE(isThere(small + "/big"));
}

TEST(Copy, LeavesNoHalfFileWhenReadingFails) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  // A file that opens and whose content fails: the memory of a process at an address it has not.
  auto error = copyItem("/proc/self/mem", folder / "copy");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), EIO);
  EXPECT_EQ(pathOf(error), "/proc/self/mem");
  EXPECT_FALSE(isThere(folder / "copy"));
}

TEST(Copy, IsACloneWhereTheFileSystemCan) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  for (std::string kind : {"xfs", "btrfs"}) {
    TestVolumes volumes;
    auto point = volumes.make(kind, "vol");
    write(point + "/x", randomBytes(8 << 20));
    ::sync();
    ASSERT_FALSE(copyItem(point + "/x", point + "/y"));
    ::sync();
    EXPECT_EQ(contentOf(point + "/y"), contentOf(point + "/x"));
    EXPECT_NO_THROW(TestVolumes::run("filefrag -v " + point + "/y | grep -q shared")) << kind;
  }
}

TEST(Removal, LeavesAloneWhatIsMountedInTheTree) {
  if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
  TestVolumes volumes;
  auto precious = volumes.newPoint("precious");
  write(precious + "/x", "");
  volumes.newPoint("t");
  volumes.bind(precious, "t/bound");
  auto error = removeItem(volumes.folder() / "t");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), EBUSY);
  EXPECT_EQ(pathOf(error), volumes.folder() / "t/bound");
  EXPECT_TRUE(isThere(precious + "/x"));
}

TEST(Replacing, IsRefusedForOneItemAndWhereOneHoldsTheOther) {
  TemporaryFolder folder;
  folder.write("t/sub/x", "");
  folder.write("y", "");
  ASSERT_EQ(::link((folder / "y").c_str(), (folder / "z").c_str()), 0);
  EXPECT_TRUE(refusalToReplace(folder / "t", folder / "t"));
  EXPECT_TRUE(refusalToReplace(folder / "y", folder / "z"));
  EXPECT_TRUE(refusalToReplace(folder / "t/sub/x", folder / "t"));
  EXPECT_TRUE(refusalToReplace(folder / "t", folder / "t/sub"));
  EXPECT_TRUE(refusalToReplace(folder / "t", folder / "t/sub/x"));
  EXPECT_FALSE(refusalToReplace(folder / "t", folder / "y"));
  EXPECT_FALSE(refusalToReplace(folder / "y", folder / "t"));
  EXPECT_FALSE(refusalToReplace(folder / "y", folder / "missing"));
}

TEST(NewFolder, HasExactlyItsAttributesWhateverTheMask) {
  TemporaryFolder folder;
  ::umask(077);
  Dictionary attributes = {{kFilePosixPermissions, 02775}};
  if (::geteuid() == 0) {
    attributes[kFileOwnerAccountID] = 1234;
    attributes[kFileGroupOwnerAccountID] = 5678;
  }
  EXPECT_FALSE(createDirectory(folder / "new", attributes));
  EXPECT_EQ(statusOf(folder / "new").st_mode & 07777, 02775u);
  if (::geteuid() == 0) {
    EXPECT_EQ(statusOf(folder / "new").st_uid, 1234u);
    EXPECT_EQ(statusOf(folder / "new").st_gid, 5678u);
  }
  EXPECT_FALSE(createDirectory(folder / "plain", {}));
  EXPECT_EQ(statusOf(folder / "plain").st_mode & 07777, 0700u);
  ::umask(022);
}

TEST(NewFolder, IsRefusedWhereAnythingIsAndWhereNothingHoldsIt) {
  TemporaryFolder folder;
  folder.write("file", "");
  folder.write("sub/x", "");
  ASSERT_EQ(::symlink("sub", (folder / "link").c_str()), 0);
  for (auto name : {"file", "sub", "link"}) {
    EXPECT_EQ(createDirectory(folder / name, {{kFilePosixPermissions, 0777}})->code(), EEXIST);
  }
  EXPECT_NE(statusOf(folder / "sub").st_mode & 07777, 0777u);
  EXPECT_EQ(createDirectory(folder / "missing/new", {})->code(), ENOENT);
}

TEST(NewFolder, IsRemovedAgainWhenItCannotHaveItsAttributes) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0777);
  AsUser user(65534);
  auto error = createDirectory(folder / "new", {{kFileOwnerAccountID, 0}});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code(), EPERM);
  EXPECT_FALSE(isThere(folder / "new"));
}

TEST(GroupAccount, StandsInForAdminAndReportsWhatThereIsNot) {
  std::string report;
  platform::setTroubleHook([&](platform::Severity severity, std::string_view message) {
    EXPECT_EQ(severity, platform::Severity::Caution);
    report = message;
  });
  EXPECT_EQ(groupAccount("root"), 0u);
  EXPECT_EQ(groupAccount("no such group"), std::nullopt);
  EXPECT_EQ(report, "There is no group account no such group");
  std::optional<gid_t> expected;
  for (auto name : {"admin", "sudo", "wheel"}) {
    auto group = ::getgrnam(name);
    if (group && !expected) expected = group->gr_gid;
  }
  EXPECT_EQ(groupAccount("admin"), expected);
  platform::setTroubleHook(nullptr);
}

TEST(ItemAttributes, AreThoseOfTheItemItself) {
  TemporaryFolder folder;
  auto file = folder.write("x", "abc");
  ASSERT_EQ(::chmod(file.c_str(), 04711), 0);
  ASSERT_EQ(::symlink("x", (folder / "link").c_str()), 0);
  auto attributes = attributesOfItem(file);
  ASSERT_TRUE(attributes);
  EXPECT_EQ((*attributes)[kFileType], Value("NSFileTypeRegular"));
  EXPECT_EQ((*attributes)[kFileSize], Value(3));
  EXPECT_EQ((*attributes)[kFilePosixPermissions], Value(04711));
  EXPECT_EQ((*attributes)[kFileOwnerAccountID], Value(::geteuid()));
  EXPECT_EQ((*attributes)[kFileReferenceCount], Value(1));
  EXPECT_EQ((*attributesOfItem(folder / "link"))[kFileType], Value("NSFileTypeSymbolicLink"));
  EXPECT_EQ((*attributesOfItem(folder.path()))[kFileType], Value("NSFileTypeDirectory"));
  EXPECT_FALSE(attributesOfItem(folder / "missing"));
}

}  // namespace
}  // namespace hoist::files
