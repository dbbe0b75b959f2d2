// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// The programs and libraries that people talk D-Bus with, as clients of a service.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/xpc/testing/Command.h"
#include "platform/xpc/testing/RawPeer.h"
#include "platform/xpc/testing/TestService.h"

namespace hoist::xpc {
namespace {

using testing::HasSubstr;
using testing::Not;

class RealClients : public testing::Test {
 protected:
  CommandResult gdbus(std::vector<std::string> arguments) {
    std::vector<std::string> all{"gdbus",  arguments.front(),  "--address",     service_.address(),
                                 "--dest", TestService::kName, "--object-path", "/"};
    all.insert(all.end(), arguments.begin() + 1, arguments.end());
    return runCommand(all);
  }
  CommandResult busctl(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"busctl", "--address=" + service_.address()});
    return runCommand(arguments);
  }
  CommandResult dbusSend(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"dbus-send", "--peer=" + service_.address(),
                                         "--print-reply", "--reply-timeout=20000"});
    return runCommand(arguments);
  }
  CommandResult python(const std::string& script) {
    return runCommand({"/usr/bin/python3", "-c", script, service_.address()});
  }

  TestService service_;
};

TEST_F(RealClients, GDBusCalls) {
  auto barrier = gdbus({"call", "--method", "com.kelvo.Greeting.barrierWithCompletion_"});
  EXPECT_EQ(barrier.output, "()\n");
  auto text = gdbus({"call", "--method", "com.kelvo.Talking.echoText_strings_data_processes_reply_",
                     "ä", "['a', 'b']", "b'xy'", "[1, -2]"});
  EXPECT_EQ(text.output, "('ä', ['a', 'b'], b'xy', [1, -2])\n") << text.output;
  auto dictionary = gdbus({"call", "--method", "com.kelvo.Talking.echoDictionary_date_reply_",
                           "{'i': <5>, 'strings': <['a']>, 'nested': <{'true': <true>}>}", "1.5"});
  EXPECT_EQ(dictionary.output,
            "({'i': <int64 5>, 'nested': <{'true': <true>}>, 'strings': <[<'a'>]>}, 1.5)\n");
}

TEST_F(RealClients, GDBusIsToldWhatWasWrong) {
  auto wrongType = gdbus({"call", "--method", "com.kelvo.Talking.note_"});
  EXPECT_THAT(wrongType.output, HasSubstr("note_ takes (s), not ()"));
  auto unknown = gdbus({"call", "--method", "com.kelvo.Talking.nothing"});
  EXPECT_NE(unknown.status, 0);
  EXPECT_THAT(unknown.output, HasSubstr("org.freedesktop.DBus.Error.UnknownMethod"));
}

TEST_F(RealClients, GDBusIntrospects) {
  auto result = gdbus({"introspect"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("interface com.kelvo.Talking {"));
  EXPECT_THAT(result.output, HasSubstr("interface com.kelvo.Serving {"));
  EXPECT_THAT(result.output, HasSubstr("barrierWithCompletion_();"));
  EXPECT_THAT(result.output, HasSubstr("note_(in  s text);"));
  EXPECT_THAT(result.output, HasSubstr("@com.kelvo.Nilable(\"true\")"));
  EXPECT_THAT(result.output, HasSubstr("didGreet();"));
  EXPECT_THAT(result.output, Not(HasSubstr("willPart")));
}

TEST_F(RealClients, BusctlCalls) {
  auto result = busctl({"call", TestService::kName, "/", "com.kelvo.Talking",
                        "echoText_strings_data_processes_reply_", "sasayai", "x", "1", "a", "2",
                        "1", "255", "1", "7"});
  EXPECT_EQ(result.output, "sasayai \"x\" 1 \"a\" 2 1 255 1 7\n");
  auto error = busctl({"call", TestService::kName, "/", "com.kelvo.Talking", "note_", "u", "1"});
  EXPECT_NE(error.status, 0);
  EXPECT_THAT(error.output, HasSubstr("note_ takes (s), not (u)"));
  auto silent = busctl({"call", "--expect-reply=no", TestService::kName, "/", "com.kelvo.Talking",
                        "note_", "s", "by busctl"});
  EXPECT_EQ(silent.status, 0);
  EXPECT_TRUE(eventually([&] { return service_.talker()->notes().size() == 1; }));
}

TEST_F(RealClients, BusctlIntrospects) {
  auto result = busctl({"introspect", TestService::kName, "/"});
  EXPECT_EQ(result.status, 0);
  EXPECT_THAT(result.output, HasSubstr("com.kelvo.Serving"));
  EXPECT_THAT(result.output, HasSubstr(".echoBool_i_u_q_x_t_d_reply_"));
  auto tree = busctl({"tree", TestService::kName});
  EXPECT_EQ(tree.status, 0) << tree.output;
}

TEST_F(RealClients, DbusSendPingsAndCalls) {
  EXPECT_EQ(dbusSend({"/any/where", "org.freedesktop.DBus.Peer.Ping"}).status, 0);
  auto result = dbusSend({"/", "com.kelvo.Talking.note_", "string:by dbus-send"});
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(service_.talker()->notes()[0], "by dbus-send");
  auto who = dbusSend({"/", "com.kelvo.Talking.askWhoCallsWithReply_"});
  EXPECT_THAT(who.output, HasSubstr("uint32 " + std::to_string(::geteuid())));
}

TEST_F(RealClients, SdBusCalls) {
  auto result = runCommand({HOIST_BUILD_DIR "/bin/sd_bus_test_client", service_.address()});
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("note_ takes (s), not (u)"));
}

