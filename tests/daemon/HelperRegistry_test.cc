// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/HelperRegistry.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "platform/ProcessParent.h"
#include "platform/xpc/Limits.h"

namespace hoist {
namespace {

constexpr uid_t kUser = 4711;

Ref<ChildTask> startSleeper(HelperRegistry& registry) {
  auto task =
      ChildTask::launch({.launchPath = HOIST_BUILD_DIR "/bin/test_probe", .arguments = {"sleep"}});
  registry.add(task, registry.takePlace(kUser));
  return task;
}

void runUntilEmpty(HelperRegistry& registry) {
  while (registry.count() > 0) RunLoop::main().runOnce(1'000'000);
}

TEST(HelperRegistry, CollectsAHelperThatEnds) {
  HelperRegistry registry;
  auto helper = startSleeper(registry);
  pid_t process = helper->processIdentifier();
  EXPECT_TRUE(registry.isHelper(process));
  helper->kill();
  runUntilEmpty(registry);
  EXPECT_FALSE(registry.isHelper(process));
  // No zombie is left.
  EXPECT_EQ(::waitpid(process, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST(HelperRegistry, KnowsADescendantOfAHelper) {
  HelperRegistry registry;
  auto shell = ChildTask::launch(
      {.launchPath = "/bin/sh", .arguments = {"-c", "sleep 1000 & echo $!; wait"}});
  // The shell's child, by the kernel's list.
  registry.add(shell, registry.takePlace(kUser));
  std::string path = "/proc/" + std::to_string(shell->processIdentifier()) + "/task/" +
                     std::to_string(shell->processIdentifier()) + "/children";
  pid_t child = 0;
  while (child == 0) {
    if (FILE* file = std::fopen(path.c_str(), "re")) {
      if (std::fscanf(file, "%d", &child) != 1) child = 0;
      std::fclose(file);
    }
  }
  EXPECT_TRUE(registry.isHelper(child));
  EXPECT_EQ(registry.userOfHelper(child), kUser);
  ::kill(child, SIGKILL);
  shell->kill();
  runUntilEmpty(registry);
}

TEST(HelperRegistry, DoesNotKnowOthers) {
  HelperRegistry registry;
  auto helper = startSleeper(registry);
  EXPECT_FALSE(registry.isHelper(::getpid()));
  EXPECT_FALSE(registry.isHelper(1));
  EXPECT_FALSE(registry.isHelper(0));
  EXPECT_FALSE(registry.isHelper(-1));
  helper->kill();
  runUntilEmpty(registry);
}

TEST(HelperRegistry, HasABoundedNumberOfPlacesForEachUser) {
  HelperRegistry registry;
  std::vector<HelperRegistry::Place> places;
  for (std::size_t i = 0; i < xpc::kHelpersOfOneUser; ++i) {
    places.push_back(registry.takePlace(kUser));
    ASSERT_TRUE(places.back());
  }
  EXPECT_FALSE(registry.takePlace(kUser));
  EXPECT_TRUE(registry.takePlace(kUser + 1));
  places.pop_back();
  EXPECT_TRUE(registry.takePlace(kUser));
}

TEST(HelperRegistry, GivesThePlaceOfAnEndedHelperBack) {
  HelperRegistry registry;
  std::vector<HelperRegistry::Place> places;
  for (std::size_t i = 1; i < xpc::kHelpersOfOneUser; ++i)
    places.push_back(registry.takePlace(kUser));
  auto helper = startSleeper(registry);
  EXPECT_FALSE(registry.takePlace(kUser));
  helper->kill();
  runUntilEmpty(registry);
  EXPECT_TRUE(registry.takePlace(kUser));
}

TEST(ProcessParent, IsFoundBehindANameThatLooksLikeTheRest) {
  EXPECT_EQ(platform::parentInProcessStat("42 (a) R 1 (b) S 17 42 42 0"), 17);
  EXPECT_EQ(platform::parentInProcessStat("42 () S 1 "), 1);
  EXPECT_EQ(platform::parentInProcessStat("42 (x) S"), 0);
  EXPECT_EQ(platform::parentInProcessStat("42 (x"), 0);
  EXPECT_EQ(platform::parentInProcessStat(""), 0);
  EXPECT_EQ(platform::parentOfProcess(::getpid()), ::getppid());
}

}  // namespace
}  // namespace hoist
