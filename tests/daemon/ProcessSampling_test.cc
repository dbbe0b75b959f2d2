// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// What a sample request does, with a tool of the test's own in the place of the sampler.
#include "daemon/ProcessSampling.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <future>

#include "daemon/HelperRegistry.h"
#include "platform/ChildTask.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/OperationRefused.h"
#include "support/ClockDriver.h"
#include "support/RecordingLogger.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace std::chrono_literals;

constexpr uid_t kUser = 20001;
constexpr uid_t kOther = 20002;
// A failure only, however busy the machine is.
constexpr auto kLongTime = 60s;

// A process that waits, as the function makes it.
class Sleeper {
 public:
  template <class Become>
  explicit Sleeper(Become&& become) {
    PipeEnds ready = makePipe();
    id_ = ::fork();
    if (id_ == 0) {
      ::prctl(PR_SET_DUMPABLE, 1);
      become();
      ready.writing.reset();
      for (;;) ::pause();
    }
    ready.writing.reset();
    char none;
    EXPECT_EQ(::read(ready.reading.get(), &none, 1), 0);
  }
  ~Sleeper() {
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
  pid_t id() const { return id_; }

 private:
  pid_t id_;
};

void become(uid_t real, uid_t effective, uid_t saved) {
  if (::setresgid(kUser, kUser, kUser) != 0 || ::setresuid(real, effective, saved) != 0) ::_exit(9);
  ::prctl(PR_SET_DUMPABLE, 1);
}

class MayBeSampled : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to become others";
  }
};

TEST_F(MayBeSampled, EveryProcessForRoot) {
  EXPECT_TRUE(mayBeSampled(1, 0));
  Sleeper users([] { become(kUser, kUser, kUser); });
  EXPECT_TRUE(mayBeSampled(users.id(), 0));
}

TEST_F(MayBeSampled, AUsersOwnProcess) {
  Sleeper own([] { become(kUser, kUser, kUser); });
  EXPECT_TRUE(mayBeSampled(own.id(), kUser));
  EXPECT_FALSE(mayBeSampled(own.id(), kOther));
}

TEST_F(MayBeSampled, NoProcessThatIsSomebodyElseToo) {
  EXPECT_FALSE(mayBeSampled(1, kUser));
  EXPECT_FALSE(mayBeSampled(::getpid(), kUser));
  Sleeper setUserID([] { become(kUser, 0, 0); });
  EXPECT_FALSE(mayBeSampled(setUserID.id(), kUser));
  Sleeper saved([] { become(kUser, kUser, 0); });
  EXPECT_FALSE(mayBeSampled(saved.id(), kUser));
}

TEST_F(MayBeSampled, NoProcessThatHidesFromItsUser) {
  Sleeper secret([] {
    become(kUser, kUser, kUser);
    ::prctl(PR_SET_DUMPABLE, 0);
  });
  EXPECT_FALSE(mayBeSampled(secret.id(), kUser));
}

TEST_F(MayBeSampled, NoProcessThatIsNotThere) {
  EXPECT_FALSE(mayBeSampled(INT32_MAX, kUser));
  EXPECT_FALSE(mayBeSampled(0, kUser));
  EXPECT_FALSE(mayBeSampled(-1, kUser));
}

TEST_F(MayBeSampled, AHelperThatWasLaunchedForTheUser) {
  auto helper = ChildTask::launch({.launchPath = HOIST_BUILD_DIR "/bin/test_probe",
                                   .arguments = {"sleep"},
                                   .setUserIDOwner = kUser});
  EXPECT_FALSE(mayBeSampled(helper->processIdentifier(), kUser));  // not launched by the hoist
  HelperRegistry::shared().add(helper, HelperRegistry::shared().takePlace(kUser));
  EXPECT_TRUE(mayBeSampled(helper->processIdentifier(), kUser));
  EXPECT_FALSE(mayBeSampled(helper->processIdentifier(), kOther));
  helper->kill();
  helper->waitUntilExit();
}

class SampleRequests : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    ::chmod(folder_.path().c_str(), 0755);
  }
  // What the tool does; "$1" is the process, "$3" the report.
  void setTool(const std::string& script) {
    ::chmod(folder_.write("tool", "#!/bin/sh\n" + script + "\n").c_str(), 0755);
  }
  std::future<bool> ask(uid_t user, std::vector<std::int32_t> processes,
                        std::vector<std::string> reports) {
    auto promise = std::make_shared<std::promise<bool>>();
    sampleProcesses({user, std::move(processes), std::move(reports), folder_ / "tool"},
                    [promise](bool finished) { promise->set_value(finished); });
    return promise->get_future();
  }
  bool answer(std::future<bool> reply) {
    if (reply.wait_for(kLongTime) != std::future_status::ready) ADD_FAILURE() << "no reply";
    return reply.get();
  }
  mode_t modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
  }
  // What went into the log as the reasons of Security exceptions.
  std::size_t countLogged(const std::string& text) {
    const auto texts = log_.texts();
    return static_cast<std::size_t>(std::ranges::count(texts, text));
  }

  LogRecorder log_;
  TemporaryFolder folder_;
};

