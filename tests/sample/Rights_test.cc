// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// Who may write what, and what is left of root. The interesting starts need root.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "ParsedReport.h"
#include "Programs.h"

namespace hoist::sample {
namespace {

// A user that exists in no database, and one that owns nothing.
constexpr uid_t kClient = 54321;
constexpr uid_t kNobody = 65534;

void becomeClient() {
  if (::setgroups(0, nullptr) != 0 || ::setresgid(kClient, kClient, kClient) != 0 ||
      ::setresuid(kClient, kClient, kClient) != 0) {
    ::_exit(9);
  }
}

// As the daemon starts the tool: real user the client's, effective user root.
void startForClient() {
  if (::setregid(kClient, 0) != 0 || ::setresuid(kClient, 0, 0) != 0) ::_exit(9);
}

// As the hoist starts a helper for the client.
void becomeHelper() {
  if (::setresuid(0, kClient, kClient) != 0) ::_exit(9);
}

// A process of the client's own.
struct ClientsTarget : Target {
  ClientsTarget() : Target("bare", "stir", 1, 5, becomeClient) {}
};

class SamplerRights : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become others";
    std::filesystem::create_directory(folder_.path("clients"));
    ASSERT_EQ(::chown(folder_.path("clients").c_str(), kClient, kClient), 0);
    std::filesystem::create_directory(folder_.path("roots"));
    ::chmod(folder_.path("roots").c_str(), 0700);
  }
  std::vector<std::string> arguments(pid_t id, const std::string& report,
                                     const std::string& seconds = "0.1") {
    return {std::to_string(id), "-file", folder_.path(report), "-duration", seconds};
  }
  struct stat statusOf(const std::string& name) {
    struct stat status {};
    EXPECT_EQ(::lstat(folder_.path(name).c_str(), &status), 0) << name;
    return status;
  }

  TestFolder folder_;
};

TEST_F(SamplerRights, OfTheClientDecideWhereAReportMayGo) {
  ClientsTarget target;
  Outcome outcome = runSampler(arguments(target.id(), "clients/report"), startForClient);
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_EQ(ParsedReport(folder_.contents("clients/report")).contradiction(), "");
  EXPECT_TRUE(ParsedReport(folder_.contents("clients/report")).has("kitchen::stir"));
  EXPECT_EQ(statusOf("clients/report").st_uid, kClient);

  outcome = runSampler(arguments(target.id(), "roots/report"), startForClient);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("Permission denied"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("roots/report")));
}

TEST_F(SamplerRights, OfTheClientDecideWhatMayBeOverwritten) {
  ClientsTarget target;
  folder_.write("clients/roots file", "precious");
  ::chmod(folder_.path("clients/roots file").c_str(), 0644);
  EXPECT_EQ(runSampler(arguments(target.id(), "clients/roots file"), startForClient).status, 1);
  EXPECT_EQ(folder_.contents("clients/roots file"), "precious");

  folder_.write("clients/own", "old");
  ASSERT_EQ(::chown(folder_.path("clients/own").c_str(), kClient, kClient), 0);
  ::chmod(folder_.path("clients/own").c_str(), 0600);
  EXPECT_EQ(runSampler(arguments(target.id(), "clients/own"), startForClient).status, 0);
  EXPECT_TRUE(folder_.contents("clients/own").starts_with("Sample of process"));
  EXPECT_EQ(statusOf("clients/own").st_mode & 07777, 0600u);
}

TEST_F(SamplerRights, AreNotLentToAGroupOfRoot) {
  ClientsTarget target;
  std::filesystem::create_directory(folder_.path("groups"));
  ::chmod(folder_.path("groups").c_str(),
          0770);  // root:root, and the tool starts with root's groups
  EXPECT_EQ(runSampler(arguments(target.id(), "groups/report"),
                       [] {
                         const gid_t root = 0;
                         ::setgroups(1, &root);
                         startForClient();
                       })
                .status,
            1);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("groups/report")));
}

TEST_F(SamplerRights, FollowNoLink) {
  ClientsTarget target;
  folder_.write("precious", "precious");
  ::chmod(folder_.path("precious").c_str(), 0666);
  std::filesystem::create_symlink(folder_.path("precious"), folder_.path("clients/link"));
  std::filesystem::create_symlink(folder_.path("nowhere"), folder_.path("clients/loose"));
  for (const auto& prepare : {std::function<void()>(startForClient), std::function<void()>()}) {
    for (const char* name : {"clients/link", "clients/loose"}) {
      const Outcome outcome = runSampler(arguments(target.id(), name), prepare);
      EXPECT_EQ(outcome.status, 1);
      EXPECT_NE(outcome.output.find("symbolic link"), std::string::npos) << outcome.output;
    }
  }
  EXPECT_EQ(folder_.contents("precious"), "precious");
  EXPECT_FALSE(std::filesystem::exists(folder_.path("nowhere")));
}

