// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// Processes in every state, and what the sampler leaves behind.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "ParsedReport.h"
#include "Programs.h"

namespace hoist::sample {
namespace {

class SamplerTarget : public testing::Test {
 protected:
  std::vector<std::string> arguments(pid_t id, const std::string& seconds) {
    return {std::to_string(id), "-file", folder_.path("report"), "-duration", seconds};
  }
  // The sampler refuses, says why in one line, and leaves no file.
  std::string refusal(pid_t id) {
    const Outcome outcome = runSampler(arguments(id, "0.1"));
    EXPECT_EQ(outcome.status, 1);
    EXPECT_FALSE(std::filesystem::exists(folder_.path("report")));
    EXPECT_TRUE(outcome.output.starts_with("sample: ")) << outcome.output;
    EXPECT_EQ(outcome.output.find('\n'), outcome.output.size() - 1) << outcome.output;
    return outcome.output;
  }
  // Every thread of the process is free and running or asleep.
  static bool isFree(pid_t id) {
    bool free = true;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(id) + "/task")) {
      const pid_t thread = std::stoi(entry.path().filename());
      const std::string state = statusField(thread, "State");
      free = free && statusField(thread, "TracerPid") == "0" &&
             (state.starts_with("R") || state.starts_with("S"));
    }
    return free;
  }

  TestFolder folder_;
};

TEST_F(SamplerTarget, IsLeftRunningWhenTheSamplerIsKilled) {
  Target target("bare", "stir", 4, 20);
  for (int i = 0; i < 40; ++i) {
    Program sampler(samplerCommand(arguments(target.id(), "600")));
    ASSERT_TRUE(isHeldSoon(target.id()));
    // Let it take between no sample and some: at every stage of its work, sooner or later.
    for (int turn = 0; turn < i % 8; ++turn) target.turns();
    ::kill(sampler.id(), SIGKILL);
    ASSERT_EQ(sampler.wait(), 128 + SIGKILL);
    ASSERT_TRUE(eventually([&] { return isFree(target.id()); })) << "in round " << i;
    const unsigned long before = target.turns();
    ASSERT_TRUE(eventually([&] { return target.turns() > before; }));
  }
}

TEST_F(SamplerTarget, IsLeftRunningAfterAnOrdinaryEnd) {
  Target target("bare", "stir", 4, 20);
  EXPECT_EQ(runSampler(arguments(target.id(), "0.2")).status, 0);
  EXPECT_TRUE(eventually([&] { return isFree(target.id()); }));
}

TEST_F(SamplerTarget, StaysStoppedIfItWas) {
  Target target("bare", "stir", 2, 5);
  ::kill(target.id(), SIGSTOP);
  auto isStopped = [&] { return statusField(target.id(), "State").starts_with("T"); };
  ASSERT_TRUE(eventually(isStopped));
  EXPECT_EQ(runSampler(arguments(target.id(), "0.2")).status, 0);
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_EQ(report.header["Threads"], "3");
  EXPECT_GT(report.countOf("kitchen::stir"), 0u);
  EXPECT_TRUE(isStopped());
  ::kill(target.id(), SIGCONT);
  EXPECT_TRUE(eventually([&] { return isFree(target.id()); }));
}

TEST_F(SamplerTarget, StaysStoppedIfTheSamplerIsKilled) {
  Target target("bare", "stir", 2, 5);
  ::kill(target.id(), SIGSTOP);
  Program sampler(samplerCommand(arguments(target.id(), "600")));
  ASSERT_TRUE(isHeldSoon(target.id()));
  ::kill(sampler.id(), SIGKILL);
  sampler.wait();
  EXPECT_TRUE(
      eventually([&] { return statusField(target.id(), "State").starts_with("T (stopped)"); }));
}

TEST_F(SamplerTarget, MayHaveAThreadThatTheKernelDoesNotLetStop) {
  Target target("bare", "vfork", 1, 5);
  EXPECT_EQ(runSampler(arguments(target.id(), "0.2")).status, 0);
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_EQ(report.countOf("out of reach: "), report.threadTotal() / 2);
  EXPECT_EQ(report.countOf("main  (in "), report.threadTotal() / 2);
}