TEST_F(SampleRequests, ForNoProcessIsAnsweredAtOnce) {
  TestClock clock(Date(1'700'000'000));  // which stands still
  EXPECT_TRUE(answer(ask(kUser, {}, {})));
  EXPECT_TRUE(answer(ask(kUser, {}, {"/a report too many"})));
  EXPECT_EQ(log_.texts(), std::vector<std::string>());
}

TEST_F(SampleRequests, RunTheToolWithThreeArgumentsAndNoEnvironment) {
  setTool("echo \"$# $1 $2 $3\" > \"$3\"; env | grep -cv '^PWD=\\|^_=\\|^SHLVL=' >> \"$3\"");
  const std::string report = folder_ / "report";
  EXPECT_TRUE(answer(ask(0, {::getpid()}, {report})));
  std::ifstream text(report);
  std::string line;
  std::getline(text, line);
  EXPECT_EQ(line, "3 " + std::to_string(::getpid()) + " -file " + report);
  std::getline(text, line);
  EXPECT_EQ(line, "0");
  EXPECT_THAT(log_.texts(classification::Debug),
              Contains("__44-[TesselHoister asyncSample:report:withReply:]_block_invoke sample of "
                       "process " +
                       std::to_string(::getpid()) + " written to " + report));
}

TEST_F(SampleRequests, LetEverybodyWriteTheReports) {
  setTool("[ -e \"$3\" ] || : > \"$3\"");
  const std::string old = folder_.write("old", "");
  ASSERT_EQ(::chmod(old.c_str(), 0600), 0);
  EXPECT_TRUE(answer(ask(0, {1, 1}, {old, folder_ / "new"})));
  EXPECT_EQ(modeOf(old), 0622u);
  EXPECT_EQ(modeOf(folder_ / "new"), 0666u);
}

TEST_F(SampleRequests, DoNotLookAtHowTheToolEnded) {
  setTool("echo partial > \"$3\"; exit 7");
  EXPECT_TRUE(answer(ask(0, {1}, {folder_ / "report"})));
  EXPECT_EQ(modeOf(folder_ / "report"), 0666u);
  setTool("exit 1");
  EXPECT_TRUE(answer(ask(0, {1}, {folder_ / "none"})));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "none"));
  std::filesystem::remove(folder_ / "tool");
  EXPECT_TRUE(answer(ask(0, {1}, {folder_ / "none"})));
  EXPECT_THAT(log_.texts(classification::Failure), Contains(HasSubstr("execve")));
}

TEST_F(SampleRequests, AreAnsweredWithFalseAfterFiftySeconds) {
  TestClock clock(Date(1'700'000'000));
  const std::string gate = folder_ / "gate";
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  setTool("echo begun > \"$3\"; read line < " + gate + "; echo done >> \"$3\"");
  const std::string report = folder_ / "report";
  auto reply = ask(0, {1}, {report});
  // The tool waits at the gate.
  FileDescriptor open(::open(gate.c_str(), O_WRONLY | O_CLOEXEC));
  clock.advance(49s);
  EXPECT_EQ(reply.wait_for(0s), std::future_status::timeout);
  {
    ClockDriver driver(clock);
    EXPECT_FALSE(answer(std::move(reply)));
  }
  EXPECT_THAT(log_.texts(classification::Debug),
              Contains("__44-[TesselHoister asyncSample:report:withReply:]_block_invoke Timed out "
                       "waiting for processes to finish sampling"));
  EXPECT_EQ(modeOf(report), 0644u);
  // It goes on by itself, and its report is widened then.
  ASSERT_EQ(::write(open.get(), "\n", 1), 1);
  while (modeOf(report) != 0666u) std::this_thread::yield();
  std::ifstream text(report);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(text), {}), "begun\ndone\n");
}

TEST_F(SampleRequests, RunAllTheirJobsAtOnce) {
  // Each tool waits until all the others have begun.
  constexpr int kJobs = 20;
  setTool("echo > \"$3\"; while [ $(ls " + (folder_ / "reports") + " | wc -l) -lt " +
          std::to_string(kJobs) + " ]; do sleep 0.01; done");
  std::filesystem::create_directory(folder_ / "reports");
  std::vector<std::string> reports;
  for (int i = 0; i < kJobs; ++i) reports.push_back(folder_ / "reports/" + std::to_string(i));
  EXPECT_TRUE(answer(ask(0, std::vector<std::int32_t>(kJobs, 1), reports)));
  for (const std::string& report : reports) EXPECT_EQ(modeOf(report), 0666u);
}

TEST_F(SampleRequests, AreRefusedWithFewerReportsThanProcesses) {
  EXPECT_THROW(ask(kUser, {1, 2}, {"/one"}), xpc::OperationRefused);
  EXPECT_THROW(ask(kUser, std::vector<std::int32_t>(xpc::kProcessesInOneSample + 1, 1),
                   std::vector<std::string>(xpc::kProcessesInOneSample + 1, "/report")),
               xpc::OperationRefused);
}

