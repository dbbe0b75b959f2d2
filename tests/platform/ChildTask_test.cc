// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/ChildTask.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <thread>

#include "platform/DescriptorLimit.h"
#include "platform/SystemCall.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr uid_t kSomeUser = 12345;

const std::string& probePath() {
  static const auto& path = *new std::string(HOIST_BUILD_DIR "/bin/test_probe");
  return path;
}

std::string readAll(int fd) {
  std::string text;
  char buffer[4096];
  while (ssize_t got = ::read(fd, buffer, sizeof buffer)) {
    if (got < 0) break;
    text.append(buffer, static_cast<std::size_t>(got));
  }
  return text;
}

struct Run {
  std::string output;
  int status;
};

Run run(ChildTaskOptions options) {
  PipeEnds output = makePipe();
  options.standardOutput = output.writing.get();
  auto task = ChildTask::launch(options);
  output.writing.reset();
  Run result{readAll(output.reading.get()), 0};
  task->waitUntilExit();
  result.status = task->terminationStatus();
  return result;
}

TEST(ChildTask, PassesArgumentsAndTheExitStatus) {
  EXPECT_EQ(run({.launchPath = probePath(), .arguments = {"exit", "7"}}).status, 7);
  auto state = run({.launchPath = probePath(), .arguments = {"one", "two words", ""}});
  EXPECT_EQ(state.status, 0);
  EXPECT_THAT(state.output, HasSubstr("argument 0: " + probePath() +
                                      "\nargument 1: one\nargument 2: two words\nargument 3: \n"));
}

TEST(ChildTask, ReplacesTheWholeEnvironment) {
  auto state = run({.launchPath = probePath(), .environment = {{{"ONLY", "this one"}}}});
  EXPECT_THAT(state.output, HasSubstr("variable: ONLY=this one\n"));
  EXPECT_EQ(state.output.find("variable:"), state.output.rfind("variable:"));
}

TEST(ChildTask, InheritsTheEnvironmentWhenNoneIsGiven) {
  ::setenv("HOIST_TEST_INHERITED", "yes", 1);
  EXPECT_THAT(run({.launchPath = probePath()}).output,
              HasSubstr("variable: HOIST_TEST_INHERITED=yes\n"));
}

TEST(ChildTask, LeaksNoDescriptorSignalStateOrDirectory) {
  // Descriptors that are not close-on-exec, a blocked and an ignored signal: none of it may get
  // through.
  FileDescriptor leaky(::open("/dev/null", O_RDONLY));
  sigset_t usr1;
  sigemptyset(&usr1);
  sigaddset(&usr1, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &usr1, nullptr);
  auto previous = ::signal(SIGUSR2, SIG_IGN);
  auto state = run({.launchPath = probePath()});
  ::signal(SIGUSR2, previous);
  pthread_sigmask(SIG_UNBLOCK, &usr1, nullptr);
  EXPECT_THAT(state.output, HasSubstr("descriptors: 0 1 2\n"));
  EXPECT_THAT(state.output, HasSubstr("SigBlk:\t0000000000000000\n"));
  EXPECT_THAT(state.output, HasSubstr("SigIgn:\t0000000000000000\n"));
  EXPECT_THAT(state.output, HasSubstr("directory: /\n"));
  EXPECT_THAT(state.output, HasSubstr("umask: 022\n"));
}

TEST(ChildTask, GivesStandardDescriptorsThatCollideWithEachOther) {
  // The parent's own standard input is the child's output and the other way round.
  PipeEnds input = makePipe();
  PipeEnds output = makePipe();
  FileDescriptor savedIn = FileDescriptor::duplicate(0);
  FileDescriptor savedOut = FileDescriptor::duplicate(1);
  ::dup2(output.writing.get(), 0);
  ::dup2(input.reading.get(), 1);
  auto task = ChildTask::launch(
      {.launchPath = probePath(), .arguments = {"cat"}, .standardInput = 1, .standardOutput = 0});
  ::dup2(savedIn.get(), 0);
  ::dup2(savedOut.get(), 1);
  output.writing.reset();
  ASSERT_EQ(::write(input.writing.get(), "through", 7), 7);
  input.writing.reset();
  EXPECT_EQ(readAll(output.reading.get()), "through");
  task->waitUntilExit();
}

// Ends with 0 when the launch names the call that found no number left.
[[noreturn, maybe_unused]] void launchWithOneDescriptorLeft() {
  ::close(0);
  ::close(1);
  PipeEnds pipe = makePipe();
  rlimit low{64, 64};
  ::setrlimit(RLIMIT_NOFILE, &low);
  int last = -1;
  for (int fd; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) last = fd;
  ::close(last);
  try {
    ChildTask::launch({.launchPath = "/bin/true",
                       .standardInput = pipe.reading.get(),
                       .standardOutput = pipe.writing.get()});
  } catch (const SystemCallError& error) {
    ::_exit(error.call() == std::string("fcntl(F_DUPFD)") ? 0 : 2);
  }
  ::_exit(1);
}