TEST_F(SamplerRights, WriteToRegularFilesOnly) {
  ClientsTarget target;
  ASSERT_EQ(::mkfifo(folder_.path("fifo").c_str(), 0666), 0);
  FileDescriptor reader(::open(folder_.path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  for (const std::string& path : {folder_.path("fifo"), folder_.path("clients"),
                                  std::string("/dev/null"), std::string("/dev/full")}) {
    const Outcome outcome = runSampler({std::to_string(target.id()), "-file", path});
    EXPECT_EQ(outcome.status, 1) << path;
    EXPECT_TRUE(outcome.output.starts_with("sample: cannot write ")) << outcome.output;
  }
}

TEST_F(SamplerRights, AreGoneOnceAttached) {
  ClientsTarget target;
  for (bool forClient : {false, true}) {
    Program sampler(samplerCommand(arguments(target.id(), "clients/report", "600")),
                    forClient ? std::function<void()>(startForClient) : std::function<void()>());
    ASSERT_TRUE(isHeldSoon(target.id()));
    const std::string user = std::to_string(forClient ? kClient : kNobody);
    const std::string all = user + "\t" + user + "\t" + user + "\t" + user;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(sampler.id()) + "/task")) {
      const pid_t thread = std::stoi(entry.path().filename());
      EXPECT_TRUE(eventually([&] { return statusField(thread, "Uid") == all; }));
      // A user that is in no database has nobody's group.
      EXPECT_EQ(statusField(thread, "Gid"), "65534\t65534\t65534\t65534");
      EXPECT_EQ(statusField(thread, "Groups"), "");
      for (const char* set : {"CapEff", "CapPrm", "CapInh", "CapAmb"}) {
        EXPECT_EQ(statusField(thread, set), "0000000000000000") << set;
      }
    }
    // This one each thread gives up for itself: the first one and the one that traces.
    for (pid_t thread : {sampler.id(), std::stoi(statusField(target.id(), "TracerPid"))}) {
      EXPECT_TRUE(eventually([&] { return statusField(thread, "NoNewPrivs") == "1"; }));
    }
    ::kill(sampler.id(), SIGINT);
    EXPECT_EQ(sampler.wait(), 0);
    EXPECT_EQ(ParsedReport(folder_.contents("clients/report")).contradiction(), "");
    ::unlink(folder_.path("clients/report").c_str());
  }
}

TEST_F(SamplerRights, OfAnOrdinaryUserAreEnoughForItsOwnProcess) {
  Target target("bare", "stir", 2, 5, becomeClient);
  const Outcome outcome = runSampler(arguments(target.id(), "clients/report", "0.3"), becomeClient);
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  ParsedReport report(folder_.contents("clients/report"));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_TRUE(report.has("kitchen::stir(unsigned int)  (in bare)"));
}

TEST_F(SamplerRights, OfAnOrdinaryUserAreNotEnoughForAnothersProcess) {
  Target roots("bare");
  Outcome outcome = runSampler(arguments(roots.id(), "clients/report"), becomeClient);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("may not be looked into: Permission denied"), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(folder_.path("clients/report")));
  EXPECT_EQ(runSampler(arguments(1, "clients/report"), becomeClient).status, 1);
}

TEST_F(SamplerRights, OfRootAreNotLentForAnothersProcess) {
  const std::function<void()> others[] = {
      {},  // root's
      [] {
        if (::setresuid(kClient + 1, kClient + 1, kClient + 1) != 0) ::_exit(9);
      },
      [] {
        if (::setresuid(kClient, 0, 0) != 0) ::_exit(9);  // started by the client, set-user-ID
      },
      [] {
        if (::setresuid(0, kClient + 1, kClient + 1) != 0) ::_exit(9);  // another user's helper
      }};
  for (const auto& become : others) {
    Target target("bare", "stir", 1, 5, become);
    const Outcome outcome = runSampler(arguments(target.id(), "clients/report"), startForClient);
    EXPECT_EQ(outcome.output, "sample: process " + std::to_string(target.id()) +
                                  " is not for user " + std::to_string(kClient) +
                                  " to look into\n");
    EXPECT_EQ(outcome.status, 1);
    EXPECT_FALSE(std::filesystem::exists(folder_.path("clients/report")));
  }
}

TEST_F(SamplerRights, OfRootAreNotLentForASecretOfTheClientsProcess) {
  // Not dumpable: the kernel shows it to root only, as a program with capabilities.
  Target target("bare", "secret", 1, 5, becomeClient);
  const Outcome outcome = runSampler(arguments(target.id(), "clients/report"), startForClient);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.output.find("not for user"), std::string::npos) << outcome.output;
  // Root itself may.
  EXPECT_EQ(runSampler(arguments(target.id(), "report")).status, 0);
}

TEST_F(SamplerRights, OfRootAreLentForTheClientsHelper) {
  Target target("bare", "stir", 1, 5, becomeHelper);
  const Outcome outcome = runSampler(arguments(target.id(), "clients/report"), startForClient);
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  EXPECT_TRUE(ParsedReport(folder_.contents("clients/report")).has("kitchen::stir"));
}

TEST_F(SamplerRights, ReachTheReportBeforeAnythingElse) {
  // Neither the process nor its absence is told to somebody who may not write there.
  for (pid_t id : {::getpid(), pid_t{INT_MAX}}) {
    const Outcome outcome = runSampler(arguments(id, "roots/report"), startForClient);
    EXPECT_EQ(outcome.output,
              "sample: cannot write " + folder_.path("roots/report") + ": Permission denied\n");
  }
}

TEST_F(SamplerRights, KeepAnOldReportUntilThereIsANewOne) {
  folder_.write("report", "old");
  EXPECT_EQ(runSampler(arguments(INT_MAX, "report")).status, 1);
  EXPECT_EQ(folder_.contents("report"), "old");
  folder_.write("report", std::string(1'000'000, 'x'));
  Target target("bare");
  EXPECT_EQ(runSampler(arguments(target.id(), "report")).status, 0);
  EXPECT_EQ(folder_.contents("report").find('\n', folder_.contents("report").size() - 1),
            folder_.contents("report").size() - 1);
  EXPECT_EQ(folder_.contents("report").find("xxxx"), std::string::npos);
}

}  // namespace
}  // namespace hoist::sample
