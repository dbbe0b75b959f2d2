// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "process/Process.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

#include "platform/ChildTask.h"
#include "platform/FacilityLevel.h"
#include "process/TextPipeReader.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uid_t kUser = 20001;
constexpr gid_t kGroup = 20002;

// The class as it is on another version of the system.
class OnVersion {
 public:
  explicit OnVersion(std::uint32_t version) : level_(std::in_place, version) {
    Process::initialize();
  }
  ~OnVersion() {
    level_.reset();
    Process::initialize();
  }

 private:
  std::optional<FacilityLevelOverride> level_;
};

std::string nicknameOf(std::uint32_t version) {
  OnVersion system(version);
  return Process::osNickname();
}

TEST(Process, KnowsTheNameOfEveryRelease) {
  const struct {
    std::uint32_t first;
    std::uint32_t last;
    const char* name;
  } releases[] = {
      {0, 0x0A03FF, "Panther (or earlier)"}, {0x0A0400, 0x0A04FF, "Tiger"},
      {0x0A0500, 0x0A05FF, "Leopard"},       {0x0A0600, 0x0A06FF, "Snow Leopard"},
      {0x0A0700, 0x0A07FF, "Lion"},          {0x0A0800, 0x0A08FF, "Mountain Lion"},
      {0x0A0900, 0x0A09FF, "Mavericks"},     {0x0A0A00, 0x0A0AFF, "Yosemite"},
      {0x0A0B00, 0x0A0BFF, "El Capitan"},    {0x0A0C00, 0x0A0CFF, "Sierra"},
      {0x0A0D00, 0x0A0DFF, "High Sierra"},   {0x0A0E00, 0x0A0EFF, "Mojave"},
      {0x0A0F00, 0x0A0FFF, "Catalina"},      {0x0A1000, 0x0AFFFF, "Unknown"},
      {0x0B0000, 0xFFFFFFFF, "Unknown"},
  };
  for (const auto& release : releases) {
    EXPECT_EQ(nicknameOf(release.first), release.name) << std::hex << release.first;
    EXPECT_EQ(nicknameOf(release.last), release.name) << std::hex << release.last;
  }
}

TEST(Process, KnowsWhichReleasesItIsNotOlderThan) {
  bool (*const later[])() = {Process::isYosemiteOrLater, Process::isElCapitanOrLater,
                             Process::isSierraOrLater,   Process::isHighSierraOrLater,
                             Process::isMojaveOrLater,   Process::isCatalinaOrLater};
  for (std::uint32_t i = 0; i < std::size(later); ++i) {
    const std::uint32_t first = packedVersion(10, 10 + i);
    {
      OnVersion before(first - 1);
      EXPECT_FALSE(later[i]()) << i;
    }
    OnVersion since(first);
    EXPECT_TRUE(later[i]()) << i;
  }
  OnVersion old(packedVersion(10, 3));
  EXPECT_TRUE(Process::isTigerOrLater() && Process::isLeopardOrLater() &&
              Process::isSnowLeopardOrLater() && Process::isLionOrLater() &&
              Process::isMountainLionOrLater() && Process::isMavericksOrLater());
}

TEST(Process, RunsOnTheVersionThatThePlatformSupplies) {
  EXPECT_EQ(Process::osVersion(), 0x0A0F07u);
  EXPECT_EQ(Process::osNickname(), "Catalina");
  EXPECT_TRUE(Process::isCatalinaOrLater());
  OnVersion other(packedVersion(10, 14, 6));
  EXPECT_EQ(Process::osVersion(), 0x0A0E06u);
}

TEST(Process, TellsTheVersionAsItsTimeDid) {
  utsname system;
  ::uname(&system);
  EXPECT_THAT(Process::readableOSVersion(), StartsWith("macOS Version 10.15.7 ("));
  EXPECT_THAT(Process::readableOSVersion(), HasSubstr(std::string(", Linux ") + system.release));
  const struct {
    std::uint32_t version;
    const char* beginning;
  } texts[] = {
      {0x0A0705, "Mac OS X Version 10.7.5 ("}, {0x0A07FF, "Mac OS X Version 10.7.255 ("},
      {0x0A0800, "OS X Version 10.8.0 ("},     {0x0A0BFF, "OS X Version 10.11.255 ("},
      {0x0A0C00, "macOS Version 10.12.0 ("},   {0x0B0000, "macOS Version 11.0.0 ("},
  };
  for (const auto& text : texts) {
    OnVersion system(text.version);
    EXPECT_THAT(Process::readableOSVersion(), StartsWith(text.beginning));
  }
}

