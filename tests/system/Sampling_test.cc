// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The running daemon samples real processes of several users, into reports of theirs.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>

#include "connection/protocols/TesselHoisting.h"
#include "hoistctl/RunningSampler.h"
#include "hoistctl/SampleRequest.h"
#include "platform/ConditionLock.h"
#include "system/RunningHoist.h"
#include "values/product.h"

namespace hoist {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
namespace fs = std::filesystem;

constexpr unsigned kUser = 20001;
constexpr unsigned kOther = 20002;
const std::string kShortSample = HOIST_BUILD_DIR "/bin/test_short_sample";
const std::string kService(product::kHoistServiceName);

// A process of the user's that sleeps.
class Sleeper {
 public:
  explicit Sleeper(unsigned user)
      : task_(ChildTask::launch(
            {.launchPath = "/usr/bin/setpriv",
             .arguments = {"--reuid=" + std::to_string(user), "--regid=" + std::to_string(user),
                           "--clear-groups", HOIST_BUILD_DIR "/bin/test_probe", "sleep"}})) {
    while (name() != "test_probe") ::usleep(100);
  }
  ~Sleeper() {
    task_->kill();
    task_->waitUntilExit();
  }
  pid_t id() const { return task_->processIdentifier(); }
  std::string text() const { return std::to_string(id()); }

 private:
  std::string name() const {
    std::ifstream file("/proc/" + text() + "/comm");
    std::string name;
    std::getline(file, name);
    return name;
  }

  Ref<ChildTask> task_;
};

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

class SampleOverTheWire : public testing::Test {
 protected:
  SampleOverTheWire() : folder_(Sandbox::shared().folder() + "/reports") {
    hoist_.setSamplingTool(kShortSample);
    fs::create_directory(folder_);
    EXPECT_EQ(::chown(folder_.c_str(), kUser, kUser), 0);
    precious_ = folder_ + "/../precious";
    std::ofstream(precious_) << "precious";
    EXPECT_EQ(::chmod(precious_.c_str(), 0644), 0);
  }
  ~SampleOverTheWire() override {
    expectUnharmed();
    fs::remove_all(folder_);
    fs::remove(precious_);
  }
  void expectUnharmed() {
    EXPECT_EQ(contents(precious_), "precious");
    EXPECT_EQ(statusOf(precious_).st_mode & 07777, 0644u);
    EXPECT_EQ(statusOf(precious_).st_uid, 0u);
  }
  std::string report(const Sleeper& sleeper) const {
    return folder_ + "/sample-" + sleeper.text() + ".txt";
  }
  ClientResult sample(unsigned user, const std::vector<const Sleeper*>& sleepers,
                      std::vector<std::string> more = {}) {
    std::vector<std::string> arguments{"sample", "--reports=" + folder_};
    for (const Sleeper* sleeper : sleepers) arguments.push_back(sleeper->text());
    arguments.insert(arguments.end(), more.begin(), more.end());
    return hoistctl(user, arguments);
  }
  // Of the reason as of a Security exception, in the log.
  std::size_t countLogged(const std::string& reason) const {
    std::size_t count = 0;
    const std::string log = hoist_.log();
    for (std::size_t at = 0; (at = log.find(reason, at)) != log.npos; ++at) ++count;
    return count;
  }

