// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "platform/attrlist/AttributeCalls.h"
#include "support/AsUser.h"
#include "support/TemporaryFolder.h"
#include "support/TracedCalls.h"

namespace hoist::attrlist {
namespace {

constexpr AttributeSet kEverything = {.common = 0x2278F0A, .directory = 7, .file = 0x207};

void lose(int capability) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2];
  EXPECT_EQ(::syscall(SYS_capget, &header, data), 0);
  data[0].effective &= ~(1U << capability);
  EXPECT_EQ(::syscall(SYS_capset, &header, data), 0);
}

class WriteBack : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    file_ = folder_.write("file", "content");
    ASSERT_EQ(::chmod(file_.c_str(), 0644), 0);
  }
  void TearDown() override { put(file_, ATTR_CMN_FLAGS, {}); }

  static ItemAttributes now(const std::string& path) {
    ItemAttributes item;
    EXPECT_EQ(
        AttributeCalls::current().getattrlist(path.c_str(), kEverything, item, FSOPT_NOFOLLOW), 0);
    return item;
  }
  // Answers 0 or the error.
  static int put(const std::string& path, std::uint32_t set, const CommonValues& values) {
    auto item = now(path);
    ItemAttributes after;
    int result = AttributeCalls::current().setattrlist(path.c_str(), {item.device, item.fileID},
                                                       set, values, after);
    return result == 0 ? 0 : errno;
  }
  unsigned modeOf(const std::string& path) { return now(path).accessMask & 07777; }

  TemporaryFolder folder_;
  std::string file_;
};

TEST_F(WriteBack, SetsModeAndModificationTimeToTheNanosecond) {
  EXPECT_EQ(put(file_, ATTR_CMN_ACCESSMASK | ATTR_CMN_MODTIME,
                {.modifiedTime = {1'000'000'000, 123'456'789}, .access = 0600}),
            0);
  EXPECT_EQ(modeOf(file_), 0600u);
  EXPECT_EQ(now(file_).modifiedTime.tv_sec, 1'000'000'000);
  EXPECT_EQ(now(file_).modifiedTime.tv_nsec, 123'456'789);
}

TEST_F(WriteBack, LeavesTheAccessTimeAlone) {
  timespec times[2] = {{5, 6}, {7, 8}};
  ASSERT_EQ(::utimensat(AT_FDCWD, file_.c_str(), times, 0), 0);
  ASSERT_EQ(put(file_, ATTR_CMN_MODTIME, {.modifiedTime = {9, 0}}), 0);
  struct stat status;
  ASSERT_EQ(::stat(file_.c_str(), &status), 0);
  EXPECT_EQ(status.st_atim.tv_sec, 5);
  EXPECT_EQ(status.st_atim.tv_nsec, 6);
}

TEST_F(WriteBack, WorksOnAFileThatItsOwnerMayNotRead) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chown(file_.c_str(), 1234, 1234), 0);
  ASSERT_EQ(::chmod(file_.c_str(), 0), 0);
  {
    AsUser user(1234);
    EXPECT_EQ(put(file_, ATTR_CMN_ACCESSMASK | ATTR_CMN_MODTIME,
                  {.modifiedTime = {3, 0}, .access = 0200}),
              0);
  }
  EXPECT_EQ(modeOf(file_), 0200u);
}

TEST_F(WriteBack, SetsOwnerAndGroupAndKeepsTheSetIDBits) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chmod(file_.c_str(), 06755), 0);
  EXPECT_EQ(put(file_, ATTR_CMN_OWNERID, {.ownerID = 1234}), 0);
  EXPECT_EQ(now(file_).ownerID, 1234u);
  EXPECT_EQ(now(file_).groupID, 0u);
  EXPECT_EQ(modeOf(file_), 06755u);
  EXPECT_EQ(put(file_, ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK, {.groupID = 77, .access = 04711}), 0);
  EXPECT_EQ(now(file_).groupID, 77u);
  EXPECT_EQ(modeOf(file_), 04711u);
}