TEST(Process, LiesBetweenTwoVersions) {
  const std::uint32_t here = Process::osVersion();
  EXPECT_TRUE(Process::isOrLaterThanOSVersion(here, here + 1));
  EXPECT_TRUE(Process::isOrLaterThanOSVersion(0, 0xFFFFFFFF));
  EXPECT_FALSE(Process::isOrLaterThanOSVersion(here, here));
  EXPECT_FALSE(Process::isOrLaterThanOSVersion(here + 1, here + 2));
  EXPECT_FALSE(Process::isOrLaterThanOSVersion(0, here));
}

TEST(Process, HasALongerQueueThanProcessorsWhereThereAreFew) {
  EXPECT_EQ(Process::optimalConcurrentQueueSize(1), 2u);
  EXPECT_EQ(Process::optimalConcurrentQueueSize(4), 5u);
  EXPECT_EQ(Process::optimalConcurrentQueueSize(5), 5u);
  EXPECT_EQ(Process::optimalConcurrentQueueSize(8), 8u);
}

TEST(Process, CountsTheProcessorsThatItMayUse) {
  cpu_set_t before;
  ASSERT_EQ(::sched_getaffinity(0, sizeof before, &before), 0);
  EXPECT_EQ(Process::cpuCount(), static_cast<unsigned>(CPU_COUNT(&before)));
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<unsigned>(::sched_getcpu()), &one);
  ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EQ(Process::cpuCount(), 1u);
  EXPECT_EQ(Process::optimalConcurrentQueueSize(), 2u);
  ASSERT_EQ(::sched_setaffinity(0, sizeof before, &before), 0);
}

double secondsOf(clockid_t clock) {
  timespec time;
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

TEST(Process, KnowsHowLongTheSystemHasBeenUp) {
  const struct {
    std::uint32_t version;
    clockid_t clock;
  } clocks[] = {{packedVersion(10, 15, 7), CLOCK_BOOTTIME},
                {packedVersion(10, 11), CLOCK_MONOTONIC_COARSE},
                {packedVersion(10, 9), CLOCK_MONOTONIC}};
  for (const auto& each : clocks) {
    OnVersion system(each.version);
    const double before = secondsOf(each.clock);
    const double upTime = Process::upTimeInterval();
    EXPECT_GE(upTime, before - 1e-6);
    EXPECT_LE(upTime, secondsOf(each.clock) + 1e-6);
  }
}

TEST(Process, StaysRootIfItBeganSo) {
  if (::geteuid() != 0) GTEST_SKIP() << "not root";
  Process::initialize();
  EXPECT_EQ(Process::userID(), 0u);
  EXPECT_EQ(Process::groupID(), ::getegid());
  EXPECT_TRUE(Process::runAsUser());
  EXPECT_EQ(::geteuid(), 0u);
  EXPECT_TRUE(Process::runAsRoot());
  EXPECT_TRUE(Process::isPrivileged() && Process::isRunningAsRoot() && Process::isRunningAsUser());
  Process::setAllowRootUser(false);
  EXPECT_TRUE(Process::isRunningAsRoot());
}

TEST(Process, CannotBecomeRootWithoutTheRight) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setresgid(kGroup, kGroup, kGroup) != 0 || ::setresuid(kUser, kUser, kUser) != 0)
      ::_exit(9);
    Process::initialize();
    const bool isAsExpected = !Process::runAsRoot() && ::geteuid() == kUser &&
                              !Process::isPrivileged() && Process::runAsUser() &&
                              Process::isRunningAsUser() && Process::groupID() == kGroup;
    ::_exit(isAsExpected ? 0 : 1);
  }
  int status = 1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

TEST(Process, GivesUpTheUserBeforeTheGroup) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to become another user";
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setresgid(0, kGroup, kGroup) != 0 || ::setresuid(0, kUser, kUser) != 0) ::_exit(9);
    Process::initialize();
    if (!Process::runAsRoot() || ::getegid() != 0) ::_exit(8);
    // The group of the start is no longer one that a user may go back to, only root could.
    if (::setresgid(0, 0, 0) != 0) ::_exit(7);
    ::_exit(Process::runAsUser() && ::geteuid() == kUser && ::getegid() == 0 ? 0 : 1);
  }
  int status = 1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

