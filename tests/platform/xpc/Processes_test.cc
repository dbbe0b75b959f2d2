// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Services that are processes of their own: started by a service manager, killed, short of
// descriptors, and those that other libraries make.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "platform/DescriptorLimit.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/Peer.h"
#include "platform/xpc/ServiceSocket.h"
#include "platform/xpc/testing/Command.h"
#include "platform/xpc/testing/RawPeer.h"
#include "platform/xpc/testing/TestService.h"

namespace hoist::xpc {
namespace {

using testing::HasSubstr;

constexpr const char* kProgram = HOIST_BUILD_DIR "/bin/xpc_test_service";
constexpr const char* kName = TestService::kName;

class Processes : public testing::Test {
 protected:
  Processes() {
    std::filesystem::permissions(folder_.path(), std::filesystem::perms(0755));
    setRuntimeDirectory(folder_.path());
  }

  std::unique_ptr<Command> startService(std::vector<std::string> prefix = {}) {
    auto arguments = std::move(prefix);
    arguments.insert(arguments.end(), {kProgram, folder_.path(), kName});
    auto command = std::make_unique<Command>(arguments);
    EXPECT_EQ(command->readLine(), "ready");
    return command;
  }
  Ref<Connection> connect(const std::string& name = kName) {
    auto connection = Connection::initWithMachServiceName(name);
    connection->setRemoteObjectInterface(Interface::interfaceWithProtocol(talkingProtocol()));
    connection->resume();
    return connection;
  }
  static Ref<Error> barrier(const Ref<Connection>& connection) {
    Outcome<> outcome;
    ask<&Talking::barrierWithCompletion>(connection, outcome);
    return outcome.error();
  }

