// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The real daemon, real clients of other users, real helpers.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>

#include "hoistctl/HoistClient.h"
#include "platform/SystemCall.h"
#include "platform/xpc/testing/RawPeer.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr unsigned kUser = 20001;
constexpr unsigned kOther = 20002;
const std::string kGoodHelper = HOIST_BUILD_DIR "/bin/KelvoHelper";
const std::string kOddHelper = HOIST_BUILD_DIR "/bin/test_odd_helper";
constexpr int kRefused = 1;

#ifdef HOIST_SANITIZED
constexpr int kSwapLaunches = 200;
#else
constexpr int kSwapLaunches = 1000;
#endif

class Launch : public testing::Test {
 protected:
  Launch() : good_(Sandbox::shared().makeHelper("good", kGoodHelper, kUser)) {}
  ~Launch() override {
    for (const auto& entry : fs::directory_iterator(Sandbox::shared().folder())) {
      if (fs::exists(entry.path() / "KelvoHelper.app")) fs::remove_all(entry.path());
    }
  }
  std::string oddHelper(unsigned user = kUser) {
    return Sandbox::shared().makeHelper("odd", kOddHelper, user);
  }

  // The client is told that the launch failed, and the log says why.
  void expectFailure(const ClientResult& result, const std::string& reason) {
    EXPECT_EQ(result.status, kRefused);
    EXPECT_EQ(result.json["error"], "the hoist could not launch the helper; its log says why");
    EXPECT_THAT(hoist_.log(), HasSubstr(reason));
  }
  // The client is told nothing.
  void expectSilence(const ClientResult& result) {
    EXPECT_EQ(result.status, kRefused);
    EXPECT_EQ(result.json["error"], "the hoist does not accept the helper; its log says why");
    EXPECT_THAT(hoist_.log(), HasSubstr("(Failure) helper failed validation"));
  }

  RunningHoist hoist_;
  std::string good_;
};

TEST_F(Launch, HandsTheEndpointOfAPrivilegedHelperToAnOrdinaryUser) {
  auto result = launch(kUser, good_, "capture", {"verbose"});
  ASSERT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_EQ(result.json["endpoint"], true);
  EXPECT_EQ(result.json["serviceName"],
            "helper.capture." + std::to_string(result.json["process"].get<int>()));
  EXPECT_EQ(result.json["realUser"], 0);
  EXPECT_EQ(result.json["effectiveUser"], kUser);
  EXPECT_EQ(result.json["privileged"], true);
  EXPECT_EQ(result.json["command"], "capture");
  EXPECT_EQ(result.json["humanReadableName"], "Capture");
}

TEST_F(Launch, WaitsForTheEndpointOfAHelperThatSaysTooEarlyThatItIsReady) {
  auto eager =
      Sandbox::shared().makeHelper("eager", HOIST_BUILD_DIR "/bin/test_eager_helper", kUser);
  ctl::HoistClient client("com.kelvo.hoist");
  auto launched = client.launch(eager, "capture", {});
  EXPECT_TRUE(launched.endpoint) << hoist_.log();
  ::kill(hoist_.onlyChild(), SIGKILL);
}

TEST_F(Launch, LowersTheHelpersPriorityWhenThePreferenceSaysSo) {
  Sandbox::setRunsInBackground(true);
  auto odd = oddHelper();
  auto client = ChildTask::launch({.launchPath = HOIST_BUILD_DIR "/bin/hoistctl",
                                   .arguments = {"launch", odd, "--command=uncoupled"}});
  pid_t helper = 0;
  while ((helper = hoist_.onlyChild()) == 0 || ::getpriority(PRIO_PROCESS, helper) != 19)
    std::this_thread::yield();
  // The client waits for this helper: it still gets the processor.
  EXPECT_EQ(::sched_getscheduler(helper), SCHED_OTHER);
  client->kill();
  client->waitUntilExit();
  Sandbox::setRunsInBackground(false);
}

TEST_F(Launch, MovesTheHelperToTheBackgroundOnceItsEndpointIsKnown) {
  Sandbox::setRunsInBackground(true);
  // This client never connects to the helper, which waits for it meanwhile.
  auto client = runProgram(
      "/usr/bin/gdbus", {"call", "--address", "unix:path=/run/kelvo/com.kelvo.hoist", "--dest",
                         "com.kelvo.hoist", "--object-path", "/", "--method",
                         "com.kelvo.TesselHoisting.launchPrivilegedHelper_commandName_flags_reply_",
                         good_, "capture", "[]"});
  EXPECT_THAT(client.output, HasSubstr("helper.capture."));
  pid_t helper = hoist_.onlyChild();
  ASSERT_NE(helper, 0);
  EXPECT_EQ(::getpriority(PRIO_PROCESS, helper), 19);
  // It is moved after the client has its answer.
  while (::sched_getscheduler(helper) != SCHED_IDLE) std::this_thread::yield();
  ::kill(helper, SIGKILL);
  Sandbox::setRunsInBackground(false);
}

