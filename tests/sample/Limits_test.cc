// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// What ends a sampler that its target has led astray.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>

#include "Programs.h"
#include "sample/Rights.h"
#include "sample/Watchdog.h"

namespace hoist::sample {
namespace {

using namespace std::chrono_literals;

// Runs the code in a child; answers how that ended and what it said on standard error.
template <class Code>
Outcome inChild(Code&& code) {
  PipeEnds errors = makePipe();
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(errors.writing.get(), STDERR_FILENO);
    code();
    ::_exit(0);
  }
  errors.writing.reset();
  Outcome outcome{0, {}};
  char buffer[4096];
  for (ssize_t length; (length = ::read(errors.reading.get(), buffer, sizeof buffer)) > 0;) {
    outcome.output.append(buffer, static_cast<std::size_t>(length));
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return outcome;
}

TEST(SamplerLimits, EndASamplerThatTakesTooLong) {
  const Outcome outcome = inChild([] {
    startWatchdog(10ms);
    for (;;) ::pause();
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "sample: no report: the time limit was reached\n");
}

TEST(SamplerLimits, EndASamplerThatNoLongerHearsAnything) {
  const Outcome outcome = inChild([] {
    sigset_t all;
    ::sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, nullptr);
    startWatchdog(1ms);
    for (;;) ::pause();
  });
  EXPECT_EQ(outcome.status, 128 + SIGKILL);
}

TEST(SamplerLimits, EndASamplerThatComputesTooMuch) {
  const Outcome outcome = inChild([] {
    startWatchdog(1h);
    const rlimit limit{0, 1000};
    ::setrlimit(RLIMIT_CPU, &limit);  // which the kernel takes for one second
    for (volatile unsigned turns = 0;;) turns = turns + 1;
  });
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "sample: no report: the processor time limit was reached\n");
}

rlim_t softLimit(__rlimit_resource resource) {
  rlimit limit{};
  ::getrlimit(resource, &limit);
  return limit.rlim_cur;
}

TEST(SamplerLimits, AreSetOnEverythingThatATargetCouldUseUp) {
  const Outcome outcome = inChild([] {
    const rlimit lower{1000, 1000};
    ::setrlimit(RLIMIT_FSIZE, &lower);
    limitResources(100s);
    const bool areAsExpected = softLimit(RLIMIT_CPU) == 110 && softLimit(RLIMIT_CORE) == 0 &&
                               softLimit(RLIMIT_RTTIME) == 500'000 &&
                               softLimit(RLIMIT_FSIZE) == 1000;  // a lower one stays
    ::_exit(areAsExpected ? 0 : 1);
  });
  EXPECT_EQ(outcome.status, 0);
}

TEST(SamplerLimits, HoldInTheToolWhileItSamples) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root sees another process's limits";
  Target target("bare");
  TestFolder folder;
  Program sampler(samplerCommand(
      {std::to_string(target.id()), "-file", folder.path("report"), "-duration", "600"}));
  ASSERT_TRUE(isHeldSoon(target.id()));
  std::ifstream file("/proc/" + std::to_string(sampler.id()) + "/limits");
  std::map<std::string, std::string> limits;
  for (std::string line; std::getline(file, line);) {
    std::istringstream words(line.substr(26));
    words >> limits[line.substr(0, line.find("  "))];
  }
  EXPECT_EQ(limits["Max cpu time"], "360");
  EXPECT_EQ(limits["Max core file size"], "0");
  EXPECT_EQ(limits["Max file size"], std::to_string(256 * 1024 * 1024));
#ifndef HOIST_SANITIZED
  EXPECT_EQ(limits["Max address space"], std::to_string(1024 * 1024 * 1024));
#endif
}

#ifndef HOIST_SANITIZED
TEST(SamplerLimits, MakeTooMuchMemoryAnErrorOfTheSampler) {
  const Outcome outcome = inChild([] {
    limitResources(1s);
    try {
      std::string much(std::size_t{2} << 30, 'x');
      ::_exit(much.size() > 1 ? 1 : 2);
    } catch (const std::bad_alloc&) {
      ::_exit(0);
    }
  });
  EXPECT_EQ(outcome.status, 0);
}
#endif

}  // namespace
}  // namespace hoist::sample