  RunningHoist hoist_;
  std::string folder_;
  std::string precious_;
};

TEST_F(SampleOverTheWire, OfTwentyProcessesTakesTheTimeOfOne) {
  // The real tool takes ten seconds: one after the other they would take more than the fifty.
  hoist_.setSamplingTool(HOIST_BUILD_DIR "/bin/sample");
  std::vector<std::unique_ptr<Sleeper>> sleepers;
  std::vector<const Sleeper*> all;
  for (int i = 0; i < 20; ++i) {
    all.push_back(sleepers.emplace_back(std::make_unique<Sleeper>(kUser)).get());
  }
  auto result = sample(kUser, all);
  EXPECT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_EQ(result.json["finished"], true);
  for (const Sleeper* sleeper : all) {
    EXPECT_THAT(contents(report(*sleeper)), StartsWith("Sample of process " + sleeper->text()));
    EXPECT_EQ(statusOf(report(*sleeper)).st_uid, kUser);
    EXPECT_EQ(statusOf(report(*sleeper)).st_mode & 07777, 0666u);
  }
}

TEST_F(SampleOverTheWire, OfNoProcessIsAnswered) {
  ctl::SampleRequest request(kService, {}, {});
  ASSERT_TRUE(request.waitForAnswer(std::chrono::seconds(60)));
  EXPECT_TRUE(request.finished());
}

TEST_F(SampleOverTheWire, NeedsAReportForEachProcess) {
  ctl::SampleRequest request(kService, {1, 2}, {"/one"});
  EXPECT_THROW(request.waitForAnswer(std::chrono::seconds(60)), std::runtime_error);
}

TEST_F(SampleOverTheWire, WidensTheModeOfAnOldReport) {
  Sleeper sleeper(kUser);
  std::ofstream(report(sleeper)) << "old";
  ASSERT_EQ(::chown(report(sleeper).c_str(), kUser, kUser), 0);
  ASSERT_EQ(::chmod(report(sleeper).c_str(), 0600), 0);
  EXPECT_EQ(sample(kUser, {&sleeper}).status, 0);
  EXPECT_THAT(contents(report(sleeper)), StartsWith("Sample of process"));
  EXPECT_EQ(statusOf(report(sleeper)).st_mode & 07777, 0622u);
}

TEST_F(SampleOverTheWire, DoesNotHoldUpTheNextMessageOfItsConnection) {
  const std::string gate = Sandbox::shared().folder() + "/gate";
  const std::string tool = Sandbox::shared().folder() + "/waiting-sample";
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  std::ofstream(tool) << "#!/bin/sh\nread line < " << gate << "\n";
  ASSERT_EQ(::chmod(tool.c_str(), 0755), 0);
  hoist_.setSamplingTool(tool);
  auto connection = xpc::Connection::initWithMachServiceName(kService);
  connection->setRemoteObjectInterface(
      xpc::Interface::interfaceWithProtocol(tesselHoistingProtocol()));
  connection->resume();
  ConditionLock sampled(0), passed(0);
  connection->remoteObjectProxy()->send<&TesselHoisting::asyncSample>(
      std::vector<std::int32_t>{1}, std::vector<std::string>{folder_ + "/report"},
      [&](bool) { sampled.messageReplied(); });
  connection->remoteObjectProxy()->send<&KLComponentMessaging::barrierWithCompletion>(
      [&] { passed.messageReplied(); });
  EXPECT_TRUE(passed.waitForMessageReplyBeforeInterval(60));
  EXPECT_EQ(sampled.condition(), 0);
  FileDescriptor open(::open(gate.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::write(open.get(), "\n", 1), 1);
  EXPECT_TRUE(sampled.waitForMessageReplyBeforeInterval(60));
  fs::remove(gate);
}

TEST_F(SampleOverTheWire, SkipsReportsThatItsUserCouldNotWrite) {
  Sleeper good(kUser), link(kUser), fifo(kUser), device(kUser), others(kUser);
  fs::create_symlink(precious_, report(link));
  ASSERT_EQ(::mkfifo(report(fifo).c_str(), 0666), 0);
  ASSERT_EQ(::mknod(report(device).c_str(), S_IFCHR | 0666, ::makedev(1, 3)), 0);
  ASSERT_EQ(::chmod(report(device).c_str(), 0666), 0);
  fs::create_hard_link(precious_, report(others));
  auto result = sample(kUser, {&good, &link, &fifo, &device, &others});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.json["finished"], true);
  std::set<pid_t> written;
  for (const auto& each : result.json["samples"]) {
    if (!each["report"].is_null()) written.insert(each["process"].get<pid_t>());
  }
  EXPECT_EQ(written, (std::set<pid_t>{good.id()}));
  EXPECT_EQ(countLogged("report must not be written by its client"), 4u) << hoist_.log();

  // In a folder of another user's.
  ASSERT_EQ(::chown(folder_.c_str(), kOther, kOther), 0);
  Sleeper late(kUser);
  EXPECT_EQ(sample(kUser, {&late}).status, 1);
  EXPECT_FALSE(fs::exists(report(late)));
  EXPECT_EQ(countLogged("report must not be written by its client"), 5u);
}

TEST_F(SampleOverTheWire, SkipsProcessesThatItsUserCouldNotSample) {
  Sleeper own(kUser), others(kOther), roots(0);
  auto result = sample(kUser, {&own, &others, &roots});
  EXPECT_EQ(result.status, 1);
  EXPECT_TRUE(fs::exists(report(own)));
  EXPECT_FALSE(fs::exists(report(others)));
  EXPECT_FALSE(fs::exists(report(roots)));
  EXPECT_EQ(countLogged("process must not be sampled for its client"), 2u) << hoist_.log();
  // Root may.
  EXPECT_EQ(sample(0, {&own, &others, &roots}).status, 0) << hoist_.log();
}

TEST_F(SampleOverTheWire, TakesHelpersThatWereLaunchedForItsUser) {
  const std::string helper =
      Sandbox::shared().makeHelper("sampled", HOIST_BUILD_DIR "/bin/test_odd_helper", kUser);
  auto client = ChildTask::launch(
      {.launchPath = "/usr/bin/setpriv",
       .arguments = {"--reuid=20001", "--regid=20001", "--clear-groups",
                     HOIST_BUILD_DIR "/bin/hoistctl", "launch", helper, "--command=uncoupled"}});
  pid_t process = 0;
  std::string command;
  // Not the code-signing tool, which comes first.
  while (!command.starts_with(helper)) {
    if ((process = hoist_.onlyChild()) != 0)
      command = contents("/proc/" + std::to_string(process) + "/cmdline");
    ::usleep(100);
  }
  const std::string id = std::to_string(process);
  EXPECT_EQ(hoistctl(kOther, {"sample", id, "--reports=/tmp"}).status, 1);
  auto result = hoistctl(kUser, {"sample", id, "--reports=" + folder_});
  EXPECT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_THAT(contents(folder_ + "/sample-" + id + ".txt"), StartsWith("Sample of process " + id));
  client->kill();
  client->waitUntilExit();
  fs::remove_all(Sandbox::shared().folder() + "/sampled");
}

TEST_F(SampleOverTheWire, HitsNothingThroughASwappedPath) {
  // The report's name means, by turns, the user's own file and a link to root's.
  Sleeper sleeper(kUser);
  const std::string path = report(sleeper);
  const std::string link = folder_ + "/link";
  std::ofstream(path) << "own";
  ASSERT_EQ(::chown(path.c_str(), kUser, kUser), 0);
  fs::create_symlink(precious_, link);
  std::atomic<bool> ended = false;
  auto swapper = std::async(std::launch::async, [&] {
    while (!ended) ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
  });
  int reports = 0;
  for (int i = 0; i < 12; ++i) {
    ctl::SampleRequest request(kService, {1}, {path});  // as root, who might write everywhere
    ASSERT_TRUE(request.waitForAnswer(std::chrono::seconds(60)));
    reports += sample(kUser, {&sleeper}).status == 0;
    expectUnharmed();
  }
  ended = true;
  swapper.get();
  RecordProperty("reports", reports);
}

TEST_F(SampleOverTheWire, MayBeShorterAndDrawn) {
  hoist_.setSamplingTool(HOIST_BUILD_DIR "/bin/sample");
  Sleeper sleeper(kUser);
  auto result = sample(kUser, {&sleeper}, {"--duration=0.2", "--flamegraph=" + folder_});
  ASSERT_EQ(result.status, 0) << result.json << hoist_.log();
  EXPECT_EQ(result.json["samples"][0]["report"], report(sleeper));
  EXPECT_THAT(contents(report(sleeper)), HasSubstr("because the sampler was interrupted"));
  const std::string picture = result.json["samples"][0]["flameGraph"];
  EXPECT_EQ(picture, folder_ + "/sample-" + sleeper.text() + ".svg");
  EXPECT_THAT(contents(picture), HasSubstr("Flame graph of test_probe [" + sleeper.text() + "]"));
  EXPECT_EQ(ctl::samplerOf(sleeper.id()), std::nullopt);
}

TEST_F(SampleOverTheWire, IsNotDrawnThroughALink) {
  Sleeper sleeper(kUser);
  const std::string picture = folder_ + "/sample-" + sleeper.text() + ".svg";
  fs::create_symlink(precious_, picture);
  // By root, who might write everywhere.
  auto result =
      hoistctl(0, {"sample", sleeper.text(), "--reports=" + folder_, "--flamegraph=" + folder_});
  EXPECT_EQ(result.status, 0) << result.json << hoist_.log();
  expectUnharmed();
  EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(picture)));
}