// Every mode and every change of owner that the kernel was asked for, in order; -1 for an owner.
std::vector<int> stepsOf(const std::vector<TracedCall>& calls) {
  constexpr std::uint64_t kFchmodat2 = 452;
  std::vector<int> steps;
  for (const auto& call : calls) {
    if (call.number == kFchmodat2) steps.push_back(static_cast<int>(call.arguments[2]));
    if (call.number == SYS_chmod) steps.push_back(static_cast<int>(call.arguments[1]));
    if (call.number == SYS_fchownat) steps.push_back(-1);
  }
  // An older kernel is asked in vain, then in the other way.
  steps.erase(std::unique(steps.begin(), steps.end()), steps.end());
  return steps;
}

TEST_F(WriteBack, NeverWidensRightsOnTheWay) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  auto stepsFrom = [&](unsigned mode, std::uint32_t set, const CommonValues& values) {
    EXPECT_EQ(::chown(file_.c_str(), 1, 1), 0);
    EXPECT_EQ(::chmod(file_.c_str(), mode), 0);
    auto calls = systemCallsOf([&] { return [&] { put(file_, set, values); }; });
    return calls ? stepsOf(*calls) : std::vector<int>{-2};
  };
  constexpr std::uint32_t kAll = ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK;
  // What is to go goes first, the set-user-ID bit comes last.
  EXPECT_EQ(stepsFrom(0770, kAll, {.ownerID = 2, .groupID = 2, .access = 04711}),
            (std::vector<int>{0710, -1, 04711}));
  EXPECT_EQ(stepsFrom(04755, kAll, {.ownerID = 2, .groupID = 2, .access = 0700}),
            (std::vector<int>{0700, -1, 0700}));
  EXPECT_EQ(stepsFrom(0600, kAll, {.ownerID = 2, .groupID = 2, .access = 0644}),
            (std::vector<int>{-1, 0644}));
  EXPECT_EQ(stepsFrom(06755, ATTR_CMN_OWNERID, {.ownerID = 2}), (std::vector<int>{-1, 06755}));
  EXPECT_EQ(stepsFrom(0644, ATTR_CMN_ACCESSMASK, {.access = 0600}), (std::vector<int>{0600}));
  EXPECT_EQ(modeOf(file_), 0600u);
}

TEST_F(WriteBack, NeverWidensRightsWhenItIsUndone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chown(file_.c_str(), 1, 1), 0);
  ASSERT_EQ(::chmod(file_.c_str(), 0640), 0);
  auto calls = systemCallsOf([&] {
    // Everything can be done but the last step.
    lose(CAP_LINUX_IMMUTABLE);
    return [&] {
      put(file_, ATTR_CMN_OWNERID | ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS,
          {.ownerID = 2, .groupID = 2, .access = 04664, .flags = SF_IMMUTABLE});
    };
  });
  ASSERT_TRUE(calls);
  // The old group shall not write, not even for a moment.
  EXPECT_EQ(stepsOf(*calls), (std::vector<int>{-1, 04664, 0640, -1, 0640}));
  EXPECT_EQ(modeOf(file_), 0640u);
  EXPECT_EQ(now(file_).groupID, 1u);
}

TEST_F(WriteBack, RestrictsTheItemAgainWhenItIsUndone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  if (put(file_, ATTR_CMN_FLAGS, {.flags = SF_APPEND}) != 0) GTEST_SKIP() << "no file flags here";
  auto calls = systemCallsOf([&] {
    lose(CAP_CHOWN);
    return [&] { put(file_, ATTR_CMN_OWNERID | ATTR_CMN_FLAGS, {.ownerID = 2, .flags = 0}); };
  });
  ASSERT_TRUE(calls);
  EXPECT_EQ(now(file_).ownerID, 0u);
  EXPECT_EQ(now(file_).flags, SF_APPEND);
}

