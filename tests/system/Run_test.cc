// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// hoistctl run: a command from its launch to its end, with the real daemon and the example helper.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/SystemCall.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

constexpr unsigned kUser = 20001;
constexpr int kUsage = 2;
constexpr int kUnreachable = 3;
constexpr int kFailed = 4;
const std::string kHelper = HOIST_BUILD_DIR "/bin/KelvoHelper";
const std::string kClient = HOIST_BUILD_DIR "/bin/hoistctl";

std::vector<std::string> asUser(const std::vector<std::string>& arguments) {
  std::vector<std::string> command{"--reuid=20001", "--regid=20001", "--clear-groups", kClient};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

// A client that is under way.
class UnderWay {
 public:
  explicit UnderWay(const std::vector<std::string>& arguments) {
    auto output = makePipe();
    auto errors = makePipe();
    task_ = ChildTask::launch({.launchPath = "/usr/bin/setpriv",
                               .arguments = asUser(arguments),
                               .standardOutput = output.writing.get(),
                               .standardError = errors.writing.get()});
    output_ = std::move(output.reading);
    errors_ = std::move(errors.reading);
  }
  ~UnderWay() {
    task_->kill();
    task_->waitUntilExit();
  }

  // Reads what it says on its standard error until it says that.
  void waitUntilItSays(const std::string& text) {
    while (said_.find(text) == std::string::npos) ASSERT_TRUE(readSome(errors_, said_)) << said_;
  }
  void signal(int number) { ::kill(task_->processIdentifier(), number); }
  int end() {
    while (readSome(output_, printed_)) {
    }
    while (readSome(errors_, said_)) {
    }
    task_->waitUntilExit();
    return task_->terminationStatus();
  }
  const std::string& printed() const { return printed_; }
  const std::string& said() const { return said_; }

 private:
  static bool readSome(const FileDescriptor& file, std::string& text) {
    char buffer[512];
    ssize_t got = retryInterrupted([&] { return ::read(file.get(), buffer, sizeof buffer); });
    if (got > 0) text.append(buffer, static_cast<std::size_t>(got));
    return got > 0;
  }

  Ref<ChildTask> task_;
  FileDescriptor output_;
  FileDescriptor errors_;
  std::string printed_;
  std::string said_;
};

class Run : public testing::Test {
 protected:
  ~Run() override { fs::remove_all(Sandbox::shared().folder() + "/run"); }
  ClientResult run(const std::string& command, std::vector<std::string> options = {}) {
    std::vector<std::string> arguments{"run", command, helper_};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return hoistctl(kUser, arguments);
  }

  RunningHoist hoist_;
  const std::string helper_ = Sandbox::shared().makeHelper("run", kHelper, kUser);
};

TEST_F(Run, DrivesEveryCommandToItsEnd) {
  for (const char* command :
       {"install", "create", "capture", "restore", "recall", "merge", "combine", "delete", "erase",
        "compact", "verify", "encrypt", "correction", "reindex", "repair", "dump"}) {
    auto result = run(command, {"--flag=seconds=0"});
    EXPECT_EQ(result.status, 0) << command << result.json << hoist_.log();
    EXPECT_EQ(result.json["finished"], true);
    EXPECT_THAT(result.json["serviceName"].get<std::string>(),
                StartsWith(std::string("helper.") + command + "."));
  }
}

TEST_F(Run, SetsThePropertiesOfTheCommand) {
  std::string folder = Sandbox::shared().folder() + "/dump";
  fs::create_directory(folder);
  fs::permissions(folder, fs::perms::all);
  std::string path = folder + "/properties";
  auto result = run("dump", {"--flag=seconds=0", "--set=outputFileHandle=" + path,
                             "--set=columnFormat=name,size", "--set=sizeStyle=-3",
                             R"(--set=repositoryRef={"path": "/backup"})", "--set=password=x"});
  ASSERT_EQ(result.status, 0) << result.json;
  std::ifstream dump(path);
  EXPECT_EQ((std::string{std::istreambuf_iterator<char>(dump), {}}),
            "columnFormat = (name, size)\nrepositoryRef = /backup\nsizeStyle = -3\n");
  struct stat status {};
  ASSERT_EQ(::stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, kUser);
}

TEST_F(Run, SaysWhichPropertyTheCommandDoesNotHave) {
  auto result = run("capture", {"--set=recallPath=/x"});
  EXPECT_EQ(result.status, kUsage);
  EXPECT_EQ(result.json["error"], "the command has no property recallPath");
}

TEST_F(Run, EndsWithTheExceptionOfTheCommand) {
  auto result = run("capture", {"--flag=seconds=0", "--flag=fail"});
  EXPECT_EQ(result.status, kFailed);
  EXPECT_EQ(result.json["finished"], false);
  EXPECT_EQ(result.json["exception"]["name"], "IO");
  EXPECT_EQ(result.json["exception"]["details"]["POSIXErr"], 28);
  EXPECT_EQ(result.json["exception"]["details"]["Cause"]["Device"], "/dev/sdz1");

  auto text = runProgram("/usr/bin/setpriv",
                         asUser({"run", "capture", helper_, "--flag=seconds=0", "--flag=fail"}));
  EXPECT_EQ(text.status, kFailed);
  EXPECT_THAT(text.output, HasSubstr("<IO> cannot copy item\n"
                                     "There is no room left on the backup volume.\n"));
  EXPECT_THAT(text.output, HasSubstr("├─ Cause\n│  ├─ Device  /dev/sdz1\n│  └─ Free    4096\n"));
  EXPECT_THAT(text.output, HasSubstr("└─ Path"));
}

TEST_F(Run, ForwardsAnInterruptAsACancelAndWaitsForTheEnd) {
  UnderWay client({"run", "capture", helper_, "--flag=seconds=3600"});
  client.waitUntilItSays("running\n");
  client.signal(SIGINT);
  EXPECT_EQ(client.end(), kFailed);
  EXPECT_EQ(client.printed(), "<Cancel> cancelled by its client\n");
}

TEST_F(Run, SaysThatTheHelperIsLost) {
  UnderWay client({"run", "capture", helper_, "--flag=seconds=3600"});
  client.waitUntilItSays("running\n");
  ASSERT_NE(hoist_.onlyChild(), 0);
  ::kill(hoist_.onlyChild(), SIGKILL);
  EXPECT_EQ(client.end(), kUnreachable);
  EXPECT_THAT(client.said(), HasSubstr("helper.capture."));
}

TEST_F(Run, ShowsStateAndProgressOnATerminal) {
  auto result = runProgram(
      "/usr/bin/script",
      {"-qec",
       kClient + " run capture " + helper_ + " --flag=seconds=2 --set=customDescription=Nightly",
       "/dev/null"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("\r\033[K"));
  EXPECT_THAT(result.output, HasSubstr("running    00:0"));
  EXPECT_THAT(result.output, testing::ContainsRegex("Nightly, [0-9]+ %"));
  EXPECT_THAT(result.output, testing::EndsWith("\r\033[Kfinished\r\n"));
}

}  // namespace
}  // namespace hoist
