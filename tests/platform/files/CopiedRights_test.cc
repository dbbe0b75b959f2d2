// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Who may use a copy: the same people as the source, or fewer, whatever the file system or the
// folder above the copy makes of it.

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>

#include "platform/files/FileManager.h"
#include "support/AsUser.h"
#include "support/TestVolumes.h"

namespace hoist::files {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kUser = 65534;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status.st_mode & 07777;
}

// The access lists as getfacl(1) has them, without the names of items.
std::string listsOf(const std::string& path) {
  auto output = path + ".lists";
  TestVolumes::run("sh -c 'getfacl -n -p -c " + path + " > " + output + "'");
  std::ifstream stream(output);
  std::string lists{std::istreambuf_iterator<char>(stream), {}};
  fs::remove(output);
  return lists;
}

class CopiedRights : public testing::Test {
 protected:
  void SetUp() override {
    if (!TestVolumes::possible()) GTEST_SKIP() << "needs root";
    volumes_.emplace();
    ::chmod(volumes_->folder().path().c_str(), 0755);
    point_ = volumes_->make("ext4", "vol");
    fs::create_directories(point_ + "/t/sub");
    for (auto name : {"/t/x", "/t/sub/x"}) std::ofstream(at(name)) << "content";
    ::mkfifo(at("/t/pipe").c_str(), 0600);
    ::mknod(at("/t/device").c_str(), S_IFCHR | 0600, makedev(1, 3));
  }
  std::string at(const std::string& name) const { return point_ + name; }

  std::optional<TestVolumes> volumes_;
  std::string point_;
};

TEST_F(CopiedRights, ArePartOfPipesAndDevicesToo) {
  for (std::string name : {"/t/x", "/t/pipe", "/t/device"}) {
    TestVolumes::run("setfacl -m u:1234:rw,g::- " + at(name));
  }
  ASSERT_FALSE(copyItem(at("/t"), at("/copy")));
  for (std::string name : {"/x", "/pipe", "/device"}) {
    EXPECT_EQ(listsOf(at("/copy" + name)), listsOf(at("/t" + name))) << name;
  }
}

TEST_F(CopiedRights, DoNotComeFromTheFolderAbove) {
  ::mkdir(at("/generous").c_str(), 0755);
  TestVolumes::run("setfacl -m u:1234:rwx -d -m u:1234:rwx,g:99:rwx " + at("/generous"));
  ASSERT_FALSE(copyItem(at("/t"), at("/generous/t")));
  for (std::string name : {"/t", "/t/x", "/t/sub", "/t/sub/x", "/t/pipe"}) {
    EXPECT_EQ(listsOf(at("/generous" + name)), listsOf(at(name))) << name;
  }
  for (std::string name : {"/x", "/pipe"}) {
    ASSERT_FALSE(copyItem(at("/t" + name), at("/generous" + name)));
    EXPECT_EQ(listsOf(at("/generous" + name)), listsOf(at("/t" + name))) << name;
  }
}

TEST_F(CopiedRights, OfTheGroupDoNotGrowWhereThereAreNoLists) {
  auto plain = volumes_->newPoint("plain");
  volumes_->mount("ramfs", plain, "ramfs", 0, "");
  for (std::string name : {"/t", "/t/x", "/t/pipe"}) {
    TestVolumes::run("setfacl -m u:1234:rwx,g::r " + at(name));
    ASSERT_EQ(modeOf(at(name)) & 070, 070u);
  }
  // A mask that leaves the group less than the list gives it.
  TestVolumes::run("setfacl -m u:1234:r,g::rwx,m::r " + at("/t/sub/x"));
  ASSERT_FALSE(copyItem(at("/t"), plain + "/t"));
  for (std::string name : {"/t", "/t/x", "/t/pipe"}) {
    EXPECT_EQ(modeOf(plain + name), (modeOf(at(name)) & ~070u) | 040u) << name;
  }
  EXPECT_EQ(modeOf(plain + "/t/sub"), modeOf(at("/t/sub")));
  EXPECT_EQ(modeOf(plain + "/t/sub/x") & 070, 040u);
}

// ---- What the file system does not let this process set ----

TEST_F(CopiedRights, OfAnOrdinaryUsersGroupsStayWithTheGroup) {
  constexpr gid_t kGroup = 5678;
  ASSERT_EQ(::chown(at("/t/x").c_str(), 0, kGroup), 0);
  ::mkdir(at("/his").c_str(), 0777);
  ::chmod(at("/his").c_str(), 0777);
  pid_t child = ::fork();
  if (child == 0) {
    bool isUser = ::setgroups(1, &kGroup) == 0 && ::setgid(kUser) == 0 && ::setuid(kUser) == 0;
    ::_exit(isUser && !copyItem(at("/t/x"), at("/his/x")) ? 0 : 1);
  }
  int result = -1;
  EXPECT_EQ(::waitpid(child, &result, 0), child);
  EXPECT_EQ(result, 0);
  struct stat status;
  ASSERT_EQ(::lstat(at("/his/x").c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kUser);
  EXPECT_EQ(status.st_gid, kGroup);
}

TEST_F(CopiedRights, AndTimesAreLeftOutWhereTheCopyIsShownAsAnotherUsers) {
  auto roots = volumes_->makeRootsOwn("roots");
  AsUser user(kUser);
  for (auto name : {"/x", "/sub"}) {
    auto error = copyItem(at("/t") + name, roots + name);
    EXPECT_FALSE(error) << error->description();
    EXPECT_TRUE(fs::exists(roots + name));
  }
}

}  // namespace
}  // namespace hoist::files