TEST_F(WriteBack, LiftsNoRestrictionWhenOnlyTheFlagsChange) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  if (put(file_, ATTR_CMN_FLAGS, {.flags = SF_APPEND}) != 0) GTEST_SKIP() << "no file flags here";
  auto calls =
      systemCallsOf([&] { return [&] { put(file_, ATTR_CMN_FLAGS, {.flags = SF_IMMUTABLE}); }; });
  ASSERT_TRUE(calls);
  EXPECT_EQ(std::ranges::count_if(*calls,
                                  [](auto& call) {
                                    return call.number == SYS_ioctl &&
                                           call.arguments[1] == FS_IOC_SETFLAGS;
                                  }),
            1);
  EXPECT_EQ(now(file_).flags, SF_IMMUTABLE);
  EXPECT_EQ(put(file_, ATTR_CMN_FLAGS, {.flags = SF_IMMUTABLE | UF_NODUMP}), 0);
  EXPECT_EQ(now(file_).flags, SF_IMMUTABLE | UF_NODUMP);
}

TEST_F(WriteBack, RefusesTheNumbersThatAreNoUserAndNoGroup) {
  constexpr std::uint32_t kNoID = ~0U;
  EXPECT_EQ(put(file_, ATTR_CMN_OWNERID | ATTR_CMN_ACCESSMASK, {.ownerID = kNoID, .access = 0}),
            EINVAL);
  EXPECT_EQ(put(file_, ATTR_CMN_GRPID | ATTR_CMN_ACCESSMASK, {.groupID = kNoID, .access = 0}),
            EINVAL);
  EXPECT_EQ(modeOf(file_), 0644u);
}

TEST_F(WriteBack, SaysSoWhenTheKernelDropsABitThatWasAskedFor) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  // A group that the owner does not belong to.
  ASSERT_EQ(::chown(file_.c_str(), 1234, 77), 0);
  {
    AsUser user(1234);
    EXPECT_EQ(put(file_, ATTR_CMN_ACCESSMASK, {.access = 02755}), EPERM);
  }
  EXPECT_EQ(modeOf(file_), 0644u);
}

TEST_F(WriteBack, ChangesALinkItselfAndRefusesItAMode) {
  auto link = folder_ / "link";
  ASSERT_EQ(::symlink("file", link.c_str()), 0);
  auto before = now(file_);
  EXPECT_EQ(put(link, ATTR_CMN_MODTIME, {.modifiedTime = {11, 12}}), 0);
  EXPECT_EQ(now(link).modifiedTime.tv_nsec, 12);
  EXPECT_EQ(now(file_).modifiedTime.tv_nsec, before.modifiedTime.tv_nsec);
  EXPECT_EQ(put(link, ATTR_CMN_ACCESSMASK, {.access = 0777}), 0);
  EXPECT_EQ(put(link, ATTR_CMN_ACCESSMASK | ATTR_CMN_MODTIME, {.access = 0600}), ENOTSUP);
  EXPECT_EQ(now(link).modifiedTime.tv_nsec, 12);
  EXPECT_EQ(modeOf(file_), 0644u);
}

TEST_F(WriteBack, RefusesAnotherItemThanTheOneThatWasRead) {
  auto item = now(file_);
  folder_.write("new", "");
  ASSERT_EQ(::rename((folder_ / "new").c_str(), file_.c_str()), 0);
  ItemAttributes after;
  EXPECT_EQ(AttributeCalls::current().setattrlist(file_.c_str(), {item.device, item.fileID},
                                                  ATTR_CMN_ACCESSMASK, {.access = 0777}, after),
            -1);
  EXPECT_EQ(errno, ESTALE);
  EXPECT_NE(modeOf(file_), 0777u);
}

TEST_F(WriteBack, RefusesAnItemOfAnotherCreationTimeUnlessThatIsNotKnown) {
  auto item = now(file_);
  if (item.createdTime.tv_sec == 0) GTEST_SKIP() << "no creation times here";
  auto result = [&](timespec createdTime) {
    ItemAttributes after;
    return AttributeCalls::current().setattrlist(file_.c_str(),
                                                 {item.device, item.fileID, createdTime},
                                                 ATTR_CMN_ACCESSMASK, {.access = 0600}, after) == 0
               ? 0
               : errno;
  };
  EXPECT_EQ(result({item.createdTime.tv_sec - 1, item.createdTime.tv_nsec}), ESTALE);
  EXPECT_EQ(modeOf(file_), 0644u);
  EXPECT_EQ(result({}), 0);
  EXPECT_EQ(result(item.createdTime), 0);
}

