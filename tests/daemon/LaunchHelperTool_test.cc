// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One launch inside of this process, with a helper that behaves as its command says. What root and
// other users see of launches is tested with the whole daemon.
#include "daemon/LaunchHelperTool.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <linux/sched.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>
#include <vector>

#include "daemon/HelperRegistry.h"
#include "daemon/KLHelperGlue.h"
#include "daemon/TesselHoister.h"
#include "filesystem/PXPath.h"
#include "platform/FileReading.h"
#include "platform/RunLoop.h"
#include "platform/xpc/Limits.h"
#include "support/ClockDriver.h"
#include "support/Raised.h"
#include "support/RecordingLogger.h"
#include "support/TemporaryFolder.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::Not;

constexpr uid_t kUser = 20001;
constexpr uid_t kOther = 20002;
const std::string kHelper = HOIST_BUILD_DIR "/bin/test_odd_helper";
const std::string kFailedLine = "Helper tool could not be launched";
const std::string kWrongVersionLine = "Incompatible version of helper installed";
const std::string kAbandonLine =
    "+[KLConnectionVendor(KLHelperGlue) abandonConnectionWithHelper:] command ";

class TheHelper : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    fs::copy_file(kHelper, path_);
    install(04755, kUser);
    ::setenv("XDG_CONFIG_HOME", folder_.path().c_str(), 1);
  }
  ~TheHelper() override {
    ::unsetenv("XDG_CONFIG_HOME");
    KLHelperGlue::shared().setHelperCouplingServiceName(std::nullopt);
    if (helper_.task) helper_.task->kill();
    while (HelperRegistry::shared().count() > 0) RunLoop::main().runOnce(1'000'000);
  }

  void install(mode_t mode, uid_t owner) {
    ASSERT_EQ(::chown(path_.c_str(), owner, owner), 0);
    ASSERT_EQ(::chmod(path_.c_str(), mode), 0);
  }
  bool isInstalledSafely(uid_t owner, bool requireSetUserID = true) {
    return HelperToolIsInstalledSafely(*PXFileInfo::infoForPath(path_), owner, requireSetUserID);
  }
  void setRunsInBackground(bool background) {
    folder_.write("com.kelvo.helper.plist",
                  std::string("<plist version=\"1.0\"><dict><key>KLRunActionsAsBackgroundProcess"
                              "</key>") +
                      (background ? "<true/>" : "<false/>") + "</dict></plist>");
  }

  HelperLaunch launchOf(const std::string& commandName) {
    auto file = std::make_shared<const FileDescriptor>(platform::openRegularFile(path_));
    auto bytes = std::make_shared<const platform::SealedFile>(
        platform::SealedFile::copyOf(file->get(), UINT32_MAX, "helper"));
    return {.file = PXFileInfo::infoForOpenFile(file->get(), PXPath::initWithPath(path_)),
            .executable = {file, bytes},
            .commandName = commandName,
            .flags = {},
            .owner = kUser};
  }
  // The helper is ended with the test.
  const LaunchedHelper& launch(const std::string& commandName) {
    helper_ = LaunchHelperTool(launchOf(commandName));
    return helper_;
  }
  KLException failureOf(const std::string& commandName) {
    return raisedBy([&] { launch(commandName); });
  }
  std::vector<std::string> logged() { return log_.texts(classification::Debug); }

  LogRecorder log_;
  TemporaryFolder folder_;
  std::string path_ = folder_ / "helper";
  LaunchedHelper helper_;
};

// A process with the given number, which is nobody's; nothing where that cannot be had.
class ProcessOfNumber {
 public:
  explicit ProcessOfNumber(pid_t number) {
    clone_args arguments{};
    arguments.exit_signal = SIGCHLD;
    arguments.set_tid = reinterpret_cast<std::uintptr_t>(&number);
    arguments.set_tid_size = 1;
    id_ = static_cast<pid_t>(::syscall(SYS_clone3, &arguments, sizeof arguments));
    if (id_ == 0) {
      ::syscall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL);
      for (;;) ::syscall(SYS_pause);
    }
  }
  ~ProcessOfNumber() {
    if (id_ <= 0) return;
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
  ProcessOfNumber(const ProcessOfNumber&) = delete;
  ProcessOfNumber& operator=(const ProcessOfNumber&) = delete;
  explicit operator bool() const { return id_ > 0; }

 private:
  pid_t id_;
};