  TemporaryFolder folder_;
};

TEST_F(Processes, ARoundTripWithAnotherProcessNamesIt) {
  auto service = startService();
  auto connection = connect();
  EXPECT_EQ(barrier(connection), nullptr);
  EXPECT_EQ(connection->processIdentifier(), service->process());
  auto descriptor = connection->processDescriptor();
  EXPECT_TRUE(descriptor);
}

// The connection of a process that has ended lives on with whoever has its descriptor, while the
// process's number goes to another.
TEST_F(Processes, APeerRunsUntilItsProcessEnds) {
  auto service = ServiceSocket::makeForServiceName("com.kelvo.ending");
  PipeEnds untilTheEnd = makePipe();
  pid_t child = ::fork();
  if (child == 0) {
    untilTheEnd.writing.reset();
    auto connected = connectToService("com.kelvo.ending", false);
    char byte;
    ::_exit(static_cast<int>(::read(untilTheEnd.reading.get(), &byte, 1)));
  }
  pollfd called{service.descriptor.get(), POLLIN, 0};
  ASSERT_EQ(::poll(&called, 1, 30'000), 1);
  FileDescriptor peer(::accept4(service.descriptor.get(), nullptr, nullptr, SOCK_CLOEXEC));
  ASSERT_EQ(Peer::ofSocket(peer.get()).process, child);
  EXPECT_TRUE(Peer::isRunning(peer.get()));
  bool isKnown = static_cast<bool>(Peer::processDescriptorOfSocket(peer.get()));
  untilTheEnd.writing.reset();
  siginfo_t info;
  ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT);
  if (!isKnown) GTEST_SKIP() << "the kernel has no process descriptors of peers";
  EXPECT_FALSE(Peer::isRunning(peer.get())) << "before its end is collected";
  EXPECT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(Peer::isRunning(peer.get())) << "after its end is collected";
  service.removeFile();
}

TEST_F(Processes, AServiceThatIsKilledEndsEveryOutstandingCall) {
  auto service = startService();
  auto connection = connect();
  Outcome<std::string> first, second;
  Outcome<> invalidated;
  connection->setInvalidationHandler(invalidated.reply());
  ask<&Talking::keep>(connection, first, "");
  ask<&Talking::keep>(connection, second, "");
  EXPECT_EQ(barrier(connection), nullptr);
  service->kill(SIGKILL);
  EXPECT_EQ(first.error()->code(), Error::kConnectionInterrupted);
  EXPECT_EQ(second.error()->code(), Error::kConnectionInterrupted);
  invalidated.values();
  EXPECT_EQ(barrier(connection)->code(), Error::kConnectionInvalid);
  // The stale socket is replaced by the next one.
  service->wait();
  EXPECT_NE(barrier(connect()), nullptr);
  service = startService();
  EXPECT_EQ(barrier(connect()), nullptr);
}

TEST_F(Processes, AServiceThatEndsRemovesItsSocket) {
  auto service = startService();
  service->closeInput();
  EXPECT_EQ(service->wait(), 0);
  EXPECT_FALSE(std::filesystem::exists(folder_ / kName));
}

TEST_F(Processes, ASecondServiceOfTheNameDoesNotStart) {
  auto first = startService();
  Command second({kProgram, folder_.path(), kName});
  EXPECT_THAT(second.readLine(), HasSubstr("Address already in use"));
  EXPECT_EQ(second.wait(), 1);
  EXPECT_EQ(barrier(connect()), nullptr);
}

TEST_F(Processes, AClientThatIsKilledIsForgotten) {
  TestService service;
  auto before = countDescriptors();
  {
    Command client({"dbus-send", "--peer=" + service.address(), "--print-reply", "/",
                    "com.kelvo.Talking.keep_reply_", "string:x"});
    auto reply = service.talker()->takeKept();
    auto accepted = service.lastAccepted();
    client.kill(SIGKILL);
    EXPECT_TRUE(eventually([&] { return !accepted->isPeerConnected(); }));
    reply("late");
  }
  EXPECT_TRUE(eventually([&] { return countDescriptors() <= before; }));
}

// ----- Sockets that a service manager passes -----------------------------------------------------

// The name of a socket that the manager makes is there before it takes connections: whether the
// kernel lists it as one that does.
bool isListening(const std::string& path) {
  constexpr const char* kAcceptsConnections = " 00010000 ";  // __SO_ACCEPTCON, proc_net_unix(5)
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    if (line.ends_with(" " + path) && line.find(kAcceptsConnections) != std::string::npos)
      return true;
  }
  return false;
}

std::vector<std::string> activate(std::vector<std::string> paths, const std::string& names) {
  std::vector<std::string> command{"systemd-socket-activate"};
  for (const auto& path : paths) command.push_back("--listen=" + path);
  if (!names.empty()) command.push_back("--fdname=" + names);
  return command;
}

TEST_F(Processes, TheOnlyPassedSocketIsTakenWhateverItsName) {
  auto command = activate({folder_ / "elsewhere"}, "some-name");
  command.insert(command.end(), {kProgram, folder_ / "runtime", kName});
  Command manager(command);
  ASSERT_TRUE(eventually([&] { return isListening(folder_ / "elsewhere"); }));
  // Nothing runs before the first connection.
  EXPECT_EQ(barrier(connect("elsewhere")), nullptr);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "runtime"));
}

TEST_F(Processes, AmongPassedSocketsTheOneOfTheNameIsTaken) {
  auto command = activate({folder_ / "first", folder_ / "second"}, std::string("other:") + kName);
  command.insert(command.end(), {kProgram, folder_ / "runtime", kName});
  Command manager(command);
  ASSERT_TRUE(eventually([&] { return isListening(folder_ / "second"); }));
  EXPECT_EQ(barrier(connect("second")), nullptr);
}

TEST_F(Processes, PassedSocketsOfOtherNamesAreLeftAlone) {
  auto command = activate({folder_ / "first", folder_ / "second"}, "one:two");
  command.insert(command.end(), {kProgram, folder_ / "runtime", kName});
  Command manager(command);
  ASSERT_TRUE(eventually([&] { return isListening(folder_ / "second"); }));
  RawPeer waking(folder_ / "first");
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists((folder_ / "runtime/") + kName); }));
  setRuntimeDirectory(folder_ / "runtime");
  EXPECT_EQ(barrier(connect()), nullptr);
}

// ----- Short of descriptors ----------------------------------------------------------------------

