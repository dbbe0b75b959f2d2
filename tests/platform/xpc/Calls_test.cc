// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// What a service answers to single calls, seen on the wire.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "platform/dbus/Guid.h"
#include "platform/dbus/MessageReader.h"
#include "platform/dbus/Names.h"
#include "platform/xpc/testing/RawPeer.h"
#include "platform/xpc/testing/TestService.h"
#include "platform/xpc/testing/TroubleLog.h"

namespace hoist::xpc {
namespace {

using dbus::MessageWriter;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

constexpr std::string_view kPeer = "org.freedesktop.DBus.Peer";
constexpr std::string_view kIntrospectable = "org.freedesktop.DBus.Introspectable";

class Calls : public testing::Test {
 protected:
  Calls() { peer_.authenticate(); }

  dbus::Message ask(const dbus::OutgoingMessage& message) {
    peer_.send(message);
    auto answer = peer_.readMessage();
    if (!answer) throw std::runtime_error("the connection was closed");
    EXPECT_EQ(answer->replySerial(), message.serial());
    return std::move(*answer);
  }
  dbus::Message ask(const RawCall& call) { return ask(rawCall(call, ++serial_)); }
  template <class Write>
  dbus::Message ask(const RawCall& call, Write write) {
    return ask(rawCall(call, ++serial_, write));
  }
  // A call of an operation of the bus with one name.
  dbus::Message askBus(const std::string& member, const std::string& name) {
    return ask({.path = "/org/freedesktop/DBus",
                .interface = "org.freedesktop.DBus",
                .member = member,
                .signature = "s"},
               [&](MessageWriter& writer) { writer.appendString(name); });
  }
  std::string hello() {
    auto answer = ask(
        {.path = "/org/freedesktop/DBus", .interface = "org.freedesktop.DBus", .member = "Hello"});
    return textIn(answer);
  }
  static std::string textIn(dbus::Message& message) {
    return std::string(dbus::MessageReader(message).readString());
  }