TEST(ChildTask, RaisesWhenItsStandardDescriptorsCannotBePlaced) {
#ifdef HOIST_SANITIZED
  GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at an exception";
#else
  EXPECT_EXIT(launchWithOneDescriptorLeft(), testing::ExitedWithCode(0), "");
#endif
}

TEST(ChildTask, StartsWithTheDescriptorLimitThatTheParentHadAtFirst) {
  rlimit before;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit low{256, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
  platform::raiseDescriptorLimit();
  rlimit raised;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &raised), 0);
  EXPECT_EQ(raised.rlim_cur, before.rlim_max);
  EXPECT_THAT(run({.launchPath = probePath()}).output, HasSubstr("descriptor limit: 256 "));
}

TEST(ChildTask, RaisesWhenTheFileCannotBeExecuted) {
  try {
    ChildTask::launch({.launchPath = "/nonexistent/program"});
    FAIL() << "launched";
  } catch (const SystemCallError& error) {
    EXPECT_EQ(error.number(), ENOENT);
    EXPECT_EQ(error.call(), "execve");
    EXPECT_EQ(error.path(), "/nonexistent/program");
  }
  // No zombie of the attempt is left.
  EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(ChildTask, ExecutesADescriptorUnderTheNameOfThePath) {
  FileDescriptor program(::open(probePath().c_str(), O_RDONLY | O_CLOEXEC));
  auto state = run({.launchPath = "/a/name/of/ours", .executable = program.get()});
  EXPECT_THAT(state.output, HasSubstr("argument 0: /a/name/of/ours\n"));
  EXPECT_THAT(state.output, HasSubstr("descriptors: 0 1 2\n"));
}

TEST(ChildTask, KillsAndCollectsItsChild) {
  auto task = ChildTask::launch({.launchPath = probePath(), .arguments = {"sleep"}});
  EXPECT_FALSE(task->hasExited());
  task->kill();
  std::thread other([&] { task->waitUntilExit(); });
  task->waitUntilExit();
  other.join();
  EXPECT_TRUE(task->hasExited());
  EXPECT_EQ(task->terminationStatus(), 128 + SIGKILL);
}

TEST(ChildTask, IsCollectedThoughTheProcessWasStartedToIgnoreItsChildren) {
  auto before = ::signal(SIGCHLD, SIG_IGN);
  auto result = run({.launchPath = probePath(), .arguments = {"exit", "3"}});
  ::signal(SIGCHLD, before);
  EXPECT_EQ(result.status, 3);
}

TEST(ChildTask, StartsManyAtOnceFromManyThreads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([thread] {
      for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(
            run({.launchPath = probePath(), .arguments = {"exit", std::to_string(thread)}}).status,
            thread);
      }
    });
  }
  for (auto& thread : threads) thread.join();
}

// A set-user-ID start by hand against the kernel's own of the same file: the child must not be able
// to tell.
TEST(SetUserIDStart, EqualsThatOfTheKernel) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  TemporaryFolder folder;
  ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
  std::string program = folder.path() + "/probe";
  std::filesystem::copy_file(probePath(), program);
  ASSERT_EQ(::chown(program.c_str(), kSomeUser, 0), 0);
  ASSERT_EQ(::chmod(program.c_str(), 04755), 0);
  auto kernel = run({.launchPath = program, .environment = {{{"A", "b"}}}});

  FileDescriptor bytes(::open(probePath().c_str(), O_RDONLY | O_CLOEXEC));
  auto ours = run({.launchPath = program,
                   .environment = {{{"A", "b"}}},
                   .executable = bytes.get(),
                   .setUserIDOwner = kSomeUser});
  EXPECT_EQ(ours.output, kernel.output);
  EXPECT_THAT(ours.output, HasSubstr("Uid:\t0\t12345\t12345\t12345\n"));
  EXPECT_THAT(ours.output, HasSubstr("secure: 1\n"));
  EXPECT_THAT(ours.output, ContainsRegex("dumpable: [02]\n"));
  EXPECT_THAT(ours.output, HasSubstr("CapEff:\t0000000000000000\n"));
  EXPECT_THAT(ours.output, Not(HasSubstr("CapPrm:\t0000000000000000\n")));
}

TEST(SetUserIDStart, LeavesTheParentsUserAlone) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  run({.launchPath = probePath(), .setUserIDOwner = kSomeUser});
  uid_t real, effective, saved;
  ASSERT_EQ(::getresuid(&real, &effective, &saved), 0);
  EXPECT_EQ(real, 0u);
  EXPECT_EQ(effective, 0u);
  EXPECT_EQ(saved, 0u);
}

TEST(RealUserStart, KeepsTheEffectiveUserRoot) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  auto state = run({.launchPath = probePath(), .realUser = kSomeUser});
  EXPECT_THAT(state.output, HasSubstr("Uid:\t12345\t0\t0\t0\n"));
}

}  // namespace
}  // namespace hoist