TEST_F(SampleRequests, OfOneUserAreBounded) {
  const std::string gate = folder_ / "gate";
  ASSERT_EQ(::mkfifo(gate.c_str(), 0600), 0);
  setTool("read line < " + gate);
  const std::vector<std::int32_t> processes(xpc::kProcessesInOneSample, 1);
  const std::vector<std::string> reports(xpc::kProcessesInOneSample, folder_ / "report");
  static_assert(xpc::kSamplingJobsOfOneUser % xpc::kProcessesInOneSample == 0);
  std::vector<std::future<bool>> replies;
  for (std::size_t i = 0; i < xpc::kSamplingJobsOfOneUser / xpc::kProcessesInOneSample; ++i) {
    replies.push_back(ask(0, processes, reports));
  }
  EXPECT_THROW(ask(0, {1}, {folder_ / "report"}), xpc::OperationRefused);
  EXPECT_TRUE(answer(ask(kUser, {}, {})));  // others are not concerned
  // Open for reading too, so that the gate stays open until all have passed.
  FileDescriptor open(::open(gate.c_str(), O_RDWR | O_CLOEXEC));
  for (std::size_t i = 0; i < xpc::kSamplingJobsOfOneUser; ++i) {
    ASSERT_EQ(::write(open.get(), "\n", 1), 1);
  }
  for (auto& reply : replies) EXPECT_TRUE(answer(std::move(reply)));
  EXPECT_TRUE(answer(ask(0, {}, {})));
}

TEST_F(SampleRequests, SkipWhatTheirUserMayNotSample) {
  setTool("echo > \"$3\"");
  const std::string folder = folder_ / "users";
  std::filesystem::create_directory(folder);
  ASSERT_EQ(::chown(folder.c_str(), kUser, kUser), 0);
  EXPECT_TRUE(answer(ask(kUser, {1}, {folder + "/report"})));
  EXPECT_FALSE(std::filesystem::exists(folder + "/report"));
  EXPECT_EQ(countLogged("process must not be sampled for its client"), 1u);
}

TEST_F(SampleRequests, SkipReportsThatTheirUserCouldNotWrite) {
  Sleeper own([] { become(kUser, kUser, kUser); });
  setTool("echo text > \"$3\"");
  const std::string folder = folder_ / "users";
  std::filesystem::create_directory(folder);
  ASSERT_EQ(::chown(folder.c_str(), kUser, kUser), 0);
  const std::string precious = folder_.write("precious", "precious");
  ASSERT_EQ(::chmod(precious.c_str(), 0644), 0);
  const std::string open = folder_.write("open", "open");
  ASSERT_EQ(::chmod(open.c_str(), 0666), 0);
  std::filesystem::create_symlink(open, folder + "/link");
  std::filesystem::create_symlink(folder_ / "nowhere", folder + "/loose");
  ASSERT_EQ(::mkfifo((folder + "/fifo").c_str(), 0666), 0);
  const std::vector<std::string> reports = {
      precious,
      folder_ / "new",
      folder + "/link",
      folder + "/loose",
      folder + "/fifo",
      "/dev/null",
      folder,
      folder + "/no/such",
      precious + "/new",
      "",
      folder + "/../other",
  };
  EXPECT_TRUE(answer(ask(kUser, std::vector<std::int32_t>(reports.size(), own.id()), reports)));
  EXPECT_EQ(countLogged("report must not be written by its client"), reports.size());
  EXPECT_EQ(modeOf(precious), 0644u);
  EXPECT_EQ(modeOf(open), 0666u);
  EXPECT_EQ(std::filesystem::file_size(open), 4u);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "nowhere"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "new"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / "other"));
}

TEST_F(SampleRequests, WidenOnlyWhatTheirUserCouldHaveWidened) {
  // The user swaps its report for a link, and for somebody else's file, while the tool runs.
  Sleeper own([] { become(kUser, kUser, kUser); });
  const std::string folder = folder_ / "users";
  std::filesystem::create_directory(folder);
  ASSERT_EQ(::chown(folder.c_str(), kUser, kUser), 0);
  const std::string precious = folder_.write("precious", "precious");
  ASSERT_EQ(::chmod(precious.c_str(), 0644), 0);
  const std::string hard = folder + "/hard", spare = folder + "/spare";
  std::filesystem::create_hard_link(precious, hard);
  std::filesystem::create_hard_link(precious, spare);
  // The tool here is the user's (a shell gives up what its real user has not).
  setTool("case \"$3\" in *link) ln -s " + precious + " \"$3\";; *swapped) mv " + spare +
          " \"$3\";; *) echo > \"$3\";; esac");
  EXPECT_TRUE(answer(ask(kUser, std::vector<std::int32_t>(4, own.id()),
                         {folder + "/link", hard, folder + "/swapped", folder + "/report"})));
  EXPECT_TRUE(std::filesystem::is_symlink(folder + "/link"));
  EXPECT_TRUE(std::filesystem::equivalent(folder + "/swapped", precious));
  EXPECT_EQ(modeOf(precious), 0644u);
  EXPECT_EQ(modeOf(folder + "/report"), 0666u);
}

}  // namespace
}  // namespace hoist