// The probe, copied to a folder of its own.
class ProcessProbe : public testing::Test {
 protected:
  ProcessProbe() { std::filesystem::copy_file(HOIST_BUILD_DIR "/bin/process_probe", probe_); }

  TextPipeReader::Lines run(const std::string& what) {
    auto reader = make<TextPipeReader>();
    // A set-user-ID program cannot be searched for leaks.
    auto task = ChildTask::launch({.launchPath = probe_,
                                   .arguments = {what},
                                   .environment = {{{"ASAN_OPTIONS", "detect_leaks=0"}}},
                                   .standardOutput = reader->pipe().writing.get()});
    reader->startReading();
    const TextPipeReader::Lines lines = *reader->lines();
    task->waitUntilExit();
    EXPECT_EQ(task->terminationStatus(), 0);
    return lines;
  }

  TemporaryFolder folder_;
  const std::string probe_ = folder_ / "probe";
};

TEST_F(ProcessProbe, StartedSetUserIDChangesEveryThread) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a set-user-ID program";
  struct statvfs mount;
  ASSERT_EQ(::statvfs(probe_.c_str(), &mount), 0);
  if ((mount.f_flag & ST_NOSUID) != 0) GTEST_SKIP() << "no set-user-ID programs here";
  ASSERT_EQ(::chown(probe_.c_str(), kUser, kGroup), 0);
  ASSERT_EQ(::chmod(probe_.c_str(), 06755), 0);
  const std::string asUser = fmt::format("[Uid: 0 {0} {0} {0} Gid: 0 {1} {1} {1}]", kUser, kGroup);
  const std::string asRoot = fmt::format("[Uid: 0 0 {} 0 Gid: 0 0 {} 0]", kUser, kGroup);
  EXPECT_THAT(run("identity"), ElementsAre("start yes privileged user " + asUser,
                                           "runAsUser yes privileged user " + asUser,
                                           "runAsRoot yes privileged root " + asRoot,
                                           "runAsRoot yes privileged root " + asRoot,
                                           "runAsUser yes privileged user " + asUser));
}

TEST_F(ProcessProbe, AsksTheToolBesideItForTheSystemsIntegrityOnce) {
  const struct {
    std::string output;
    std::string answer;
    TextPipeReader::Lines lines;
  } tools[] = {
      {"echo 'System Integrity Protection status: enabled.'",
       "YES",
       {"System Integrity Protection status: enabled."}},
      {"echo 'System Integrity Protection status: disabled.'",
       "NO",
       {"System Integrity Protection status: disabled."}},
      {"printf '\\nenabled\\nmore\\n'", "YES", {"enabled", "more"}},
      {"printf 'no\\nenabled\\n'", "NO", {"no", "enabled"}},
      {"exit 0", "NO", {}},
      {"printf 'enabled \\377\\n'", "NO", {}},
  };
  for (const auto& tool : tools) {
    const std::string path =
        folder_.write("csrutil", "#!/bin/sh\n[ \"$*\" = status ] || exit 1\necho x >>" +
                                     (folder_ / "runs") + "\n" + tool.output + "\n");
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
    folder_.write("runs", "");
    TextPipeReader::Lines expected = {tool.answer, tool.answer,
                                      "9 +[Process isSIPEnabled] SIP status=" + tool.answer,
                                      "9 " + path + ":"};
    for (std::size_t i = 0; i < tool.lines.size(); ++i) {
      expected.push_back(fmt::format("9 [{}]: {}", i, tool.lines[i]));
    }
    EXPECT_EQ(run("sip"), expected);
    EXPECT_EQ(std::filesystem::file_size(folder_ / "runs"), 2u);
  }
}

TEST_F(ProcessProbe, UnderstandsTheToolOfThisSystem) {
  std::filesystem::copy_file(HOIST_BUILD_DIR "/bin/csrutil", folder_ / "csrutil");
  const auto lines = run("sip");
  ASSERT_GE(lines.size(), 2u);
  EXPECT_TRUE(lines[0] == "YES" || lines[0] == "NO");
  EXPECT_THAT(testing::PrintToString(lines),
              HasSubstr(lines[0] == "YES" ? "status: enabled." : "status: disabled."));
}

TEST(Process, HasNoSystemIntegrityBeforeElCapitan) {
  // Nobody is asked: there is no tool beside this program.
  OnVersion system(packedVersion(10, 10, 5));
  EXPECT_FALSE(Process::isSIPEnabled());
}

}  // namespace
}  // namespace hoist
