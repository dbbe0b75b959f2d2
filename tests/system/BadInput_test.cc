// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Every argument of every operation with what it should not be: nothing, too much, no text, paths
// to things that are no helper. Each is answered as the table says and leaves its line in the log,
// nobody else notices, and nothing is left of it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/SystemCall.h"
#include "platform/dbus/MessageReader.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/testing/RawPeer.h"
#include "system/RunningHoist.h"

namespace hoist {
namespace {

namespace fs = std::filesystem;
using dbus::MessageWriter;

constexpr unsigned kUser = 20001;
constexpr unsigned kOther = 20002;
const std::string kSocket = "/run/kelvo/com.kelvo.hoist";
constexpr const char* kHoisting = "com.kelvo.TesselHoisting";
constexpr const char* kCoupling = "com.kelvo.KLHelperCoupling";

// What stands for bytes that are no UTF-8, which the writer of messages would not write: its first
// byte becomes one that no text has.
const std::string kNoText = "(no text)";

// More than a message may have, and a lot that still fits.
const std::string kTooMuch(10 << 20, 'x');
const std::string kMuch(900 << 10, 'x');

std::string_view quoted(const std::string& text) {
  return std::string_view(text).substr(0, 60);
}

dbus::OutgoingMessage call(const std::string& interface, const std::string& member,
                           const std::string& signature,
                           const std::function<void(MessageWriter&)>& write) {
  auto message =
      xpc::rawCall({.interface = interface, .member = member, .signature = signature}, 1, write);
  auto found =
      std::search(message.bytes.begin(), message.bytes.end(), kNoText.begin(), kNoText.end());
  if (found != message.bytes.end()) *found = 0xff;
  return message;
}

dbus::OutgoingMessage launchCall(const std::string& path, const std::string& commandName,
                                 const std::vector<std::string>& flags) {
  return call(kHoisting, "launchPrivilegedHelper_commandName_flags_reply_", "ssas",
              [&](MessageWriter& writer) {
                writer.appendString(path);
                writer.appendString(commandName);
                writer.appendStrings(flags);
              });
}

dbus::OutgoingMessage sampleCall(const std::vector<std::int32_t>& processes,
                                 const std::vector<std::string>& reports) {
  return call(kHoisting, "asyncSample_report_withReply_", "aias", [&](MessageWriter& writer) {
    writer.openArray();
    for (auto process : processes) writer.appendInt32(process);
    writer.close();
    writer.appendStrings(reports);
  });
}

dbus::OutgoingMessage connectCall(int descriptor, const std::string& commandID) {
  return call(kCoupling, "connectWithEndpoint_forCommandID_withReply_", "hs",
              [&](MessageWriter& writer) {
                writer.appendFileDescriptor(FileDescriptor::duplicate(descriptor));
                writer.appendString(commandID);
              });
}

// The values of an answer, or the name of its error.
std::string describe(dbus::Message& answer) {
  if (answer.type() == dbus::MessageType::kError) {
    auto name = answer.errorName();
    return std::string(name.substr(name.rfind('.') + 1));
  }
  dbus::MessageReader values(answer);
  if (answer.signature() == "b") return values.readBoolean() ? "yes" : "no";
  if (answer.signature() != "asah") return "answered";
  values.enterArray();
  return values.hasMore() ? "launched" : "nil";
}

std::size_t occurrences(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

class BadInput : public testing::Test {
 protected:
  BadInput() {
    hoistctl(kOther, {"status"});
    before_ = hoist_.holdings();
  }
  ~BadInput() override {
    EXPECT_TRUE(hoist_.isRunning());
    EXPECT_EQ(hoistctl(kOther, {"status"}).status, 0);
    auto after = hoist_.holdingsAfterSettling(before_);
    EXPECT_LE(after.descriptors, before_.descriptors);
    EXPECT_LE(after.threads, before_.threads);
    EXPECT_EQ(after.children, 0u);
  }

  // What a client of the user gets for the call: the answer; "closed" behind an error when the
  // connection ends with it; "silence" when a call that follows is answered in its place.
  static std::string outcomeOf(const dbus::OutgoingMessage& message) {
    auto peer = xpc::RawPeer::asUser(kUser, kSocket);
    peer.authenticate();
    peer.send(message);
    peer.send(xpc::rawCall(
        {.interface = "com.kelvo.KLComponentMessaging", .member = "barrierWithCompletion_"}, 2));
    auto answer = peer.readMessage();
    if (!answer) return "closed";
    if (answer->replySerial() == 2) return "silence";
    auto text = describe(*answer);
    return peer.readMessage() ? text : text + ", closed";
  }
  // The answer of an operation that answers when it is done, and others meanwhile.
  static std::string lateOutcomeOf(const dbus::OutgoingMessage& message) {
    auto peer = xpc::RawPeer::asUser(kUser, kSocket);
    peer.authenticate();
    peer.send(message);
    auto answer = peer.readMessage();
    return answer ? describe(*answer) : "closed";
  }

  // Waits until the log has the line behind what it had before.
  bool isLogged(const std::string& line, std::size_t before) const {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (hoist_.log().find(line, before) == std::string::npos) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::yield();
    }
    return true;
  }
  void expect(const dbus::OutgoingMessage& message, const std::string& outcome,
              const std::string& line) {
    auto before = hoist_.log().size();
    EXPECT_EQ(outcomeOf(message), outcome);
    EXPECT_TRUE(isLogged(line, before)) << line << " is missing in:\n"
                                        << hoist_.log().substr(before).substr(0, 4000);
  }

  RunningHoist hoist_;
  RunningHoist::Holdings before_;
};

TEST_F(BadInput, PathsThatAreNoHelpers) {
  auto good = Sandbox::shared().makeHelper("good", HOIST_BUILD_DIR "/bin/KelvoHelper", kUser);
  std::string folder = fs::path(good).parent_path();
  std::string linkToIt = Sandbox::shared().folder() + "/link-to-it";
  fs::create_symlink(good, linkToIt);
  // Bundles whose main executable is something else.
  auto replaced = [](const std::string& name) {
    auto path = Sandbox::shared().makeHelper(name, HOIST_BUILD_DIR "/bin/KelvoHelper", kUser);
    fs::remove(path);
    return path;
  };
  auto isLink = replaced("link-inside"), isFolder = replaced("folder-inside"),
       isPipe = replaced("pipe-inside"), isDevice = replaced("device-inside"),
       isEmpty = replaced("empty-inside"), isMissing = replaced("missing-inside");
  fs::create_symlink(good, isLink);
  fs::create_directory(isFolder);
  systemCall("mkfifo", [&] { return ::mkfifo(isPipe.c_str(), 0666); });
  systemCall("mknod", [&] { return ::mknod(isDevice.c_str(), S_IFCHR | 0666, makedev(1, 5)); });
  FileDescriptor(::open(isEmpty.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0755)).reset();

  for (const std::string& path : {std::string(),
                                  std::string("/"),
                                  std::string("/tmp"),
                                  folder,
                                  std::string(fs::path(folder).parent_path().parent_path()),
                                  std::string("relative"),
                                  std::string("/nonexistent/helper"),
                                  folder + "/../Linux/KelvoHelper",
                                  good + "/",
                                  good + "x",
                                  std::string("/etc/passwd"),
                                  std::string("/dev/zero"),
                                  linkToIt,
                                  isLink,
                                  isFolder,
                                  isPipe,
                                  isDevice,
                                  isEmpty,
                                  isMissing,
                                  kMuch,
                                  std::string("/line\nfeed,comma")}) {
    SCOPED_TRACE(quoted(path));
    expect(launchCall(path, "capture", {}), "silence", "(Failure) helper failed validation");
  }
  expect(launchCall(kTooMuch, "capture", {}), "LimitsExceeded, closed", "kMessageSize");
  expect(launchCall(kNoText, "capture", {}), "closed", "closed, ");
  // The tool is asked about the one that is a bundle's main executable and a file: the empty one.
  EXPECT_EQ(hoist_.verifications(), 1);
}

TEST_F(BadInput, CommandNamesAndFlagsThatCannotBePassed) {
  auto helper = Sandbox::shared().makeHelper("texts", HOIST_BUILD_DIR "/bin/KelvoHelper", kUser);
  // Commas pass, and so do flags that are empty.
  EXPECT_EQ(outcomeOf(launchCall(helper, "capture", {"a,b", ",", ""})), "launched") << hoist_.log();
  ::kill(hoist_.onlyChild(), SIGKILL);
  // What is kept of a verified helper is none of these calls'.
  before_ = hoist_.holdingsAfterSettling({before_.descriptors + 2, before_.threads, 0});

  struct Row {
    std::string commandName;
    std::vector<std::string> flags;
    const char* outcome;
    const char* line;
  };
  const std::vector<Row> rows{
      // Refused by the hoist: they would forge lines, or are no ASCII.
      {"capture\nforged", {}, "nil", "command cannot be passed to helper"},
      {"\n", {}, "nil", "command cannot be passed to helper"},
      {"capturé", {}, "nil", "command cannot be passed to helper"},
      {"capture", {"fine", "for\nged"}, "nil", "command cannot be passed to helper"},
      {"capture", {"\n"}, "nil", "command cannot be passed to helper"},
      {"capture", {"Grüße"}, "nil", "command cannot be passed to helper"},
      // Refused by the helper, in its words.
      {"", {}, "nil", "Response: unknown command"},
      {"cap,ture", {}, "nil", "Response: unknown command cap,ture"},
      {"../../capture", {}, "nil", "Response: unknown command ../../capture"},
      {kMuch, {}, "nil", "(Failure) failed to launch helper"},
      // Never handled.
      {kTooMuch, {}, "LimitsExceeded, closed", "kMessageSize"},
      {"capture", {kTooMuch}, "LimitsExceeded, closed", "kMessageSize"},
      {kNoText, {}, "closed", "closed, "},
      {"capture", {"fine", kNoText}, "closed", "closed, "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(quoted(row.commandName));
    expect(launchCall(helper, row.commandName, row.flags), row.outcome, row.line);
  }
}

TEST_F(BadInput, SamplesOfWhatMayNotBeSampled) {
  // Root's processes, and numbers that are nobody's.
  std::vector<std::int32_t> processes{1, ::getpid(), 0, -1, INT32_MAX, INT32_MIN};
  auto before = hoist_.log().size();
  EXPECT_EQ(lateOutcomeOf(sampleCall(processes, std::vector<std::string>(6, "/tmp/report"))),
            "yes");
  auto log = hoist_.log().substr(before);
  EXPECT_EQ(occurrences(log, "must not be sampled"), processes.size()) << log;
  EXPECT_FALSE(fs::exists("/tmp/report"));

  std::vector<std::int32_t> many(xpc::kProcessesInOneSample + 1, 1);
  expect(sampleCall({1, 2}, {"/tmp/report"}), "LimitsExceeded", "fewer reports than processes");
  expect(sampleCall({1}, {}), "LimitsExceeded", "fewer reports than processes");
  expect(sampleCall(many, std::vector<std::string>(many.size())), "LimitsExceeded",
         "at most 128 processes in one request");
  expect(sampleCall({1}, {kTooMuch}), "LimitsExceeded, closed", "kMessageSize");
  expect(sampleCall({1}, {kNoText}), "closed", "closed, ");
  EXPECT_EQ(lateOutcomeOf(sampleCall({}, {})), "yes");
}

TEST_F(BadInput, ReportsThatCannotBeWritten) {
  std::string folder = Sandbox::shared().folder();
  fs::create_symlink("/etc/passwd", folder + "/link");
  systemCall("mkfifo", [&] { return ::mkfifo((folder + "/pipe").c_str(), 0666); });
  fs::permissions(folder + "/pipe", fs::perms::all);
  auto passwords = fs::file_size("/etc/passwd");
  auto target = ChildTask::launch(
      {.launchPath = "/usr/bin/setpriv",
       .arguments = {"--reuid=20001", "--regid=20001", "--clear-groups", "sleep", "1000"}});
  while (fs::read_symlink("/proc/" + std::to_string(target->processIdentifier()) + "/exe") !=
         fs::canonical("/usr/bin/sleep")) {
    std::this_thread::yield();
  }
  // Every one as the client's user, who may write none of them.
  std::vector<std::string> reports{"",
                                   "relative",
                                   "/nonexistent/report",
                                   folder,
                                   folder + "/../../etc/report",
                                   "/etc/passwd",
                                   folder + "/link",
                                   folder + "/pipe",
                                   "/dev/null",
                                   "/line\nfeed",
                                   kMuch};
  std::vector<std::int32_t> processes(reports.size(), target->processIdentifier());
  auto before = hoist_.log().size();
  EXPECT_EQ(lateOutcomeOf(sampleCall(processes, reports)), "yes");
  auto log = hoist_.log().substr(before);
  EXPECT_EQ(occurrences(log, "report must not be written by its client"), reports.size())
      << log.substr(0, 4000);
  EXPECT_EQ(fs::file_size("/etc/passwd"), passwords);
  target->kill();
  target->waitUntilExit();
}

// Whoever is no helper of this hoist is not answered, whatever he passes and whatever the name: his
// descriptors are not even looked at.
TEST_F(BadInput, CouplingsOfOthersThanHelpers) {
  auto pipe = makePipe();
  FileDescriptor null(::open("/dev/null", O_RDWR | O_CLOEXEC));
  FileDescriptor file(::open("/etc/passwd", O_RDONLY | O_CLOEXEC));
  FileDescriptor folder(::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  for (int descriptor :
       {pipe.reading.get(), pipe.writing.get(), null.get(), file.get(), folder.get()}) {
    EXPECT_EQ(outcomeOf(connectCall(descriptor, "helper.capture.1")), "silence");
  }
  int ends[2];
  systemCall("socketpair",
             [&] { return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends); });
  FileDescriptor mine(ends[0]), endpoint(ends[1]);
  for (const auto& name : {std::string("helper.capture.1"), std::string(), std::string("a\nb"),
                           std::string("../.."), kMuch}) {
    EXPECT_EQ(outcomeOf(connectCall(endpoint.get(), name)), "silence");
  }
  expect(connectCall(endpoint.get(), kTooMuch), "LimitsExceeded, closed", "kMessageSize");
  expect(connectCall(endpoint.get(), kNoText), "closed", "closed, ");
  // An index without its descriptor.
  auto without = connectCall(endpoint.get(), "helper.capture.1");
  without.descriptors.clear();
  expect(without, "closed", "closed, ");
}

// Whether the process sleeps in pause(2).
bool pauses(pid_t process) {
#ifdef SYS_pause
  constexpr long kPause = SYS_pause;
#else
  constexpr long kPause = SYS_ppoll;
#endif
  std::ifstream call("/proc/" + std::to_string(process) + "/syscall");
  long number = -1;
  return call >> number && number == kPause;
}

// Nor is one taken, even of the user himself, while a launch waits for its helper.
TEST_F(BadInput, CouplingsOfOthersWhileALaunchWaits) {
  auto helper = Sandbox::shared().makeHelper("odd", HOIST_BUILD_DIR "/bin/test_odd_helper", kUser);
  auto client = xpc::RawPeer::asUser(kUser, kSocket);
  client.authenticate();
  client.send(launchCall(helper, "silent", {}));
  // It has its lines, which are written once the launch is ready to couple.
  while (!pauses(hoist_.onlyChild())) std::this_thread::yield();
  int ends[2];
  systemCall("socketpair",
             [&] { return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends); });
  FileDescriptor mine(ends[0]), endpoint(ends[1]);
  auto service = "helper.silent." + std::to_string(hoist_.onlyChild());
  EXPECT_EQ(outcomeOf(connectCall(endpoint.get(), service)), "silence");
  ::kill(hoist_.onlyChild(), SIGKILL);
  auto answer = client.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(describe(*answer), "nil");
  // What is kept of a verified helper stays.
  before_.descriptors += 2;
}

// Nil is an array without an element, where the operation takes it; none of these do.
TEST_F(BadInput, NilAndArgumentsOfOtherTypes) {
  auto empty = [](MessageWriter& writer) {
    writer.openArray();
    writer.close();
  };
  auto text = [](MessageWriter& writer) { writer.appendString("x"); };
  auto nothing = [](MessageWriter&) {};
  struct Row {
    const char* interface;
    const char* member;
    const char* signature;
    std::vector<std::function<void(MessageWriter&)>> values;
    const char* takes;
  };
  const char* kLaunch = "launchPrivilegedHelper_commandName_flags_reply_";
  const char* kSample = "asyncSample_report_withReply_";
  const char* kConnect = "connectWithEndpoint_forCommandID_withReply_";
  const char* kInstalling = "com.kelvo.KLComponentInstalling";
  const std::vector<Row> rows{
      {kHoisting, kLaunch, "", {nothing}, "(ssas), not ()"},
      {kHoisting, kLaunch, "assas", {empty, text, empty}, "(ssas), not (assas)"},
      {kHoisting, kLaunch, "sasas", {text, empty, empty}, "(ssas), not (sasas)"},
      {kHoisting, kLaunch, "ss", {text, text}, "(ssas), not (ss)"},
      {kHoisting, kLaunch, "sss", {text, text, text}, "(ssas), not (sss)"},
      {kHoisting, kSample, "", {nothing}, "(aias), not ()"},
      {kHoisting, kSample, "ai", {empty}, "(aias), not (ai)"},
      {kHoisting, kSample, "auas", {empty, empty}, "(aias), not (auas)"},
      {kHoisting, "createBootApplicationSupportPathForUser", "s", {text}, "(), not (s)"},
      {kCoupling, kConnect, "ahs", {empty, text}, "(hs), not (ahs)"},
      {kCoupling, kConnect, "s", {text}, "(hs), not (s)"},
      {kInstalling, "queryComponentVersionWithReply_", "s", {text}, "(), not (s)"},
      {kInstalling, "queryBuildNumberWithReply_", "as", {empty}, "(), not (as)"},
      {"com.kelvo.KLComponentMessaging", "barrierWithCompletion_", "s", {text}, "(), not (s)"},
  };
  for (const auto& row : rows) {
    auto message = call(row.interface, row.member, row.signature, [&](MessageWriter& writer) {
      for (const auto& write : row.values) write(writer);
    });
    expect(message, "InvalidArgs", std::string("refused, ") + row.member + " takes " + row.takes);
  }
}

}  // namespace
}  // namespace hoist