TEST_F(WriteBack, PassesEqualValuesOfWhatCannotBeSetAndRefusesOthersBeforeWriting) {
  auto item = now(file_);
  CommonValues values = {.script = 0,
                         .createdTime = item.createdTime,
                         .attributeChangedTime = item.attributeChangedTime,
                         .access = 0640};
  constexpr auto kSet = ATTR_CMN_SCRIPT | ATTR_CMN_CRTIME | ATTR_CMN_CHGTIME | ATTR_CMN_ACCESSMASK;
  EXPECT_EQ(put(file_, kSet, values), 0);
  EXPECT_EQ(modeOf(file_), 0640u);

  for (auto attribute : {ATTR_CMN_SCRIPT, ATTR_CMN_CRTIME, ATTR_CMN_CHGTIME}) {
    EXPECT_EQ(
        put(file_, attribute | ATTR_CMN_ACCESSMASK,
            {.script = 1, .createdTime = {1, 1}, .attributeChangedTime = {1, 1}, .access = 0}),
        ENOTSUP);
  }
  EXPECT_EQ(modeOf(file_), 0640u);
}

TEST_F(WriteBack, RefusesTimesThatAreNone) {
  for (long nanoseconds : {UTIME_NOW, UTIME_OMIT, -1L, 1'000'000'000L}) {
    EXPECT_EQ(put(file_, ATTR_CMN_MODTIME | ATTR_CMN_ACCESSMASK,
                  {.modifiedTime = {1, nanoseconds}, .access = 0}),
              EINVAL);
  }
  EXPECT_EQ(modeOf(file_), 0644u);
}

TEST_F(WriteBack, SetsFlagsAndReportsThemAsTheSystems) {
  int result = put(file_, ATTR_CMN_FLAGS, {.flags = UF_NODUMP | UF_IMMUTABLE});
  if (result == ENOTSUP || result == EPERM) GTEST_SKIP() << "no file flags here";
  EXPECT_EQ(result, 0);
  EXPECT_EQ(now(file_).flags, UF_NODUMP | SF_IMMUTABLE);
  EXPECT_EQ(put(file_, ATTR_CMN_ACCESSMASK, {.access = 0600}), EPERM);
  // With the flags in the set, the restriction is off meanwhile.
  EXPECT_EQ(put(file_, ATTR_CMN_ACCESSMASK | ATTR_CMN_FLAGS, {.access = 0600, .flags = SF_APPEND}),
            0);
  EXPECT_EQ(now(file_).flags, SF_APPEND);
  EXPECT_EQ(modeOf(file_), 0600u);
}

TEST_F(WriteBack, RefusesFlagsThatLinuxDoesNotHave) {
  constexpr std::uint32_t kHidden = 0x8000;
  EXPECT_EQ(put(file_, ATTR_CMN_FLAGS, {.flags = kHidden}), ENOTSUP);
  EXPECT_EQ(put(file_, ATTR_CMN_FLAGS, {.flags = UF_COMPRESSED}), ENOTSUP);
  EXPECT_EQ(put("/dev/null", ATTR_CMN_FLAGS, {.flags = UF_NODUMP}), ENOTSUP);
}

TEST_F(WriteBack, UndoesWhatItDidWhenALaterStepFails) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  ASSERT_EQ(::chown(file_.c_str(), 1234, 1234), 0);
  {
    // The mode can be changed by its owner, the immutable flag cannot be set by him.
    AsUser user(1234);
    int result = put(file_, ATTR_CMN_ACCESSMASK | ATTR_CMN_MODTIME | ATTR_CMN_FLAGS,
                     {.modifiedTime = {1, 0}, .access = 0600, .flags = SF_IMMUTABLE});
    EXPECT_TRUE(result == EPERM || result == ENOTSUP) << result;
  }
  EXPECT_EQ(modeOf(file_), 0644u);
  EXPECT_NE(now(file_).modifiedTime.tv_sec, 1);
}

}  // namespace
}  // namespace hoist::attrlist