// Processor time that the process has used, in clock ticks.
long usedTime(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/stat");
  std::string field;
  long user = 0, system = 0;
  for (int count = 0; count < 13; ++count) file >> field;
  file >> user >> system;
  return user + system;
}

TEST_F(Processes, AServiceWithoutDescriptorsWaitsForThemWithoutSpinning) {
#ifdef HOIST_SANITIZED
  GTEST_SKIP() << "a sanitizer takes descriptors to look at memory, and an object for none without";
#endif
  auto service = startService({"prlimit", "--nofile=24:24"});
  auto honest = connect();
  EXPECT_EQ(barrier(honest), nullptr);
  std::vector<RawPeer> peers;
  for (int count = 0; count < 40; ++count) peers.emplace_back(folder_ / kName);
  EXPECT_THAT(service->readLine(), HasSubstr("no connection can be accepted at the moment"));
  auto before = usedTime(service->process());
  // Two more rests of the listener.
  for (int count = 0; count < 2; ++count) {
    EXPECT_THAT(service->readLine(), HasSubstr("no connection can be accepted"));
  }
  EXPECT_LE(usedTime(service->process()) - before, 10);
  EXPECT_EQ(barrier(honest), nullptr);
  // Places that become free are given to those who wait.
  peers.erase(peers.begin(), peers.begin() + 30);
  for (auto& peer : peers) peer.authenticate();
}

TEST_F(Processes, AServiceWithFewDescriptorsKeepsSomeForRoot) {
  auto service = startService({"prlimit", "--nofile=130:130"});
  auto first = RawPeer::asUser(4711, folder_ / kName);
  first.authenticate();
  auto second = RawPeer::asUser(4712, folder_ / kName);
  second.authenticate();
  EXPECT_TRUE(RawPeer::asUser(4713, folder_ / kName).isClosed());
  EXPECT_THAT(service->readLine(), HasSubstr("kConnectionsOfAllUsers"));
  EXPECT_EQ(barrier(connect()), nullptr);
}

TEST_F(Processes, AServiceHasABoundedNumberOfConnectionsForAllUsersAndPlacesForRoot) {
  platform::raiseDescriptorLimit();
  auto service = startService({"prlimit", "--nofile=4096:4096"});
  std::vector<RawPeer> peers;
  for (std::size_t count = 0; count < kConnectionsOfAllUsers; ++count) {
    auto user = static_cast<uid_t>(5000 + count / kConnectionsOfOneUser);
    peers.push_back(RawPeer::asUser(user, folder_ / kName));
    peers.back().authenticate();
  }
  EXPECT_TRUE(RawPeer::asUser(4711, folder_ / kName).isClosed());
  EXPECT_THAT(service->readLine(), HasSubstr("kConnectionsOfAllUsers"));
  std::vector<Ref<Connection>> ofRoot;
  for (std::size_t count = 0; count < kReservedForRoot; ++count) {
    ofRoot.push_back(connect());
    EXPECT_EQ(barrier(ofRoot.back()), nullptr);
  }
}

// ----- Services that other libraries make --------------------------------------------------------

