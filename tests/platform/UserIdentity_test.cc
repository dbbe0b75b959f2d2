// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/UserIdentity.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>

#include "platform/FileDescriptor.h"
#include "platform/ProcessIdentity.h"
#include "support/TemporaryFolder.h"

namespace hoist::platform {
namespace {

constexpr uid_t kUser = 54321;
constexpr gid_t kGroup = 54322;

TEST(UserIdentity, HasTheGroupsOfTheDatabase) {
  const UserIdentity root = UserIdentity::ofUser(0);
  EXPECT_EQ(root.group, ::getpwuid(0)->pw_gid);
  EXPECT_THAT(root.groups, testing::Contains(root.group));
}

TEST(UserIdentity, OfAnUnknownUserBelongsToNoGroup) {
  const UserIdentity unknown = UserIdentity::ofUser(kUser);
  EXPECT_EQ(unknown.user, kUser);
  EXPECT_EQ(unknown.group, 65534u);
  EXPECT_TRUE(unknown.groups.empty());
}

class UsersRights : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to take another user's rights";
    ::chmod(folder_.path().c_str(), 0755);
  }
  std::string makeFile(const std::string& name, uid_t user, gid_t group, mode_t mode) {
    const std::string path = folder_.write(name, "text");
    EXPECT_EQ(::chown(path.c_str(), user, group), 0);
    EXPECT_EQ(::chmod(path.c_str(), mode), 0);
    return path;
  }
  static bool canOpen(const std::string& path) {
    return static_cast<bool>(FileDescriptor(::open(path.c_str(), O_WRONLY | O_CLOEXEC)));
  }

  TemporaryFolder folder_;
};

TEST_F(UsersRights, AreWhatTheThreadTellsOfItself) {
  const UserIdentity before = UserIdentity::ofThread();
  const UserIdentity user{kUser, kGroup, {kGroup, kGroup + 1}};
  {
    UsersFileRights rights(user);
    EXPECT_EQ(UserIdentity::ofThread(), user);
    EXPECT_FALSE(UserIdentity::ofThread() == before);
  }
  EXPECT_EQ(UserIdentity::ofThread(), before);
}

TEST_F(UsersRights, AreTheUsersOwnAndItsGroups) {
  const std::string roots = makeFile("root's", 0, 0, 0664);
  const std::string own = makeFile("own", kUser, 0, 0600);
  const std::string groups = makeFile("group's", 0, kGroup, 0660);
  const std::string others = makeFile("other group's", 0, kGroup + 1, 0660);
  std::promise<void> changed;
  auto otherThread = std::async(std::launch::async, [&] {
    changed.get_future().wait();
    return canOpen(roots);
  });
  {
    UsersFileRights rights({kUser, 65534, {kGroup}});
    EXPECT_FALSE(canOpen(roots));
    EXPECT_TRUE(canOpen(own));
    EXPECT_TRUE(canOpen(groups));
    EXPECT_FALSE(canOpen(others));
    EXPECT_NE(::chmod(roots.c_str(), 0666), 0);
    EXPECT_EQ(::chmod(own.c_str(), 0620), 0);
    changed.set_value();
    EXPECT_TRUE(otherThread.get());
  }
  EXPECT_TRUE(canOpen(roots));
  EXPECT_TRUE(canOpen(others));
}

TEST_F(UsersRights, OfRootAreRoots) {
  const std::string file = makeFile("another's", kUser, kUser, 0600);
  UsersFileRights rights(UserIdentity::ofUser(0));
  EXPECT_TRUE(canOpen(file));
}

TEST(ProcessIdentity, OfThisProcessIsWhatTheKernelSays) {
  const auto identity = ProcessIdentity::ofProcess(::getpid());
  ASSERT_TRUE(identity);
  EXPECT_EQ(identity->realUser, ::getuid());
  EXPECT_EQ(identity->effectiveUser, ::geteuid());
  EXPECT_TRUE(identity->isWholly(::getuid()));
  EXPECT_FALSE(identity->isWholly(::getuid() + 1));
}

TEST(ProcessIdentity, OfNobodyIsNothing) {
  EXPECT_FALSE(ProcessIdentity::ofProcess(INT32_MAX));
  EXPECT_FALSE(ProcessIdentity::ofProcess(-1));
}

TEST(ProcessIdentity, IsWhollyAUsersOnlyWithAllIDsNoCapabilityAndNoSecret) {
  const ProcessIdentity own{kUser, kUser, kUser, kUser, 0, true};
  EXPECT_TRUE(own.isWholly(kUser));
  for (auto member : {&ProcessIdentity::realUser, &ProcessIdentity::effectiveUser,
                      &ProcessIdentity::savedUser, &ProcessIdentity::fileSystemUser}) {
    ProcessIdentity other = own;
    other.*member = kUser + 1;
    EXPECT_FALSE(other.isWholly(kUser));
    other.*member = 0;
    EXPECT_FALSE(other.isWholly(kUser));
  }
  ProcessIdentity capable = own;
  capable.permittedCapabilities = 1;
  EXPECT_FALSE(capable.isWholly(kUser));
  ProcessIdentity secret = own;
  secret.isOpenToItsUser = false;
  EXPECT_FALSE(secret.isWholly(kUser));
}

TEST(ProcessIdentity, IsRootsOnBehalfOfAUserWhicheverItIsAtTheMoment) {
  EXPECT_TRUE((ProcessIdentity{0, kUser, kUser, kUser}.isRootsOnBehalfOf(kUser)));
  EXPECT_TRUE((ProcessIdentity{0, 0, kUser, 0}.isRootsOnBehalfOf(kUser)));
  EXPECT_FALSE((ProcessIdentity{kUser, 0, 0, 0}.isRootsOnBehalfOf(kUser)));
  EXPECT_FALSE((ProcessIdentity{0, kUser, kUser, kUser}.isRootsOnBehalfOf(kUser + 1)));
  EXPECT_FALSE((ProcessIdentity{0, 0, 0, 0}.isRootsOnBehalfOf(kUser)));
}

}  // namespace
}  // namespace hoist::platform