TEST_F(SamplerTarget, MayBeStoppedAndContinuedMeanwhile) {
  Target target("bare", "stir", 2, 5);
  Program sampler(samplerCommand(arguments(target.id(), "600")));
  ASSERT_TRUE(isHeldSoon(target.id()));
  for (int i = 0; i < 5; ++i) {
    ::kill(target.id(), SIGSTOP);
    int status = 0;
    ASSERT_EQ(::waitpid(target.id(), &status, WUNTRACED), target.id());
    ASSERT_TRUE(WIFSTOPPED(status));  // its parent hears of it as ever
    ::kill(target.id(), SIGCONT);
    const unsigned long before = target.turns();
    ASSERT_TRUE(eventually([&] { return target.turns() > before; }));
  }
  ::kill(sampler.id(), SIGINT);
  EXPECT_EQ(sampler.wait(), 0);
  EXPECT_EQ(ParsedReport(folder_.contents("report")).contradiction(), "");
  EXPECT_TRUE(eventually([&] { return isFree(target.id()); }));
}

TEST_F(SamplerTarget, MayBeTheSamplersOwnParent) {
  const pid_t self = ::getpid();
  const Outcome outcome = runSampler(arguments(self, "0.2"));
  EXPECT_EQ(outcome.status, 0) << outcome.output;
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_EQ(report.header["Process"].substr(report.header["Process"].find(' ')),
            " [" + std::to_string(self) + "]");
  EXPECT_TRUE(report.has("runSampler"));
}

TEST_F(SamplerTarget, IsNotAProcessThatDoesNotExist) {
  Target target("bare");
  const pid_t gone = target.id();
  ::kill(gone, SIGKILL);
  target.wait();
  EXPECT_EQ(refusal(gone), "sample: there is no process " + std::to_string(gone) + "\n");
}

TEST_F(SamplerTarget, ThatIsNoneEndsTheSamplerWithItsStatusThoughNobodyCanBeTold) {
  for (const char* errors : {"2>/dev/full", "2>&-"}) {
    Program shell(
        {"/bin/sh", "-c", std::string("exec " HOIST_BUILD_DIR "/bin/sample 0 ") + errors});
    EXPECT_EQ(shell.wait(), 2) << errors;
  }
}

TEST_F(SamplerTarget, IsNotAZombie) {
  Target target("bare");
  ::kill(target.id(), SIGKILL);
  // Its first thread may end before the others: the whole of it is waited for, and left unreaped.
  siginfo_t end;
  ASSERT_EQ(::waitid(P_PID, static_cast<id_t>(target.id()), &end, WEXITED | WNOWAIT), 0);
  EXPECT_EQ(refusal(target.id()),
            "sample: process " + std::to_string(target.id()) + " has ended (it is a zombie)\n");
}

TEST_F(SamplerTarget, IsNotAThreadOfTheKernel) {
  if (statusField(2, "Name") != "kthreadd") GTEST_SKIP() << "none to be seen here";
  EXPECT_NE(refusal(2).find("a thread of the kernel"), std::string::npos);
}

TEST_F(SamplerTarget, IsNotASingleThread) {
  Target target("bare", "wait", 1, 1);
  pid_t thread = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator("/proc/" + std::to_string(target.id()) + "/task")) {
    thread = std::max(thread, static_cast<pid_t>(std::stoi(entry.path().filename())));
  }
  ASSERT_NE(thread, target.id());
  EXPECT_NE(refusal(thread).find("is a thread, not a process"), std::string::npos);
}

TEST_F(SamplerTarget, IsNotTheSamplerItself) {
  // The shell's number becomes the sampler's.
  Program shell({"/bin/sh", "-c", "exec " HOIST_BUILD_DIR "/bin/sample $$ -duration 0.1 2>&1"});
  EXPECT_EQ(shell.readLine(), "sample: a sampler cannot sample itself");
  EXPECT_EQ(shell.wait(), 1);
}

TEST_F(SamplerTarget, IsNotHeldByTwo) {
  Target target("bare");
  TestFolder other;
  Program first(samplerCommand(
      {std::to_string(target.id()), "-file", other.path("report"), "-duration", "600"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  EXPECT_NE(refusal(target.id()).find("may not be traced"), std::string::npos);
}

TEST_F(SamplerTarget, MayHaveANameThatLooksLikeAStatusLine) {
  std::filesystem::copy(targetPath("bare"), folder_.path("a) R 1 ("));
  Target target(folder_.path("a) R 1 ("));
  EXPECT_EQ(runSampler(arguments(target.id(), "0.1")).status, 0);
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.header["Process"], "a) R 1 ( [" + std::to_string(target.id()) + "]");
  EXPECT_EQ(report.header["Parent"], std::to_string(::getpid()));
  EXPECT_EQ(report.contradiction(), "");
}

}  // namespace
}  // namespace hoist::sample
