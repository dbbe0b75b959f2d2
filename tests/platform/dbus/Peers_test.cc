// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Real D-Bus programs and libraries as the other side, in both roles: what they send is taken and
// what we send is understood, whatever the types, in both byte orders.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>

#include <cstring>
#include <filesystem>

#include "EchoServer.h"
#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"
#include "platform/dbus/Sasl.h"
#include "platform/dbus/SocketIO.h"

namespace hoist::dbus {
namespace {

using testing::HasSubstr;

constexpr const char* kPython =
    "/usr/bin/python3 -B " HOIST_SOURCE_DIR "/tests/platform/dbus/peers.py ";

struct Result {
  int status = -1;
  std::string output;  // both streams
};

Result run(const std::string& command) {
  Result result;
  FILE* pipe = popen(("timeout 60 " + command + " 2>&1 </dev/null").c_str(), "re");
  if (!pipe) return result;
  char buffer[4096];
  while (std::size_t size = fread(buffer, 1, sizeof buffer, pipe))
    result.output.append(buffer, size);
  result.status = pclose(pipe);
  return result;
}

// Real programs as clients.

TEST(Peers, DbusSendCallsUs) {
  EchoServer server;
  Result result =
      run("dbus-send --peer=" + server.address() +
          " --print-reply / a.b.Echo byte:200 boolean:true int16:-5 uint16:65535 int32:-70000"
          " uint32:4000000000 int64:-5000000000 uint64:18446744073709551615 double:-0.25"
          " string:'Grüße' objpath:/a/b array:string:x,y dict:string:int32:k,7"
          " variant:string:inner");
  EXPECT_EQ(result.status, 0) << result.output;
  for (auto line :
       {"byte 200\n", "boolean true\n", "int16 -5\n", "uint16 65535\n", "int32 -70000\n",
        "uint32 4000000000\n", "int64 -5000000000\n", "uint64 18446744073709551615\n",
        "double -0.25\n", "string \"Grüße\"\n", "object path \"/a/b\"\n", "string \"y\"\n",
        "dict entry(\n         string \"k\"\n         int32 7\n",
        "variant       string \"inner\"\n"}) {
    EXPECT_THAT(result.output, HasSubstr(line));
  }
  server.stop();
  EXPECT_EQ(server.complaint(), "");
}

TEST(Peers, DbusSendGetsOurErrors) {
  EchoServer server;
  Result result = run("dbus-send --peer=" + server.address() + " --print-reply / a.b.Nothing");
  EXPECT_NE(result.status, 0);
  EXPECT_EQ(result.output, "Error org.freedesktop.DBus.Error.UnknownMethod: no method Nothing\n");
}

TEST(Peers, BusctlCallsUs) {
  EchoServer server;
  Result result = run(
      "busctl --address=" + server.address() +
      " call -- com.kelvo.hoist / a.b Echo 'ybnqiuxtdsoga{sv}a(is)ayas' 200 true -5 65535 -70000"
      " 4000000000 -5000000000 18446744073709551615 -0.25 'Grüße' /a/b 'a{sv}'"
      " 2 one i 1 two '(sb)' s true 1 3 x 2 0 255 0");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(result.output,
            "ybnqiuxtdsoga{sv}a(is)ayas 200 true -5 65535 -70000 4000000000 -5000000000 "
            "18446744073709551615"
            " -0.25 \"Gr\\303\\274\\303\\237e\" \"/a/b\" \"a{sv}\" 2 \"one\" i 1 \"two\" (sb) "
            "\"s\" true 1 3 \"x\""
            " 2 0 255 0\n");
  server.stop();
  EXPECT_EQ(server.complaint(), "");
}

TEST(Peers, GdbusCallsUs) {
  EchoServer server;
  Result result =
      run("gdbus call --address " + server.address() +
          " --dest com.kelvo.hoist --object-path / --method a.b.Echo -- 'byte 200' true 'int16 -5' "
          "'uint16 65535' -70000"
          " 'uint32 4000000000' 'int64 -5000000000' 'uint64 18446744073709551615' -0.25 \"'Grüße'\""
          " \"objectpath '/a/b'\" \"signature 'as'\" \"{'one': <1>}\" \"[(1, 'x')]\" '@as []' "
          "'<<2.5>>'");
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_EQ(
      result.output,
      "(byte 0xc8, true, int16 -5, uint16 65535, -70000, uint32 4000000000, int64 -5000000000,"
      " uint64 18446744073709551615, -0.25, 'Grüße', objectpath '/a/b', signature 'as', {'one': "
      "<1>},"
      " [(1, 'x')], @as [], <<2.5>>)\n");
  server.stop();
  EXPECT_EQ(server.complaint(), "");
}

TEST(Peers, PythonsGdbusCallsUsInBothByteOrders) {
  EchoServer server;
  Result result = run(kPython + ("gio-client " + server.address()));
  EXPECT_EQ(result.status, 0) << result.output;
  server.stop();
  EXPECT_EQ(server.complaint(), "");
  int swapped = 0;
  for (const Bytes& frame : server.frames()) swapped += frame[0] == 'B';
  EXPECT_EQ(swapped, 8);
}

TEST(Peers, PythonsLibdbusCallsUs) {
  EchoServer server;
  Result result = run(kPython + ("dbus-client " + server.address()));
  EXPECT_EQ(result.status, 0) << result.output;
  server.stop();
  EXPECT_EQ(server.complaint(), "");
}

// Real servers, called by us.

FileDescriptor connectTo(const std::string& path) {
  FileDescriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  if (connect(client.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    client.reset();
  return client;
}

// The client's side with everything that it may do early: the exchange and the first call leave in
// one write.
class Client {
 public:
  explicit Client(FileDescriptor socket) : socket_(std::move(socket)) {}

  Message call(OutgoingMessage message) {
    if (!authenticated_) {
      std::string_view exchange = sasl_.exchange();
      message.bytes.insert(message.bytes.begin(), exchange.begin(), exchange.end());
    }
    sendWhole(socket_.get(), message);
    authenticate();
    auto answer = receiveWhole(socket_.get(), reader_);
    if (!answer) throw ProtocolError("the server closed the connection");
    return std::move(*answer);
  }

  const SaslClient& sasl() const { return sasl_; }

 private:
  void authenticate() {
    while (!authenticated_) {
      Bytes space(4096);
      Received received = receive(socket_.get(), space);
      if (received.status != IOStatus::kDone)
        throw ProtocolError("the server did not authenticate");
      auto bytes = std::span(space).first(received.size);
      SaslStep step = sasl_.receive({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
      if (step.state == SaslState::kFailed) throw ProtocolError(std::string(sasl_.failure()));
      authenticated_ = step.state == SaslState::kAuthenticated;
      reader_.append(bytes.subspan(step.consumed), std::move(received.descriptors));
    }
  }

  FileDescriptor socket_;
  SaslClient sasl_;
  FrameReader reader_;
  bool authenticated_ = false;
};

void callEchoAndFile(Client& client) {
  for (int round = 0; round < 2; ++round) {
    MessageWriter writer(methodCall("/", "a.b", "Echo", "v"));
    writer.openVariant("(ybxdsa{sv}ay)");
    writer.openStruct();
    writer.appendByte(7);
    writer.appendBoolean(true);
    writer.appendInt64(-9);
    writer.appendDouble(0.5);
    writer.appendString("Grüße");
    writer.openArray();
    writer.openDictEntry();
    writer.appendString("key");
    writer.openVariant("u");
    writer.appendUInt32(4);
    writer.close();
    writer.close();
    writer.close();
    writer.appendBytes(Bytes(5, 1));
    writer.close();
    writer.close();
    Message answer = client.call(writer.finish(5));
    ASSERT_EQ(answer.type(), MessageType::kMethodReturn) << answer.errorText();
    EXPECT_EQ(answer.replySerial(), 5u);
    MessageReader reader(answer);
    EXPECT_EQ(reader.enterVariant(), "(ybxdsa{sv}ay)");
    reader.enterStruct();
    EXPECT_EQ(reader.readByte(), 7);
    EXPECT_TRUE(reader.readBoolean());
    EXPECT_EQ(reader.readInt64(), -9);
    EXPECT_EQ(reader.readDouble(), 0.5);
    EXPECT_EQ(reader.readString(), "Grüße");
    reader.enterArray();
    reader.enterDictEntry();
    EXPECT_EQ(reader.readString(), "key");
    reader.enterVariant();
    EXPECT_EQ(reader.readUInt32(), 4u);
    reader.leave();
    reader.leave();
    reader.leave();
    EXPECT_EQ(reader.readBytes().size(), 5u);
    reader.leave();
    reader.leave();
    reader.finish();
  }
  ASSERT_TRUE(client.sasl().fileDescriptorsNegotiated());
  MessageWriter writer(methodCall("/", "a.b", "File", "h"));
  writer.appendFileDescriptor(FileDescriptor(open("/dev/zero", O_RDONLY | O_CLOEXEC)));
  Message answer = client.call(writer.finish(6));
  ASSERT_EQ(answer.type(), MessageType::kMethodReturn) << answer.errorText();
  struct stat got, expected;
  ASSERT_EQ(fstat(answer.borrowFileDescriptor(0), &got), 0);
  ASSERT_EQ(stat("/dev/zero", &expected), 0);
  EXPECT_EQ(got.st_rdev, expected.st_rdev);

  MessageWriter unknown(methodCall("/", "a.b", "Nothing"));
  Message error = client.call(unknown.finish(7));
  EXPECT_EQ(error.type(), MessageType::kError);
  EXPECT_EQ(error.errorName(), "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_NE(error.errorText(), "");
}

// A server of peers.py, which ends when its standard input does.
class PythonServer {
 public:
  explicit PythonServer(const std::string& kind) {
    folder_ = std::filesystem::temp_directory_path() / "hoist-dbus.XXXXXX";
    EXPECT_NE(mkdtemp(folder_.data()), nullptr);
    std::string ready = folder_ + "/ready";
    EXPECT_EQ(mkfifo(ready.c_str(), 0600), 0);
    pipe_ = popen((kPython + kind + " unix:path=" + path() + " >" + ready).c_str(), "we");
    FILE* output = fopen(ready.c_str(), "re");
    char line[16] = {};
    EXPECT_NE(fgets(line, sizeof line, output), nullptr);
    EXPECT_STREQ(line, "ready\n");
    fclose(output);
  }
  ~PythonServer() {
    EXPECT_EQ(pclose(pipe_), 0);
    std::filesystem::remove_all(folder_);
  }
  std::string path() const { return folder_ + "/socket"; }

 private:
  std::string folder_;
  FILE* pipe_;
};

TEST(Peers, WeCallGdbus) {
  PythonServer server("gio-server");
  Client client(connectTo(server.path()));
  callEchoAndFile(client);
}

TEST(Peers, WeCallLibdbus) {
  PythonServer server("dbus-server");
  Client client(connectTo(server.path()));
  callEchoAndFile(client);
}

// sd-bus over a socket pair, in both roles.

struct BusCloser {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Bus = std::unique_ptr<sd_bus, BusCloser>;
using BusMessage = std::unique_ptr<sd_bus_message, BusCloser>;

int echo(sd_bus_message* call, void*, sd_bus_error*) {
  sd_bus_message* answer = nullptr;
  int result = sd_bus_message_new_method_return(call, &answer);
  if (result >= 0) result = sd_bus_message_copy(answer, call, 1);
  if (result >= 0) result = sd_bus_send(sd_bus_message_get_bus(call), answer, nullptr);
  sd_bus_message_unref(answer);
  return result < 0 ? result : 1;
}

const sd_bus_vtable kVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Echo", "v", "v", echo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("File", "h", "h", echo, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

void serveWithSdBus(FileDescriptor socket) {
  sd_bus* raw = nullptr;
  ASSERT_GE(sd_bus_new(&raw), 0);
  Bus bus(raw);
  sd_id128_t id{};
  id.bytes[0] = 1;
  int fd = socket.release();
  ASSERT_GE(sd_bus_set_fd(raw, fd, fd), 0);
  ASSERT_GE(sd_bus_set_server(raw, 1, id), 0);
  ASSERT_GE(sd_bus_negotiate_fds(raw, 1), 0);
  ASSERT_GE(sd_bus_add_object_vtable(raw, nullptr, "/", "a.b", kVtable, nullptr), 0);
  ASSERT_GE(sd_bus_start(raw), 0);
  for (;;) {
    int result = sd_bus_process(raw, nullptr);
    if (result < 0) return;  // the client has closed
    if (result == 0 && sd_bus_wait(raw, UINT64_MAX) < 0) return;
  }
}

std::pair<FileDescriptor, FileDescriptor> makePair() {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  return {FileDescriptor(ends[0]), FileDescriptor(ends[1])};
}

TEST(Peers, WeCallSdBus) {
  auto [near, far] = makePair();
  std::thread server([socket = std::move(far)]() mutable { serveWithSdBus(std::move(socket)); });
  {
    Client client(std::move(near));
    callEchoAndFile(client);
  }
  server.join();
}

TEST(Peers, SdBusCallsUs) {
  EchoServer server;
  sd_bus* raw = nullptr;
  ASSERT_GE(sd_bus_new(&raw), 0);
  Bus bus(raw);
  ASSERT_GE(sd_bus_set_address(raw, server.address().c_str()), 0);
  ASSERT_GE(sd_bus_negotiate_fds(raw, 1), 0);
  ASSERT_GE(sd_bus_start(raw), 0);
  sd_bus_message* answer = nullptr;
  FileDescriptor file(open("/dev/zero", O_RDONLY | O_CLOEXEC));
  ASSERT_GE(sd_bus_call_method(raw, nullptr, "/", "a.b", "Echo", nullptr, &answer, "sa{sv}hx",
                               "text", 1, "key", "d", 0.5, file.get(), INT64_MIN),
            0);
  BusMessage owner(answer);
  const char* text;
  const char* key;
  double number;
  int fd;
  std::int64_t last;
  ASSERT_GE(sd_bus_message_read(answer, "sa{sv}hx", &text, 1, &key, "d", &number, &fd, &last), 0);
  EXPECT_STREQ(text, "text");
  EXPECT_STREQ(key, "key");
  EXPECT_EQ(number, 0.5);
  EXPECT_EQ(last, INT64_MIN);
  struct stat got, expected;
  ASSERT_EQ(fstat(fd, &got), 0);
  ASSERT_EQ(fstat(file.get(), &expected), 0);
  EXPECT_EQ(got.st_rdev, expected.st_rdev);
  owner.reset();
  bus.reset();
  server.stop();
  EXPECT_EQ(server.complaint(), "");
}

}  // namespace
}  // namespace hoist::dbus