// What hoistctl writes to a terminal, which is its standard error.
std::string shownOnTerminal(std::vector<std::string> arguments) {
  FileDescriptor terminal(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
  ::grantpt(terminal.get());
  ::unlockpt(terminal.get());
  FileDescriptor end(::open(::ptsname(terminal.get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  auto client = ChildTask::launch({.launchPath = HOIST_BUILD_DIR "/bin/hoistctl",
                                   .arguments = std::move(arguments),
                                   .standardOutput = end.get(),
                                   .standardError = end.get()});
  end.reset();
  std::string shown;
  char buffer[4096];
  for (ssize_t got; (got = ::read(terminal.get(), buffer, sizeof buffer)) > 0;) {
    shown.append(buffer, static_cast<std::size_t>(got));
  }
  client->waitUntilExit();
  EXPECT_EQ(client->terminationStatus(), 0) << shown;
  return shown;
}

TEST_F(SampleOverTheWire, ShowsItsProgressOnATerminal) {
  Sleeper sleeper(kUser);
  const std::string shown =
      shownOnTerminal({"sample", sleeper.text(), "--reports=" + folder_, "--duration=0.2"});
  EXPECT_THAT(shown, HasSubstr("\r\033[Ksampling one process ["));
  // The bar is gone when the reports are named.
  EXPECT_THAT(shown.substr(shown.rfind("\033[K")), HasSubstr(report(sleeper)));
}

TEST_F(SampleOverTheWire, IsQuietElsewhere) {
  Sleeper sleeper(kUser);
  auto result = runProgram(HOIST_BUILD_DIR "/bin/hoistctl",
                           {"sample", sleeper.text(), "--reports=" + folder_});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, Not(HasSubstr("\033")));
  EXPECT_THAT(result.output, HasSubstr(report(sleeper)));
}

TEST(SampleCommand, WantsProcessesAndFoldersThatCanBe) {
  Sandbox::shared();
  EXPECT_EQ(hoistctl(kUser, {"sample"}).status, 2);
  EXPECT_EQ(hoistctl(kUser, {"sample", "-1"}).status, 2);
  EXPECT_EQ(hoistctl(kUser, {"sample", "1", "--duration=0"}).status, 2);
  EXPECT_EQ(hoistctl(kUser, {"sample", "1", "--duration=11"}).status, 2);
  EXPECT_EQ(hoistctl(kUser, {"sample", "1", "--reports=/nowhere"}).status, 2);
  EXPECT_EQ(hoistctl(kUser, {"--service=com.kelvo.nobody", "sample", "1"}).status, 3);
}

}  // namespace
}  // namespace hoist
