// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Peers that misbehave before, while and after they authenticate, or take their time.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/dbus/MessageReader.h"
#include "platform/xpc/testing/HostileTest.h"
#include "support/ClockDriver.h"

namespace hoist::xpc {
namespace {

using namespace std::literals;
using testing::HasSubstr;
using testing::SizeIs;

using HostileExchanges = HostileTest;

class HostileInTime : public HostileTest {
 protected:
  void letTimePass() override { clock_.advance(1s); }

  TestClock clock_{Date(1'700'000'000)};
};

TEST_F(HostileInTime, SilentPeersAreClosedAfterTenSeconds) {
  auto silent = RawPeer::asUser(user_, service_.socketPath());
  auto slow = RawPeer::asUser(user_, service_.socketPath());
  slow.send("\0AUTH"sv);
  // They are accepted in order, so these two are there when this one is.
  authenticated();
  clock_.advance(9s);
  EXPECT_TRUE(isServed());
  auto later = peer();
  later.authenticate();
  clock_.advance(1s);
  EXPECT_TRUE(silent.isClosed());
  EXPECT_TRUE(slow.isClosed());
  EXPECT_TRUE(works(later));
  EXPECT_THAT(log_.linesWith("authenticated after 10 seconds"), SizeIs(2));
  EXPECT_THAT(log_.linesWith("authenticated after 10 seconds")[0],
              HasSubstr("user " + std::to_string(user_) + ", process " +
                        std::to_string(::getpid()) + " (/"));
}

TEST_F(HostileInTime, AnUnfinishedMessageIsWaitedForThirtySecondsFromItsFirstByte) {
  auto text = std::string(textOf(rawBarrier()));
  auto half = authenticatedAs(user_);
  auto drip = authenticatedAs(user_);
  // Whoever has taken the second part has looked at the clock since the first.
  for (auto part : {text.substr(0, 1), text.substr(1, 1)}) {
    for (auto* peer : {&half, &drip}) {
      ASSERT_TRUE(peer->send(part));
      ASSERT_TRUE(eventually([&] { return peer->isTaken(); }));
    }
  }
  // Not the time since the last byte counts.
  for (std::size_t second = 0; second < 29; ++second) {
    clock_.advance(1s);
    ASSERT_TRUE(drip.send(text.substr(2 + second, 1)));
    ASSERT_TRUE(isServed());
  }
  EXPECT_THAT(log_.linesWith("not complete"), SizeIs(0));
  clock_.advance(1s);
  EXPECT_TRUE(half.isClosed());
  EXPECT_TRUE(drip.isClosed());
  EXPECT_THAT(log_.linesWith("not complete after 30 seconds"), SizeIs(2));
}

TEST_F(HostileInTime, EachUnfinishedMessageIsWaitedForFromItsOwnFirstByte) {
  auto first = std::string(textOf(rawBarrier(1)));
  auto second = std::string(textOf(rawBarrier(2)));
  auto slow = authenticatedAs(user_);
  auto tooSlow = authenticatedAs(user_);
  // Whoever has taken the second part has looked at the clock since the first.
  for (auto part : {first.substr(0, 1), first.substr(1, 1)}) {
    for (auto* peer : {&slow, &tooSlow}) {
      ASSERT_TRUE(peer->send(part));
      ASSERT_TRUE(eventually([&] { return peer->isTaken(); }));
    }
  }
  clock_.advance(29s);
  // One read ends the first message and begins the second one.
  ASSERT_TRUE(slow.send(first.substr(2) + second.substr(0, second.size() - 1)));
  ASSERT_TRUE(slow.readMessage());
  clock_.advance(29s);
  EXPECT_TRUE(tooSlow.isClosed());
  EXPECT_TRUE(isServed());
  ASSERT_TRUE(slow.send(second.substr(second.size() - 1)));
  auto answer = slow.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->replySerial(), 2u);
  EXPECT_THAT(log_.linesWith("not complete"), SizeIs(1));
}

TEST_F(HostileInTime, WhatQueuedUpBehindALongCallIsNotBegunWhenItsSenderIsGone) {
  auto note = [](const char* text, std::uint8_t flags) {
    return rawCall({.member = "note_", .signature = "s", .flags = flags}, 2,
                   [&](auto& writer) { writer.appendString(text); });
  };
  auto leaving = authenticated();
  leaving.send(rawCall({.member = "waitWithReply_"}));
  service_.talker()->awaitWaiter();
  auto accepted = service_.lastAccepted();
  leaving.send(note("wants an answer", 0));
  leaving.send(note("wants none", dbus::kNoReplyExpected));
  leaving.close();
  Outcome<> ended;
  accepted->setInvalidationHandler(ended.reply());
  clock_.advance(1s);
  service_.talker()->openGate();
  ended.values();
  EXPECT_THAT(service_.talker()->notes(), testing::ElementsAre("wants none"));
}

TEST_F(HostileInTime, AcceptingRestsWhenThereIsNoDescriptorLeft) {
#ifdef HOIST_SANITIZED
  GTEST_SKIP() << "a sanitizer takes descriptors to look at memory, and an object for none without";
#endif
  constexpr auto kComplaint = "no connection can be accepted at the moment";
  auto fidget = RawPeer::asUser(user_, service_.socketPath());
  fidget.send("\0"sv);
  ASSERT_TRUE(eventually([&] { return fidget.isTaken(); }));
  FileDescriptor waiting(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = ""};
  service_.socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
  rlimit before;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  int lowest = FileDescriptor::duplicate(0).get();
  rlimit noneLeft{static_cast<rlim_t>(lowest), before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &noneLeft), 0);
  EXPECT_EQ(::connect(waiting.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_TRUE(eventually([&] { return log_.has(kComplaint); }));
  // Each is a turn of the listener, in which it would try again.
  for (int count = 0; count < 5; ++count) {
    fidget.send("AUTH\r\n");
    EXPECT_EQ(fidget.readLine(), "REJECTED EXTERNAL");
  }
  EXPECT_THAT(log_.linesWith(kComplaint), SizeIs(1));
  clock_.advance(kAcceptPause);
  EXPECT_TRUE(eventually([&] { return log_.linesWith(kComplaint).size() == 2; }));
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  clock_.advance(kAcceptPause);
  RawPeer served(std::move(waiting));
  served.authenticate();
  EXPECT_TRUE(works(served));
}

TEST_F(HostileInTime, ALongPauseBetweenMessagesIsNoOffence) {
  auto patient = authenticated();
  EXPECT_TRUE(works(patient));
  clock_.advance(1h);
  EXPECT_TRUE(works(patient));
}

TEST_F(HostileExchanges, AnotherUserThanTheKernelsIsRejected) {
  auto liar = RawPeer::asUser(user_, service_.socketPath());
  liar.send("\0AUTH EXTERNAL 30\r\n"sv);  // "0": root
  EXPECT_EQ(liar.readLine(), "REJECTED EXTERNAL");
  liar.send("AUTH ANONYMOUS\r\nAUTH DBUS_COOKIE_SHA1 30\r\nAUTH EXTERNAL 31303030\r\nBEGIN\r\n");
  for (int count = 0; count < 3; ++count) EXPECT_EQ(liar.readLine(), "REJECTED EXTERNAL");
  EXPECT_TRUE(liar.isClosed());
}

TEST_F(HostileExchanges, TheUserIsTheKernelsWhateverTheSenderHeaderSays) {
  auto forger = authenticatedAs(user_);
  forger.send(rawCall({.member = "askWhoCallsWithReply_", .sender = ":1.0"}));
  auto answer = forger.readMessage();
  ASSERT_TRUE(answer);
  dbus::MessageReader reader(*answer);
  EXPECT_EQ(reader.readUInt32(), user_);
}

TEST_F(HostileExchanges, ACallBeforeTheAuthenticationIsNotHandled) {
  auto eager = peer();
  eager.send(std::string(1, '\0') +
             std::string(textOf(rawCall({.member = "note_", .signature = "s"}, 1,
                                        [](auto& writer) { writer.appendString("sneaked"); }))));
  eager.send("\r\n\r\n");
  eager.close();
  EXPECT_TRUE(isServed());
  EXPECT_THAT(service_.talker()->notes(), SizeIs(0));
}

TEST_F(HostileExchanges, AFloodOfRejectionsEnds) {
  auto flooder = RawPeer::asUser(user_, service_.socketPath());
  std::string flood(1, '\0');
  for (int count = 0; count < 10000; ++count) flood += "AUTH\r\n";
  flooder.send(flood);
  EXPECT_LT(flooder.readToEnd(), 1000u);
  EXPECT_TRUE(log_.has("kMaximumRejections"));
}

TEST_F(HostileExchanges, AnEndlessLineEnds) {
  auto flooder = RawPeer::asUser(user_, service_.socketPath());
  flooder.send("\0AUTH EXTERNAL "sv);
  while (flooder.send(std::string(4096, '3'))) {
  }
  EXPECT_TRUE(flooder.isClosed());
  EXPECT_TRUE(log_.has("kMaximumExchangeSize"));
}

TEST_F(HostileExchanges, APeerThatClosesInTheMiddleOfTheHandshakeIsForgotten) {
  for (auto part : {""sv, "\0"sv, "\0AUTH EXTER"sv, "\0AUTH EXTERNAL\r\nDATA\r\n"sv,
                    "\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEG"sv}) {
    auto fickle = peer();
    if (!part.empty()) fickle.send(part);
    fickle.close();
  }
  EXPECT_EQ(service_.accepted(), 1u);
}

TEST_F(HostileExchanges, DescriptorsBeforeTheAuthenticationEndTheConnection) {
  auto pipe = makePipe();
  auto pusher = peer();
  pusher.send("\0AUTH EXTERNAL\r\n"sv);
  EXPECT_EQ(pusher.readLine(), "DATA");
  pusher.send("DATA\r\n", {pipe.writing.get()});
  EXPECT_TRUE(pusher.isClosed());
  auto unnegotiated = peer();
  unnegotiated.send("\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"sv);
  EXPECT_EQ(unnegotiated.readLine(), "DATA");
  EXPECT_THAT(*unnegotiated.readLine(), testing::StartsWith("OK "));
  unnegotiated.send(textOf(rawBarrier()), {pipe.writing.get()});
  EXPECT_TRUE(unnegotiated.isClosed());
}

// ----- The same bytes, however they come ---------------------------------------------------------

TEST_F(HostileExchanges, TheFirstCallMayComeWithTheAuthentication) {
  auto quick = peer();
  quick.send(std::string(RawPeer::kExchange) + std::string(textOf(rawBarrier(5))));
  for (int line = 0; line < 3; ++line) quick.readLine();
  auto answer = quick.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->replySerial(), 5u);
}

TEST_F(HostileExchanges, OneByteAtATimeIsAnsweredAlike) {
  auto drip = peer();
  for (char byte : std::string(RawPeer::kExchange) + std::string(textOf(rawBarrier(6)))) {
    ASSERT_TRUE(drip.send({&byte, 1}));
  }
  for (int line = 0; line < 3; ++line) drip.readLine();
  auto answer = drip.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->replySerial(), 6u);
}

TEST_F(HostileExchanges, BothByteOrdersAreUnderstood) {
  // barrierWithCompletion: in big-endian order.
  std::string frame = {'B', 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 9};
  std::string fields;
  auto field = [&](char code, char type, std::string_view value) {
    while (fields.size() % 8) fields += '\0';
    fields += {code, 1, type, 0, 0, 0, 0, static_cast<char>(value.size())};
    fields += value;
    fields += '\0';
  };
  field(1, 'o', "/");
  field(2, 's', "com.kelvo.Greeting");
  field(3, 's', "barrierWithCompletion_");
  frame += {0, 0, 0, static_cast<char>(fields.size())};
  frame += fields;
  while (frame.size() % 8) frame += '\0';
  auto foreign = authenticated();
  foreign.send(frame);
  auto answer = foreign.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->type(), dbus::MessageType::kMethodReturn);
  EXPECT_EQ(answer->replySerial(), 9u);
}

}  // namespace
}  // namespace hoist::xpc