TEST_F(Processes, AServiceOfGDBusIsCalled) {
  Command service({"/usr/bin/python3", "-c", R"(
import sys, os
from gi.repository import Gio, GLib
node = Gio.DBusNodeInfo.new_for_xml('''<node><interface name="com.kelvo.Talking">
<method name="echoText_strings_data_processes_reply_"><arg type="s" direction="in"/><arg type="as" direction="in"/>
<arg type="ay" direction="in"/><arg type="ai" direction="in"/><arg type="s" direction="out"/><arg type="as" direction="out"/>
<arg type="ay" direction="out"/><arg type="ai" direction="out"/></method>
<method name="echoDictionary_date_reply_"><arg type="a{sv}" direction="in"/><arg type="d" direction="in"/>
<arg type="a{sv}" direction="out"/><arg type="d" direction="out"/></method>
<method name="fail_reply_"><arg type="s" direction="in"/><arg type="s" direction="out"/></method>
</interface></node>''')
def called(connection, sender, path, interface, method, values, invocation):
    if method.startswith('fail'): invocation.return_dbus_error('com.kelvo.Failure', values[0])
    else: invocation.return_value(values)
kept = []
def connected(server, connection):
    kept.append(connection)
    connection.register_object('/', node.interfaces[0], called, None, None)
    return True
server = Gio.DBusServer.new_sync(sys.argv[1], Gio.DBusServerFlags.NONE, Gio.dbus_generate_guid(), None, None)
server.connect('new-connection', connected)
server.start()
print('ready', flush=True)
GLib.MainLoop().run()
)",
                   "unix:path=" + (folder_ / kName)});
  ASSERT_EQ(service.readLine(), "ready");
  auto connection = connect();
  Outcome<std::string, std::vector<std::string>, Data, std::vector<std::int32_t>> text;
  ask<&Talking::echoText>(connection, text, "a", std::vector<std::string>{"b"},
                          Data::fromString("c"), std::vector<std::int32_t>{4});
  EXPECT_EQ(std::get<1>(text.values()), std::vector<std::string>{"b"});
  Outcome<Dictionary, Date> dictionary;
  Dictionary sent{{"k", Array{1, true}}};
  ask<&Talking::echoDictionary>(connection, dictionary, sent, Date(5));
  EXPECT_EQ(std::get<0>(dictionary.values()), sent);
  Outcome<std::string> failed;
  ask<&Talking::fail>(connection, failed, "on purpose");
  EXPECT_EQ(failed.error()->code(), Error::kConnectionReplyInvalid);
  EXPECT_THAT(*failed.error()->localizedDescription(), HasSubstr("com.kelvo.Failure: on purpose"));
}

// Calls a service that answers with the arguments.
void callWithTextsAndDescriptors(const Ref<Connection>& connection) {
  Outcome<std::string, std::vector<std::string>, Data, std::vector<std::int32_t>> text;
  ask<&Talking::echoText>(connection, text, "a", std::vector<std::string>{"b"},
                          Data::fromString("c"), std::vector<std::int32_t>{4});
  EXPECT_EQ(std::get<0>(text.values()), "a");
  EXPECT_EQ(std::get<3>(text.values()), std::vector<std::int32_t>{4});
  auto pipe = makePipe();
  Outcome<FileDescriptor, Endpoint> handle;
  auto listener = Listener::anonymousListener();
  ask<&Talking::echoHandle>(connection, handle, std::move(pipe.writing), listener->endpoint());
  ASSERT_EQ(handle.error(), nullptr);
  ASSERT_EQ(::write(std::get<0>(handle.values()).get(), "x", 1), 1);
  char byte;
  EXPECT_EQ(::read(pipe.reading.get(), &byte, 1), 1);
}

TEST_F(Processes, AServiceOfSdBusIsCalled) {
  Command service({HOIST_BUILD_DIR "/bin/sd_bus_test_service", folder_ / kName});
  ASSERT_EQ(service.readLine(), "ready");
  auto connection = connect();
  EXPECT_EQ(barrier(connection), nullptr);
  callWithTextsAndDescriptors(connection);
}

TEST_F(Processes, AServiceOfJeepneyIsCalled) {
  Command service({"/usr/bin/python3", "-B",
                   HOIST_SOURCE_DIR "/tests/platform/xpc/testing/jeepney_peer.py", "server",
                   folder_ / kName});
  ASSERT_EQ(service.readLine(), "ready");
  auto connection = connect();
  EXPECT_EQ(barrier(connection), nullptr);
  callWithTextsAndDescriptors(connection);
  Outcome<Dictionary, Date> dictionary;
  Dictionary sent{{"k", Array{1, true, "text", 0.5}}, {"data", Data::fromString("d")}};
  ask<&Talking::echoDictionary>(connection, dictionary, sent, Date(5));
  EXPECT_EQ(std::get<0>(dictionary.values()), sent);
  Outcome<std::string> failed;
  ask<&Talking::fail>(connection, failed, "on purpose");
  EXPECT_THAT(*failed.error()->localizedDescription(), HasSubstr("com.kelvo.Failure: on purpose"));
}

}  // namespace
}  // namespace hoist::xpc