TEST_F(RealClients, JeepneyCalls) {
  auto result = runCommand({"/usr/bin/python3", "-B",
                            HOIST_SOURCE_DIR "/tests/platform/xpc/testing/jeepney_peer.py",
                            "client", service_.socketPath()});
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("unique name :1."));
  EXPECT_THAT(result.output, HasSubstr("Error.InvalidArgs note_ takes (s), not (u)"));
}

TEST_F(RealClients, PythonDbusCalls) {
  auto result = python(R"(
import dbus.connection, sys
bus = dbus.connection.Connection(sys.argv[1])
talker = dbus.Interface(bus.get_object(None, '/', introspect=False), 'com.kelvo.Talking')
print(talker.echoDictionary_date_reply_({'a': 1, 'b': 'x'}, 2.5, signature='a{sv}d'))
talker.note_('by python')
print(talker.readNotesWithReply_())
)");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("by python"));
}

TEST_F(RealClients, PythonGioCallsWithDescriptors) {
  auto result = python(R"(
import sys, os, gi
from gi.repository import Gio, GLib
bus = Gio.DBusConnection.new_for_address_sync(sys.argv[1],
    Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
print('unique name', bus.get_unique_name())
reading, writing = os.pipe()
fds = Gio.UnixFDList.new()
index = fds.append(writing)
answer, back = bus.call_with_unix_fd_list_sync('com.kelvo.test', '/', 'com.kelvo.Talking',
    'echoText_data_file_object_reply_',
    GLib.Variant('(asaayaha(sa{sv}))', (['here'], [], [index], [('NSError', {'NSDomain': GLib.Variant('s', 'D'), 'NSCode': GLib.Variant('x', 5)})])),
    None, Gio.DBusCallFlags.NONE, 20000, fds, None)
print(answer.print_(False))
os.write(back.get(answer.get_child_value(2).get_child_value(0).get_handle()), b'through')
print(os.read(reading, 100))
)");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("unique name :1."));
  EXPECT_THAT(result.output, HasSubstr("['here'], [], [0], [('NSError', "));
  EXPECT_THAT(result.output, HasSubstr("b'through'"));
}

TEST_F(RealClients, PythonConnectsToAnEndpoint) {
  // The other side of the capability, with nothing of ours: a stream pair, one end through the
  // endpoint.
  Command program({"/usr/bin/python3", "-c", R"(
import array, socket
endpoint = socket.socket(fileno=0)
mine, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
endpoint.sendmsg([b'C'], [(socket.SOL_SOCKET, socket.SCM_RIGHTS,
                           array.array('i', [theirs.fileno()]))])
theirs.close()
mine.sendall(b'\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n')
got = b''
while got.count(b'\r\n') < 2: got += mine.recv(100)
print(got)
)"},
                  FileDescriptor::duplicate(service_.listener()->endpoint().descriptor()));
  EXPECT_THAT(program.readToEnd(), HasSubstr("b'DATA\\r\\nOK "));
  EXPECT_EQ(program.wait(), 0);
}

}  // namespace
}  // namespace hoist::xpc
