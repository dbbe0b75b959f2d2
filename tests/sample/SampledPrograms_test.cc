// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// The sampler on real programs of every kind.
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>

#include "ParsedReport.h"
#include "Programs.h"
#include "sample/Report.h"
#include "sample/Sampler.h"
#include "sample/TargetProcess.h"

namespace hoist::sample {
namespace {

class SampledProgram : public testing::Test {
 protected:
  // Samples the process for a short time; the run must be a success.
  ParsedReport sample(pid_t id, std::vector<std::string> more = {"-duration", "0.3"}) {
    std::vector<std::string> arguments = {std::to_string(id), "-file", folder_.path("report")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = runSampler(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(outcome.output, "");
    ParsedReport report(folder_.contents("report"));
    EXPECT_EQ(report.contradiction(), "") << folder_.contents("report");
    return report;
  }

  TestFolder folder_;
};

// Programs with symbols, however they were built.
class SampledProgramWithSymbols : public SampledProgram,
                                  public testing::WithParamInterface<const char*> {};

TEST_P(SampledProgramWithSymbols, ShowsEveryThreadWithItsFunctions) {
  Target target(GetParam(), "stir", 3, 12);
  ParsedReport report = sample(target.id());
  EXPECT_EQ(report.header["Threads"], "4");
  EXPECT_EQ(report.header["Process"],
            std::string(GetParam()) + " [" + std::to_string(target.id()) + "]");
  EXPECT_EQ(report.header["Path"], targetPath(GetParam()));
  EXPECT_EQ(report.header["Parent"], std::to_string(::getpid()));
  for (const char* thread : {"\"cook 0\"", "\"cook 1\"", "\"cook 2\""})
    EXPECT_TRUE(report.has(thread));
  // Whole stacks: each begins with the thread's first function and goes down all twelve levels.
  const std::uint64_t threads = report.threadTotal();
  EXPECT_EQ(report.countOf("main  (in "), threads / 4);
  EXPECT_EQ(report.countOf("clone3  (in ") + report.countOf("_start  (in "), threads);
  std::size_t descents = 0;
  for (const auto& line : report.graph)
    descents += line.text.starts_with("kitchen::Cook::descend(int)");
  EXPECT_EQ(descents, 3 * 13u);
  EXPECT_GT(report.countOf("kitchen::stir(unsigned int)  (in "), threads / 4);
}

INSTANTIATE_TEST_SUITE_P(BuiltInEveryWay, SampledProgramWithSymbols,
                         testing::Values("plain", "bare", "static"),
                         [](const auto& info) { return info.param; });

TEST_F(SampledProgram, HasItsFunctionsToldApartWithoutSymbols) {
  Target target("stripped", "stir", 1, 12);
  ParsedReport report = sample(target.id());
  EXPECT_FALSE(report.has("stir"));
  // main, the thread's beginning, descend, stirForEver and stir: five functions without a name.
  std::set<std::string> names;
  std::size_t deepest = 0;
  for (const auto& line : report.graph) {
    if (line.text.starts_with("stripped+0x"))
      names.insert(line.text.substr(0, line.text.find(' ')));
    deepest = std::max(deepest, line.depth);
  }
  EXPECT_GE(names.size(), 5u);
  EXPECT_GE(deepest, 16u);
  EXPECT_TRUE(report.has("read  (in libc"));
}

TEST_F(SampledProgram, GetsItsNamesFromASeparateDebugFile) {
  Target target("separated", "stir", 1, 3);
  ParsedReport without = sample(target.id());
  EXPECT_FALSE(without.has("kitchen::stir"));
  // "... separated  <identifier>  path"
  std::string identifier;
  for (const std::string& image : without.images) {
    if (image.find("  separated  <") == image.npos) continue;
    identifier = image.substr(image.find('<') + 1, 40);
  }
  ASSERT_EQ(identifier.size(), 40u);
  const std::string place = ".build-id/" + identifier.substr(0, 2);
  std::filesystem::create_directories(folder_.path(place));
  std::filesystem::copy(targetPath("separated.debug"),
                        folder_.path(place + "/" + identifier.substr(2) + ".debug"));
  // The program knows one folder only, so the library below it is asked, in a child.
  const pid_t child = ::fork();
  if (child == 0) {
    blockSignals();
    TargetProcess process = TargetProcess::open(target.id());
    Sampling sampling = sampleProcess(process, {.duration = std::chrono::milliseconds(200),
                                                .interval = std::chrono::milliseconds(1),
                                                .debugFolder = folder_.path(""),
                                                .dropsRights = false});
    folder_.write("report", reportText(sampling));
    ::_exit(0);
  }
  int status = 1;
  ::waitpid(child, &status, 0);
  ASSERT_EQ(status, 0);
  ParsedReport with(folder_.contents("report"));
  EXPECT_EQ(with.contradiction(), "");
  EXPECT_TRUE(with.has("kitchen::stir(unsigned int)  (in separated)"));
}

TEST_F(SampledProgram, MayBeAnInterpreter) {
  const char* python = ::access("/usr/bin/python3", X_OK) == 0 ? "/usr/bin/python3" : nullptr;
  if (python == nullptr) GTEST_SKIP() << "no Python here";
  Program target({python, "-c", "print('ready', flush=True)\nwhile True: sum(range(1000))"});
  ASSERT_EQ(target.readLine(), "ready");
  ParsedReport report = sample(target.id());
  EXPECT_EQ(report.header["Threads"], "1");
  EXPECT_GT(report.countOf("Eval"), report.threadTotal() / 2);
}

TEST_F(SampledProgram, MayLiveInAnotherMountNamespace) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to make one";
  std::filesystem::create_directory(folder_.path("hidden"));
  const std::string folder = folder_.path("hidden");
  const std::string program = folder + "/cook";
  const std::string source = targetPath("plain");
  // In its own namespace the child sees a file system that nobody else does; the copy is made
  // there.
  Target target("/bin/sh", "-c", 0, 0, [&] {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("", "/", "", MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("kitchen", folder.c_str(), "tmpfs", 0, nullptr) != 0) {
      ::_exit(9);
    }
    const std::string command = "cp " + source + " " + program + "; exec " + program + " stir 1 5";
    ::execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
  });
  ASSERT_FALSE(std::filesystem::exists(program));
  ParsedReport report = sample(target.id());
  EXPECT_EQ(report.header["Path"], program);
  EXPECT_TRUE(report.has("kitchen::stir(unsigned int)  (in cook)"));
}

TEST_F(SampledProgram, IsSeenAsleepAtItsPlace) {
  Target target("bare", "wait", 2, 5);
  ParsedReport report = sample(target.id());
  EXPECT_EQ(report.countOf("epoll_wait  (in "), report.threadTotal() * 2 / 3);
  Target resting("bare", "rest", 1, 5);
  report = sample(resting.id());
  EXPECT_EQ(report.countOf("pthread_mutex_lock"), report.threadTotal() / 2);
}

TEST_F(SampledProgram, IsUnwoundThroughASignalHandler) {
  Target target("bare", "signal", 1, 5);
  ParsedReport report = sample(target.id());
  EXPECT_GT(report.countOf("stirInHandler"), report.threadTotal() / 3);
  // Above the handler stands what was interrupted, back to the thread's beginning.
  EXPECT_EQ(report.countOf("kitchen::Cook::descend(int)"), report.countOf("stirInHandler"));
  EXPECT_EQ(report.countOf("clone3  (in "), report.countOf("stirInHandler"));
}

TEST_F(SampledProgram, MayLoadALibraryMeanwhile) {
  std::filesystem::copy(targetPath("menu.so"), folder_.path("menu.so"));
  std::filesystem::permissions(folder_.path("menu.so"), std::filesystem::perms(0755));
  Target target("bare", "wait", 1, 5);
  Program sampler(samplerCommand(
      {std::to_string(target.id()), "-file", folder_.path("report"), "-duration", "1.5"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  target.tell("serve " + folder_.path("menu.so"));
  EXPECT_EQ(sampler.wait(), 0);
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_TRUE(report.has("garnish  (in menu.so)"));
  EXPECT_EQ(report.header["Threads"], "3");
}

TEST_F(SampledProgram, MayBeginThreadsFasterThanTheyCanBeFollowed) {
  Target target("bare", "churn", 1, 5);
  // On a busy machine it may take more than one second to be that quick.
  EXPECT_TRUE(eventually([&] {
    ParsedReport report = sample(target.id(), {"-duration", "1"});
    EXPECT_TRUE(report.has("kitchen::churn()"));
    return report.header["Threads"].find("too quickly to be followed") != std::string::npos;
  }));
}

TEST_F(SampledProgram, MayEndMidway) {
  Target target("bare", "stir", 2, 5);
  Program sampler(samplerCommand(
      {std::to_string(target.id()), "-file", folder_.path("report"), "-duration", "600"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  target.turns();
  ::kill(target.id(), SIGKILL);
  EXPECT_EQ(target.wait(), 128 + SIGKILL);  // its parent hears of it as ever
  EXPECT_EQ(sampler.wait(), 0);
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_EQ(report.header["Ended"], "because the process ended");
}

TEST_F(SampledProgram, KeepsItsOwnExitStatus) {
  Target target("bare", "wait", 2, 5);
  Program sampler(samplerCommand(
      {std::to_string(target.id()), "-file", folder_.path("report"), "-duration", "600"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  target.closeInput();
  EXPECT_EQ(target.wait(), 0);
  EXPECT_EQ(sampler.wait(), 0);
}

TEST_F(SampledProgram, MayBecomeAnotherProgram) {
  Target target("bare", "stir", 2, 5);
  Program sampler(samplerCommand(
      {std::to_string(target.id()), "-file", folder_.path("report"), "-duration", "600"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  target.writeLine("exec /bin/sleep");
  EXPECT_EQ(sampler.wait(), 0);
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.contradiction(), "");
  EXPECT_EQ(report.header["Ended"], "because the process began another program");
  EXPECT_TRUE(eventually([&] { return statusField(target.id(), "TracerPid") == "0"; }));
  EXPECT_TRUE(eventually([&] { return statusField(target.id(), "Name") == "sleep"; }));
}

TEST_F(SampledProgram, GoesOnWhenItsFirstThreadHasEnded) {
  Target target("bare", "stir", 2, 5);
  target.tell("quit");
  ASSERT_TRUE(eventually([&] { return statusField(target.id(), "State").starts_with("Z"); }));
  ParsedReport report = sample(target.id());
  EXPECT_EQ(report.header["Threads"], "2");
  EXPECT_EQ(report.header["Ended"], "because the time was up");
  EXPECT_GT(report.countOf("kitchen::stir"), 0u);
}

TEST_F(SampledProgram, GetsItsReportWhenTheUserHasSeenEnough) {
  Target target("bare");
  Program sampler(samplerCommand(
      {std::to_string(target.id()), "-file", folder_.path("report"), "-duration", "600"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  ::kill(sampler.id(), SIGINT);
  EXPECT_EQ(sampler.wait(), 0);
  ParsedReport report(folder_.contents("report"));
  EXPECT_EQ(report.header["Ended"], "because the sampler was interrupted");
}

TEST_F(SampledProgram, HandlesItsSignalsAsEver) {
  Target target("bare", "wait", 1, 1);
  Program sampler(samplerCommand(
      {std::to_string(target.id()), "-file", folder_.path("report"), "-duration", "600"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  ::kill(target.id(), SIGTERM);
  EXPECT_EQ(target.wait(), 128 + SIGTERM);
  EXPECT_EQ(sampler.wait(), 0);
}

TEST_F(SampledProgram, GetsAFlameGraphOfTheSameSamples) {
  Target target("bare", "stir", 2, 5);
  ParsedReport report =
      sample(target.id(), {"-duration", "0.3", "-flamegraph", folder_.path("flames.svg")});
  const std::string picture = folder_.contents("flames.svg");
  EXPECT_NE(picture.find("data-whole=\"" + std::to_string(report.stacks) + "\""), picture.npos);
  EXPECT_NE(picture.find("kitchen::stir(unsigned int) (in bare)"), picture.npos);
}

TEST_F(SampledProgram, GetsNoFlameGraphInThePlaceOfItsReport) {
  folder_.write("report", "old");
  for (const char* same : {"report", "./report"}) {
    const Outcome outcome = runSampler({std::to_string(::getpid()), "-file", folder_.path("report"),
                                        "-flamegraph", folder_.path(same)});
    EXPECT_EQ(outcome.status, 2) << same;
    EXPECT_NE(outcome.output.find("cannot be one file"), std::string::npos) << outcome.output;
  }
  EXPECT_EQ(folder_.contents("report"), "old");
}

TEST_F(SampledProgram, IsReportedOnStandardOutputWithoutAFile) {
  Target target("bare");
  const Outcome outcome = runSampler({std::to_string(target.id()), "0.1"});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(ParsedReport(outcome.output).contradiction(), "");
  EXPECT_NE(ParsedReport(outcome.output).stacks, 0u);
}

}  // namespace
}  // namespace hoist::sample