// The helper that this process has started, once it has answered and got its priority.
pid_t answeredHelper() {
  for (;; std::this_thread::yield()) {
    for (const auto& thread : fs::directory_iterator("/proc/self/task")) {
      std::ifstream children(thread.path() / "children");
      pid_t child = 0;
      if (children >> child && ::getpriority(PRIO_PROCESS, child) == 19) return child;
    }
  }
}

// Lets the time for the endpoint pass once the helper has answered.
decltype(auto) withoutWaiting(auto&& launch) {
  TestClock clock(Date(1'700'000'000));
  std::optional<ClockDriver> driver;
  std::jthread whenItHasAnswered([&] {
    answeredHelper();
    driver.emplace(clock);
  });
  return launch();
}

TEST_F(TheHelper, IsInstalledSafelyAsARegularSetUserIDExecutableOfItsOwner) {
  EXPECT_TRUE(isInstalledSafely(kUser));
  EXPECT_FALSE(isInstalledSafely(kOther));
  install(04655, kUser);
  EXPECT_FALSE(isInstalledSafely(kUser)) << "its owner cannot execute it";
  EXPECT_FALSE(isInstalledSafely(kUser, false));
  install(02755, kUser);
  EXPECT_FALSE(isInstalledSafely(kUser)) << "it is not set-user-ID";
  EXPECT_TRUE(isInstalledSafely(kUser, false));
  fs::remove(path_);
  EXPECT_FALSE(isInstalledSafely(kUser)) << "it is not there";
  fs::create_directory(path_);
  install(04755, kUser);
  EXPECT_FALSE(isInstalledSafely(kUser)) << "it is a folder";
  fs::remove(path_);
  fs::create_symlink(kHelper, path_);
  EXPECT_FALSE(isInstalledSafely(0, false)) << "it is a link";
}

TEST_F(TheHelper, IsOfAnyOwnerForRoot) {
  EXPECT_TRUE(isInstalledSafely(0));
  install(0755, kUser);
  EXPECT_FALSE(isInstalledSafely(0));
  install(04655, kUser);
  EXPECT_FALSE(isInstalledSafely(0));
}

TEST_F(TheHelper, RaisesWithTheFileThatIsNotInstalledSafely) {
  install(0755, kUser);
  auto exception = failureOf("uncoupled");
  EXPECT_EQ(exception.name(), "Security");
  EXPECT_EQ(exception.reason(), "helper not correctly installed");
  EXPECT_EQ(detailOf(exception, detail_key::Path), path_);
  EXPECT_THAT(logged(), Contains(kFailedLine));
}

TEST_F(TheHelper, IsNotStartedBesideTooManyOfItsUser) {
  std::vector<HelperRegistry::Place> places;
  for (std::size_t i = 0; i < xpc::kHelpersOfOneUser; ++i)
    places.push_back(HelperRegistry::shared().takePlace(kUser));
  auto exception = failureOf("uncoupled");
  EXPECT_EQ(exception.name(), "Security");
  EXPECT_EQ(exception.reason(), "too many helpers are running");
  places.pop_back();
  EXPECT_TRUE(launch("uncoupled").task);
}

TEST_F(TheHelper, RaisesWhenItCannotBeStarted) {
  KLHelperGlue::shared().setHelperCouplingServiceName("com.kelvo.none");
  // No more than the header of a program.
  fs::resize_file(path_, 64);
  install(04755, kUser);
  auto exception = failureOf("uncoupled");
  EXPECT_EQ(exception.name(), "IO");
  EXPECT_EQ(exception.reason(), "cannot start helper");
  EXPECT_EQ(detailOf(exception, detail_key::Path), path_);
  EXPECT_THAT(logged(), Contains(kFailedLine));
  EXPECT_THAT(logged(), Contains(kAbandonLine + "(null)"));
}

TEST_F(TheHelper, RaisesWhenItAnswersNothing) {
  auto exception = failureOf("exit");
  EXPECT_EQ(exception.name(), "Bug");
  EXPECT_EQ(exception.reason(), "NULL response from helper");
  EXPECT_THAT(logged(), Contains(kFailedLine));
}

TEST_F(TheHelper, RaisesWithItsExplanationWhenItRefuses) {
  auto exception = failureOf("refuse");
  EXPECT_EQ(exception.name(), "Process");
  EXPECT_EQ(exception.reason(), "helper did not start");
  EXPECT_EQ(detailOf(exception, "Response"), "this helper refuses");
  EXPECT_EQ(detailOf(exception, detail_key::Version), "(none)");
  EXPECT_FALSE(exception.hasFlag(detail_key::WrongVersion));
  EXPECT_THAT(logged(), Contains(kFailedLine));
  EXPECT_THAT(logged(), Not(Contains(kWrongVersionLine)));
}

TEST_F(TheHelper, RaisesWithTheVersionWhenItIsOfAnotherOne) {
  auto exception = failureOf("badver");
  EXPECT_EQ(exception.name(), "Process");
  EXPECT_EQ(exception.reason(), "helper did not start");
  EXPECT_EQ(detailOf(exception, "Response"), "BADVER Helper-1.0");
  EXPECT_EQ(detailOf(exception, detail_key::Version), "Helper-2.2.5.12");
  EXPECT_TRUE(exception.hasFlag(detail_key::WrongVersion));
  EXPECT_THAT(logged(), Contains(kWrongVersionLine));
  EXPECT_THAT(logged(), Not(Contains(kFailedLine)));
}

TEST_F(TheHelper, GetsOneVariableAndNoOtherWhenItIsToCouple) {
  ::setenv("HOIST_TEST_INHERITED", "yes", 1);
  auto apart = detailOf(failureOf("state"), "Response");
  EXPECT_NE(apart.find("variable: HOIST_TEST_INHERITED=yes\n"), std::string::npos) << apart;
  EXPECT_EQ(apart.find("KLHELPER_PARENT_XPC_SERVICE_NAME"), std::string::npos) << apart;
  KLHelperGlue::shared().setHelperCouplingServiceName("com.kelvo.none");
  auto coupled = detailOf(failureOf("state"), "Response");
  ::unsetenv("HOIST_TEST_INHERITED");
  auto variable = coupled.find("variable: ");
  EXPECT_EQ(coupled.find("variable: KLHELPER_PARENT_XPC_SERVICE_NAME=com.kelvo.none\n"), variable)
      << coupled;
  EXPECT_EQ(coupled.find("variable: ", variable + 1), std::string::npos) << coupled;
}

TEST_F(TheHelper, HasNoEndpointWhenNothingIsToCouple) {
  const auto& helper = launch("uncoupled");
  EXPECT_EQ(helper.serviceName,
            "helper.uncoupled." + std::to_string(helper.task->processIdentifier()));
  EXPECT_FALSE(helper.endpoint);
  EXPECT_EQ(logged(), std::vector<std::string>());
}

TEST_F(TheHelper, HasANameWithoutAnEndpointWhenItDoesNotCoupleInTime) {
  setRunsInBackground(true);
  KLHelperGlue::shared().setHelperCouplingServiceName("com.kelvo.none");
  const auto& helper = withoutWaiting([&]() -> auto& { return launch("uncoupled"); });
  EXPECT_EQ(helper.serviceName,
            "helper.uncoupled." + std::to_string(helper.task->processIdentifier()));
  EXPECT_FALSE(helper.endpoint);
  EXPECT_EQ(KLHelperGlue::shared().condition(), KLHelperGlue::kIdle);
  EXPECT_FALSE(KLHelperGlue::shared().turns().user());
}

TEST_F(TheHelper, AbandonsTheCouplingWhenItFails) {
  KLHelperGlue::shared().setHelperCouplingServiceName("com.kelvo.none");
  failureOf("refuse");
  EXPECT_EQ(KLHelperGlue::shared().condition(), KLHelperGlue::kIdle);
  EXPECT_FALSE(KLHelperGlue::shared().turns().user());
  EXPECT_THAT(logged(), Contains(testing::StartsWith(kAbandonLine + "helper.refuse.")));
  install(0755, kUser);
  failureOf("refuse");
  EXPECT_THAT(logged(), Contains(kAbandonLine + "(null)"));
}

// Has no memory for the line that no endpoint came.
class ForgetfulLogger : public RecordingLogger {
 public:
  std::optional<std::string> formatMessage(std::string_view message, const LogLineIdentifier& line,
                                           Classification classification,
                                           std::string_view name) override {
    if (message.ends_with("resetting")) throw std::bad_alloc();
    return RecordingLogger::formatMessage(message, line, classification, name);
  }
};

TEST_F(TheHelper, AbandonsTheCouplingWhateverFails) {
  ScopedDefaultLogger<ForgetfulLogger> logger;
  KLHelperGlue::shared().setHelperCouplingServiceName("com.kelvo.none");
  EXPECT_THROW(withoutWaiting([&] { launch("uncoupled"); }), std::bad_alloc);
  ::kill(answeredHelper(), SIGKILL);
  EXPECT_EQ(KLHelperGlue::shared().condition(), KLHelperGlue::kIdle);
  EXPECT_FALSE(KLHelperGlue::shared().turns().user());
}

TEST_F(TheHelper, HasTheLowPriorityUnlessThePreferenceSaysOtherwise) {
  setRunsInBackground(false);
  const auto& helper = launch("uncoupled");
  EXPECT_FALSE(helper.isInBackground);
  EXPECT_EQ(::getpriority(PRIO_PROCESS, helper.task->processIdentifier()),
            ::getpriority(PRIO_PROCESS, 0));
  helper.task->kill();
  if (fs::exists("/etc/xdg/com.kelvo.helper.plist")) return;
  fs::remove(folder_ / "com.kelvo.helper.plist");
  launch("uncoupled");
  EXPECT_TRUE(helper.isInBackground);
  EXPECT_EQ(::getpriority(PRIO_PROCESS, helper.task->processIdentifier()), 19);
}

// It ends while it is waited for; whoever gets its number is not the one to be moved.
TEST_F(TheHelper, IsNotMovedToTheBackgroundWhenItsNumberIsAnothers) {
  setRunsInBackground(true);
  KLHelperGlue::shared().setHelperCouplingServiceName("com.kelvo.none");
  folder_.write("My.app/Contents/Info.plist",
                "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>Tool</string>"
                "</dict></plist>");
  std::string tool = folder_.write(
      "codesign",
      "#!/bin/sh\n/usr/bin/sha256sum \"$2\"/Contents/Linux/Tool | /usr/bin/cut -d' ' -f1\n");
  fs::permissions(tool, fs::perms::owner_all);
  fs::create_directory(folder_ / "My.app/Contents/Linux");
  fs::rename(path_, folder_ / "My.app/Contents/Linux/Tool");
  TesselHoister hoister(kUser, {.codesign = tool, .sample = "/nonexistent/sample"});
  TestClock clock(Date(1'700'000'000));
  std::optional<std::string> serviceName;
  std::thread launch([&] {
    hoister.launchPrivilegedHelper(folder_ / "My.app/Contents/Linux/Tool", "uncoupled", {},
                                   [&](const auto& name, const auto&) { serviceName = name; });
  });
  pid_t helper = answeredHelper();
  ::kill(helper, SIGKILL);
  while (HelperRegistry::shared().count() > 0) RunLoop::main().runOnce(1'000'000);
  ProcessOfNumber other(helper);
  {
    ClockDriver driver(clock);
    launch.join();
  }
  EXPECT_EQ(serviceName, "helper.uncoupled." + std::to_string(helper));
  if (!other) GTEST_SKIP() << "a process cannot be given a number here";
  EXPECT_EQ(::sched_getscheduler(helper), SCHED_OTHER);
  EXPECT_EQ(::getpriority(PRIO_PROCESS, helper), ::getpriority(PRIO_PROCESS, 0));
}

}  // namespace
}  // namespace hoist