TEST_F(Launch, VerifiesAnUnchangedHelperOnce) {
  EXPECT_EQ(launch(kUser, good_, "capture").status, 0);
  EXPECT_EQ(launch(kUser, good_, "restore").status, 0);
  EXPECT_EQ(hoist_.verifications(), 1);
}

TEST_F(Launch, OfAHelperWithOneByteChangedIsNotAnswered) {
  {
    FileDescriptor file(::open(good_.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(::pwrite(file.get(), "X", 1, 4000), 1);
  }
  Sandbox::install(good_, kUser);
  expectSilence(launch(kUser, good_, "capture"));
}

TEST_F(Launch, OfAHelperThatIsReplacedByASignedOneVerifiesAgain) {
  ASSERT_EQ(launch(kUser, good_, "capture").status, 0);
  fs::remove(good_);
  fs::copy_file(HOIST_BUILD_DIR "/bin/KelvoHelper-old", good_);
  Sandbox::shared().sign(good_);
  Sandbox::install(good_, kUser);
  expectFailure(launch(kUser, good_, "capture"), "BADVER Helper-1.0.0.0");
  EXPECT_EQ(hoist_.verifications(), 2);
}

TEST_F(Launch, OfAHelperWithoutTheSetUserIDBitFails) {
  fs::permissions(good_, fs::perms::set_uid, fs::perm_options::remove);
  expectFailure(launch(kUser, good_, "capture"), "helper not correctly installed");
}

// The seal holds the permission bits: whoever takes the owner's right away has changed the bundle.
TEST_F(Launch, OfAHelperThatItsOwnerCannotExecuteIsNotAnswered) {
  fs::permissions(good_, fs::perms::owner_exec, fs::perm_options::remove);
  expectSilence(launch(kUser, good_, "capture"));
}

TEST_F(Launch, OfSomebodyElsesHelperFails) {
  expectFailure(launch(kOther, good_, "capture"), "helper not correctly installed");
}

TEST_F(Launch, ByRootTakesAHelperOfAnyOwner) {
  auto result = launch(0, good_, "capture");
  ASSERT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_EQ(result.json["effectiveUser"], kUser);
}

TEST_F(Launch, OfAScriptFails) {
  std::ofstream(good_) << "#!/bin/sh\necho OK\n";
  Sandbox::shared().sign(good_);
  Sandbox::install(good_, kUser);
  expectFailure(launch(kUser, good_, "capture"), "helper not correctly installed");
}

TEST_F(Launch, OfAPathThatIsNoHelperIsNotAnswered) {
  // As it is given, without the client's help in finding a bundle's executable.
  ctl::HoistClient client("com.kelvo.hoist");
  std::string inside = fs::path(good_).parent_path();
  for (const std::string& path :
       {std::string(), std::string("/"), std::string("/etc/passwd"), std::string("/dev/zero"),
        std::string("relative"), std::string("/nonexistent"), good_ + "/", good_ + "x", inside,
        inside + "/../Linux/KelvoHelper", std::string(1 << 19, 'x')}) {
    try {
      client.launch(path, "capture", {});
      ADD_FAILURE() << "launched " << path.substr(0, 100);
    } catch (const ctl::CommandError& error) {
      EXPECT_STREQ(error.what(), "the hoist does not accept the helper; its log says why");
    }
  }
  EXPECT_EQ(hoist_.verifications(), 0);
}

TEST_F(Launch, FailsWhenTheHelperEndsAtOnce) {
  expectFailure(launch(kUser, oddHelper(), "exit"), "NULL response from helper");
}

TEST_F(Launch, FailsWhenTheHelperAnswersTooFewBytes) {
  expectFailure(launch(kUser, oddHelper(), "short"), "NULL response from helper");
}

TEST_F(Launch, FailsWithTheExplanationOfAHelperThatRefuses) {
  expectFailure(launch(kUser, oddHelper(), "refuse"), "Response: this helper refuses\n");
}

TEST_F(Launch, FailsWithTheVersionsOfAHelperOfAnotherOne) {
  expectFailure(launch(kUser, oddHelper(), "badver"), "Response: BADVER Helper-1.0\n");
  EXPECT_THAT(hoist_.log(), HasSubstr("Version: Helper-2.2.5.12\n"));
}

TEST_F(Launch, CutsAHelperOffThatTalksWithoutEnd) {
  expectFailure(launch(kUser, oddHelper(), "chatty"), "helper did not start");
}

TEST_F(Launch, WritesTheFourLines) {
  expectFailure(launch(kUser, oddHelper(), "lines", {"a", "b,c"}),
                "Response: Helper-2.2.5.12|helper.lines.");
  EXPECT_THAT(hoist_.log(), HasSubstr("|lines|a,b,c\n"));
}

TEST_F(Launch, RefusesTextThatWouldForgeLines) {
  auto odd = oddHelper();
  expectFailure(launch(kUser, odd, "lines\nforged"), "command cannot be passed to helper");
  expectFailure(launch(kUser, odd, "lines", {"fine", "for\nged"}),
                "command cannot be passed to helper");
  expectFailure(launch(kUser, odd, "d\xc3\xa9j\xc3\xa0"), "command cannot be passed to helper");
}

TEST_F(Launch, TellsTheHelperNothingThatAPlainSetUserIDStartWouldNot) {
  auto odd = oddHelper();
  // Whatever the hoist holds for others, too.
  std::vector<xpc::RawPeer> others;
  for (int count = 0; count < 50; ++count) {
    others.push_back(xpc::RawPeer::asUser(kOther, "/run/kelvo/com.kelvo.hoist"));
    others.back().authenticate();
  }
  expectFailure(launch(kUser, odd, "state"), "Response: ");
  std::string log = hoist_.log();
  EXPECT_THAT(log, HasSubstr("argument 0: " + odd));
  EXPECT_THAT(log, HasSubstr("variable: KLHELPER_PARENT_XPC_SERVICE_NAME=com.kelvo.hoist"));
  EXPECT_THAT(log, HasSubstr("descriptors: 0 1 2"));
  EXPECT_THAT(log, HasSubstr("secure: 1"));
  EXPECT_THAT(log, HasSubstr("directory: /"));
  EXPECT_THAT(log, HasSubstr("Uid:\t0\t20001\t20001\t20001"));
}

TEST_F(Launch, StartsOnlyTheSignedBytesWhileTheFileIsSwapped) {
  // The unsigned program leaves a mark, as its owner, where everybody can.
  std::string marks = Sandbox::shared().folder() + "/marks";
  fs::create_directory(marks);
  fs::permissions(marks, fs::perms::all);
  std::string evil = Sandbox::shared().folder() + "/evil";
  fs::copy_file(HOIST_BUILD_DIR "/bin/test_marking_helper", evil);
  auto odd = oddHelper();
  std::string signedCopy = Sandbox::shared().folder() + "/signed-copy";
  fs::copy_file(kOddHelper, signedCopy);
  std::atomic<bool> stop = false;
  std::thread swapper([&] {
    std::string next = odd + ".next";
    for (int round = 0; !stop; ++round) {
      const std::string& content = round % 2 ? signedCopy : evil;
      if (round % 4 < 2) {
        // Another file under the same name ...
        fs::copy_file(content, next, fs::copy_options::overwrite_existing);
        Sandbox::install(next, kUser);
        fs::rename(next, odd);
      } else {
        // ... and other bytes in the same file.
        fs::copy_file(content, odd, fs::copy_options::overwrite_existing);
        Sandbox::install(odd, kUser);
      }
    }
  });
  // Answered with a refusal by the signed program, or not at all; by the unsigned one with a mark.
  std::atomic<int> left = kSwapLaunches;
  std::vector<std::thread> clients;
  for (int client = 0; client < 2; ++client) {
    clients.emplace_back([&] {
      while (left-- > 0) EXPECT_EQ(launch(kUser, odd, "refuse").status, kRefused);
    });
  }
  for (auto& client : clients) client.join();
  stop = true;
  swapper.join();
  EXPECT_TRUE(fs::is_empty(marks));
  fs::remove_all(marks);
  fs::remove(evil);
  fs::remove(signedCopy);
  EXPECT_TRUE(hoist_.isRunning());
}

TEST_F(Launch, GivesEveryOneOfFiftyClientsItsOwnHelper) {
  constexpr int kUsers = 5;
  constexpr int kClientsOfEach = 10;
  std::vector<std::string> helpers;
  for (int user = 0; user < kUsers; ++user) {
    helpers.push_back(
        Sandbox::shared().makeHelper("user" + std::to_string(user), kGoodHelper, kUser + user));
  }
  std::vector<ClientResult> results(kUsers * kClientsOfEach);
  std::vector<std::thread> clients;
  for (int i = 0; i < kUsers * kClientsOfEach; ++i) {
    clients.emplace_back([&, i] {
      results[i] = launch(kUser + i % kUsers, helpers[i % kUsers], "capture",
                          {"client=" + std::to_string(i)});
    });
  }
  for (auto& client : clients) client.join();
  std::set<int> processes;
  for (int i = 0; i < kUsers * kClientsOfEach; ++i) {
    ASSERT_EQ(results[i].status, 0) << results[i].json << hoist_.log();
    EXPECT_EQ(results[i].json["effectiveUser"], kUser + i % kUsers);
    EXPECT_EQ(results[i].json["serviceName"],
              "helper.capture." + std::to_string(results[i].json["process"].get<int>()));
    processes.insert(results[i].json["process"].get<int>());
  }
  EXPECT_EQ(processes.size(), results.size());
}

TEST_F(Launch, LeavesNothingBehind) {
  ASSERT_EQ(launch(kUser, good_, "capture").status, 0);
  auto odd = oddHelper();
  launch(kUser, odd, "refuse");
  // Whatever is made once has been made by now.
  auto before = hoist_.holdings();
  before.children = 0;
  for (int round = 0; round < 10; ++round) {
    EXPECT_EQ(launch(kUser, good_, "capture").status, 0);
    launch(kUser, odd, "refuse");
    launch(kUser, odd, "exit");
    launch(kUser, "/nonexistent", "capture");
  }
  auto after = hoist_.holdingsAfterSettling(before);
  EXPECT_LE(after.descriptors, before.descriptors);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_EQ(after.children, 0u);
}

// Whether the process runs as the helper of the user does.
bool isHelperOf(pid_t process, unsigned user) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  std::string text{std::istreambuf_iterator<char>(status), {}};
  return text.find("Uid:\t0\t" + std::to_string(user) + "\t") != std::string::npos;
}

TEST_F(Launch, LeavesNoCouplingBehindWhenItsClientAndItsHelperAreKilled) {
  ASSERT_EQ(launch(kUser, good_, "capture").status, 0);
  auto odd = oddHelper();
  auto before = hoist_.holdingsAfterSettling({1000, 1000, 0});
  auto client = ChildTask::launch(
      {.launchPath = "/usr/bin/setpriv",
       .arguments = {"--reuid=20001", "--regid=20001", "--clear-groups",
                     HOIST_BUILD_DIR "/bin/hoistctl", "launch", odd, "--command=silent"}});
  pid_t helper = 0;
  while ((helper = hoist_.onlyChild()) == 0 || !isHelperOf(helper, kUser)) {
    std::this_thread::yield();
  }
  client->kill();
  client->waitUntilExit();
  EXPECT_EQ(hoistctl(kOther, {"status"}).status, 0);
  ::kill(helper, SIGKILL);
  // The next launch is coupled with its own helper, not with the one that is gone.
  auto result = launch(kUser, good_, "capture");
  ASSERT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_THAT(hoist_.log(), HasSubstr("NULL response from helper"));
  auto after = hoist_.holdingsAfterSettling(before);
  EXPECT_LE(after.descriptors, before.descriptors);
  EXPECT_LE(after.threads, before.threads);
  EXPECT_EQ(after.children, 0u);
}

// To close such a file takes as long as its owner likes, and a process that inherits it has to
// close it before it can execute a program.
TEST_F(Launch, AFileWhoseOwnerNeverLetsItBeClosedHoldsUpNoLaunch) {
  TemporaryFolder mountPoint;
  PipeEnds untilTheEnd = makePipe(), output = makePipe();
  auto owner = ChildTask::launch(
      {.launchPath = "/usr/bin/python3",
       .arguments = {HOIST_SOURCE_DIR "/tests/system/stubborn_file.py",
                     "/run/kelvo/com.kelvo.hoist", std::to_string(kOther), mountPoint.path()},
       .standardInput = untilTheEnd.reading.get(),
       .standardOutput = output.writing.get()});
  output.writing.reset();
  char word[6];
  ASSERT_EQ(::read(output.reading.get(), word, sizeof word), 6) << "it cannot mount";
  EXPECT_EQ(launch(kUser, good_, "capture").status, 0);
  EXPECT_EQ(hoistctl(kOther, {"status"}).status, 0);
  untilTheEnd.writing.reset();
  owner->waitUntilExit();
}

}  // namespace
}  // namespace hoist