  TroubleLog log_;
  TestService service_;
  RawPeer peer_{service_.socketPath()};
  std::uint32_t serial_ = 100;
};

TEST_F(Calls, OfAnotherPathAreOfAnUnknownObject) {
  auto answer = ask({.path = "/other", .member = "note_"});
  EXPECT_EQ(answer.errorName(), dbus::errors::kUnknownObject);
  EXPECT_THAT(std::string(answer.errorText()), HasSubstr("/other"));
  auto unnamed = ask({.path = "/other", .interface = "", .member = "note_"});
  EXPECT_EQ(unnamed.errorName(), dbus::errors::kUnknownObject);
  EXPECT_THAT(std::string(unnamed.errorText()), HasSubstr("/other"));
}

TEST_F(Calls, OfAnUnknownInterfaceOrOperationSayWhichIt) {
  auto interface = ask({.interface = "com.kelvo.Nothing", .member = "note_"});
  EXPECT_EQ(interface.errorName(), dbus::errors::kUnknownInterface);
  EXPECT_THAT(std::string(interface.errorText()), HasSubstr("com.kelvo.Nothing"));
  auto method = ask({.member = "nothing"});
  EXPECT_EQ(method.errorName(), dbus::errors::kUnknownMethod);
  EXPECT_THAT(std::string(method.errorText()), HasSubstr("nothing"));
  // An adopted protocol is an interface of its own.
  auto inherited = ask({.interface = "com.kelvo.Talking", .member = "barrierWithCompletion_"});
  EXPECT_EQ(inherited.errorName(), dbus::errors::kUnknownMethod);
}

TEST_F(Calls, OfAnOptionalOperationThatIsLeftOutAreUnknown) {
  auto missing = ask({.interface = "com.kelvo.Greeting", .member = "willPart_", .signature = "s"},
                     [](MessageWriter& writer) { writer.appendString(""); });
  EXPECT_EQ(missing.errorName(), dbus::errors::kUnknownMethod);
  EXPECT_EQ(ask({.interface = "com.kelvo.Greeting", .member = "didGreet"}).type(),
            dbus::MessageType::kMethodReturn);
  EXPECT_THAT(service_.talker()->notes(), ElementsAre("greeted"));
}

TEST_F(Calls, WithOtherTypesAreRefusedAndNothingIsCalled) {
  auto answer = ask({.member = "note_", .signature = "u"},
                    [](MessageWriter& writer) { writer.appendUInt32(1); });
  EXPECT_EQ(answer.errorName(), dbus::errors::kInvalidArgs);
  EXPECT_EQ(answer.errorText(), "note_ takes (s), not (u)");
  EXPECT_EQ(ask({.member = "note_"}).errorName(), dbus::errors::kInvalidArgs);
  EXPECT_THAT(service_.talker()->notes(), IsEmpty());
}

TEST_F(Calls, ThatAreRefusedAreReportedWithTheirSender) {
  ask({.member = "note_"});
  ASSERT_THAT(log_.linesWith("refused, note_ takes (s), not ()"), SizeIs(1));
  EXPECT_THAT(log_.linesWith("refused, ")[0],
              HasSubstr("connection of user " + std::to_string(::geteuid()) + ", process " +
                        std::to_string(::getpid())));
  // Client libraries ask for more of the standard interfaces than there is.
  ask({.interface = "org.freedesktop.DBus.Properties", .member = "GetAll"});
  // A peer cannot make the lines long.
  ask({.path = "/" + std::string(100'000, 'x'), .member = "note_"});
  peer_.send(rawCall({.member = "note_", .flags = dbus::kNoReplyExpected}));
  hello();
  auto lines = log_.linesWith("refused, ");
  ASSERT_THAT(lines, SizeIs(3));
  EXPECT_LT(lines[1].size(), 1000u);
}

TEST_F(Calls, ThatAreRefusedForgeNoLinesInTheLog) {
  ask({.member = "echoObject_reply_", .signature = "(sa{sv})"}, [](MessageWriter& writer) {
    writer.openStruct();
    writer.appendString("Evil\nconnection of user 0: all is well");
    writer.openArray();
    writer.close();
    writer.close();
  });
  ASSERT_THAT(log_.linesWith("refused, "), SizeIs(1));
  EXPECT_THAT(log_.linesWith("refused, ")[0], Not(HasSubstr("\n")));
}

TEST_F(Calls, WithTwoValuesWhereAtMostOneMayBeAreRefused) {
  auto answer = ask({.member = "echoText_data_file_object_reply_", .signature = "asaayaha(sa{sv})"},
                    [](MessageWriter& writer) {
                      writer.openArray();
                      writer.appendString("one");
                      writer.appendString("two");
                      writer.close();
                      for (int empty = 0; empty < 3; ++empty) {
                        writer.openArray();
                        writer.close();
                      }
                    });
  EXPECT_EQ(answer.errorName(), dbus::errors::kInvalidArgs);
}

TEST_F(Calls, FindAnOperationByItsNameAloneToo) {
  EXPECT_EQ(ask({.interface = "", .member = "barrierWithCompletion_"}).type(),
            dbus::MessageType::kMethodReturn);
  EXPECT_EQ(ask({.interface = "", .member = "Ping"}).type(), dbus::MessageType::kMethodReturn);
  EXPECT_EQ(ask({.path = "/org/freedesktop/DBus", .interface = "", .member = "Hello"}).type(),
            dbus::MessageType::kMethodReturn);
  EXPECT_EQ(ask({.interface = "", .member = "nothing"}).errorName(), dbus::errors::kUnknownMethod);
}

TEST_F(Calls, WithoutAReplyBlockAreAnsweredEmptyWhenTheyHaveRun) {
  auto answer = ask({.member = "note_", .signature = "s"},
                    [](MessageWriter& writer) { writer.appendString("ran"); });
  EXPECT_EQ(answer.signature(), "");
  EXPECT_THAT(service_.talker()->notes(), ElementsAre("ran"));
  // Also when it raised: that it ran is all that is said.
  EXPECT_EQ(ask({.member = "failQuietly"}).type(), dbus::MessageType::kMethodReturn);
  EXPECT_TRUE(log_.has("quietly"));
}

TEST_F(Calls, ThatWantNoAnswerGetNone) {
  peer_.send(rawCall({.member = "nothing", .flags = dbus::kNoReplyExpected}, 1));
  peer_.send(rawCall(
      {.interface = std::string(kPeer), .member = "Ping", .flags = dbus::kNoReplyExpected}, 2));
  peer_.send(rawCall({.member = "failQuietly", .flags = dbus::kNoReplyExpected}, 3));
  peer_.send(rawCall({.interface = "com.kelvo.Greeting",
                      .member = "barrierWithCompletion_",
                      .flags = dbus::kNoReplyExpected},
                     4));
  EXPECT_EQ(ask({.interface = std::string(kPeer), .member = "Ping"}).replySerial(), serial_);
}

TEST_F(Calls, AnswerPeerAtAnyPath) {
  EXPECT_EQ(ask({.path = "/any/where", .interface = std::string(kPeer), .member = "Ping"}).type(),
            dbus::MessageType::kMethodReturn);
  auto machine = ask({.path = "/x", .interface = std::string(kPeer), .member = "GetMachineId"});
  EXPECT_EQ(textIn(machine), dbus::machineId());
  EXPECT_EQ(ask({.interface = std::string(kPeer), .member = "Pong"}).errorName(),
            dbus::errors::kUnknownMethod);
  EXPECT_EQ(ask({.interface = std::string(kPeer), .member = "Ping", .signature = "u"},
                [](MessageWriter& writer) { writer.appendUInt32(1); })
                .errorName(),
            dbus::errors::kInvalidArgs);
}

TEST_F(Calls, AnswerHelloWithTheSameUniqueNameEachTime) {
  auto name = hello();
  EXPECT_TRUE(dbus::isValidBusName(name));
  EXPECT_EQ(name.substr(0, 1), ":");
  EXPECT_EQ(hello(), name);
  RawPeer other(service_.socketPath());
  other.authenticate();
  std::swap(peer_, other);
  EXPECT_NE(hello(), name);
}

TEST_F(Calls, AnswerWhatClientLibrariesAskOfABus) {
  auto name = hello();
  EXPECT_EQ(askBus("AddMatch", "type='signal'").signature(), "");
  EXPECT_EQ(askBus("RemoveMatch", "type='signal'").signature(), "");
  for (const auto& known :
       {name, std::string(TestService::kName), std::string(dbus::names::kBus)}) {
    auto owner = askBus("GetNameOwner", known);
    EXPECT_EQ(textIn(owner), known);
    auto has = askBus("NameHasOwner", known);
    EXPECT_TRUE(dbus::MessageReader(has).readBoolean());
    auto user = askBus("GetConnectionUnixUser", known);
    EXPECT_EQ(dbus::MessageReader(user).readUInt32(), ::geteuid());
  }
  EXPECT_EQ(askBus("GetNameOwner", "com.kelvo.nobody").errorName(), dbus::errors::kNameHasNoOwner);
  auto has = askBus("NameHasOwner", "com.kelvo.nobody");
  EXPECT_FALSE(dbus::MessageReader(has).readBoolean());
  EXPECT_EQ(askBus("RequestName", "com.kelvo.hoist").errorName(), dbus::errors::kUnknownMethod);
}

TEST_F(Calls, TellAUserAboutHimselfNotAboutTheService) {
  RawPeer other = RawPeer::asUser(4242, service_.socketPath());
  other.authenticate();
  std::swap(peer_, other);
  auto user = askBus("GetConnectionUnixUser", hello());
  EXPECT_EQ(dbus::MessageReader(user).readUInt32(), 4242u);
}

TEST_F(Calls, AreIntrospectedAtTheRootAlone) {
  auto text = ask({.interface = std::string(kIntrospectable), .member = "Introspect"});
  EXPECT_THAT(textIn(text), HasSubstr("com.kelvo.Talking"));
  EXPECT_EQ(ask({.path = "/x", .interface = std::string(kIntrospectable), .member = "Introspect"})
                .errorName(),
            dbus::errors::kUnknownObject);
}

TEST_F(Calls, PassOverSignalsAndAnswersThatNobodyWaitsFor) {
  dbus::Header signal;
  signal.type = dbus::MessageType::kSignal;
  signal.path = "/";
  signal.interface = "com.kelvo.Talking";
  signal.member = "Changed";
  peer_.send(MessageWriter(signal).finish(1));
  peer_.send(dbus::makeError(4711, dbus::errors::kFailed, "nobody asked"));
  EXPECT_EQ(ask({.interface = std::string(kPeer), .member = "Ping"}).type(),
            dbus::MessageType::kMethodReturn);
}

TEST_F(Calls, AreHandledOneAfterTheOther) {
  peer_.send(rawCall({.member = "waitWithReply_"}, 1));
  service_.talker()->awaitWaiter();
  peer_.send(rawCall({.member = "note_", .signature = "s"}, 2,
                     [](MessageWriter& writer) { writer.appendString("later"); }));
  // Another connection is served meanwhile.
  RawPeer other(service_.socketPath());
  other.authenticate().send(rawBarrier(3));
  EXPECT_EQ(other.readMessage()->replySerial(), 3u);
  EXPECT_THAT(service_.talker()->notes(), IsEmpty());
  service_.talker()->openGate();
  EXPECT_EQ(peer_.readMessage()->replySerial(), 1u);
  EXPECT_EQ(peer_.readMessage()->replySerial(), 2u);
}

TEST_F(Calls, WithAReplyThatCannotBeSentGetAnErrorInItsPlace) {
  auto answer = ask({.member = "makeTextOfSize_reply_", .signature = "u"},
                    [](MessageWriter& writer) { writer.appendUInt32(kMessageSize); });
  EXPECT_EQ(answer.errorName(), dbus::errors::kFailed);
  EXPECT_TRUE(log_.has("makeTextOfSize:reply:"));
}

}  // namespace
}  // namespace hoist::xpc
