// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Peers that own their bytes: every bound, every rule. In each test an honest client is served
// meanwhile, and afterwards the process holds what it held before.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "platform/Clock.h"
#include "platform/SystemCall.h"
#include "platform/dbus/MessageReader.h"
#include "platform/dbus/Names.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/testing/RawPeer.h"
#include "platform/xpc/testing/TestService.h"
#include "platform/xpc/testing/TroubleLog.h"
#include "support/ClockDriver.h"

namespace hoist::xpc {
namespace {

using namespace std::literals;
using testing::HasSubstr;
using testing::SizeIs;

// Each test has users of its own.
uid_t makeUser() {
  static uid_t last = 4710;
  return ++last;
}

class Hostile : public testing::Test {
 protected:
  // Once the service and its honest client are there, and again when the peers are gone.
  void SetUp() override {
    ASSERT_TRUE(isServed());
    descriptors_ = countDescriptors();
    threads_ = countThreads();
  }
  void TearDown() override {
    EXPECT_TRUE(isServed());
    // Threads of the global queues end after a few seconds without work.
    EXPECT_TRUE(eventually([&] { return countDescriptors() <= descriptors_; }))
        << countDescriptors() << " descriptors, before " << descriptors_;
    EXPECT_TRUE(eventually([&] {
      letTimePass();
      return countThreads() <= threads_;
    })) << countThreads()
        << " threads, before " << threads_;
  }

  virtual void letTimePass() {}

  bool isServed() {
    Outcome<> barrier;
    ask<&Talking::barrierWithCompletion>(honest_, barrier);
    return barrier.error() == nullptr;
  }
  RawPeer peer() { return RawPeer(service_.socketPath()); }
  RawPeer authenticated() {
    auto one = peer();
    one.authenticate();
    return one;
  }
  RawPeer authenticatedAs(uid_t user) {
    auto one = RawPeer::asUser(user, service_.socketPath());
    one.authenticate();
    return one;
  }
  // Whether a barrier through the peer is answered.
  static bool works(RawPeer& peer) {
    if (!peer.send(rawBarrier(77))) return false;
    auto answer = peer.readMessage();
    return answer && answer->type() == dbus::MessageType::kMethodReturn &&
           answer->replySerial() == 77;
  }

  TroubleLog log_;
  TestService service_;
  Ref<Connection> honest_ = service_.connect();
  const uid_t user_ = makeUser();
  const uid_t otherUser_ = makeUser();
  std::size_t descriptors_ = 0;
  std::size_t threads_ = 0;
};

// ----- Authentication ----------------------------------------------------------------------------

class HostileInTime : public Hostile {
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

TEST_F(HostileInTime, ALongPauseBetweenMessagesIsNoOffence) {
  auto patient = authenticated();
  EXPECT_TRUE(works(patient));
  clock_.advance(1h);
  EXPECT_TRUE(works(patient));
}

TEST_F(Hostile, AnotherUserThanTheKernelsIsRejected) {
  auto liar = RawPeer::asUser(user_, service_.socketPath());
  liar.send("\0AUTH EXTERNAL 30\r\n"sv);  // "0": root
  EXPECT_EQ(liar.readLine(), "REJECTED EXTERNAL");
  liar.send("AUTH ANONYMOUS\r\nAUTH DBUS_COOKIE_SHA1 30\r\nAUTH EXTERNAL 31303030\r\nBEGIN\r\n");
  for (int count = 0; count < 3; ++count) EXPECT_EQ(liar.readLine(), "REJECTED EXTERNAL");
  EXPECT_TRUE(liar.isClosed());
}

TEST_F(Hostile, TheUserIsTheKernelsWhateverTheSenderHeaderSays) {
  auto forger = authenticatedAs(user_);
  forger.send(rawCall({.member = "askWhoCallsWithReply_", .sender = ":1.0"}));
  auto answer = forger.readMessage();
  ASSERT_TRUE(answer);
  dbus::MessageReader reader(*answer);
  EXPECT_EQ(reader.readUInt32(), user_);
}

TEST_F(Hostile, ACallBeforeTheAuthenticationIsNotHandled) {
  auto eager = peer();
  eager.send(std::string(1, '\0') +
             std::string(textOf(rawCall({.member = "note_", .signature = "s"}, 1,
                                        [](auto& writer) { writer.appendString("sneaked"); }))));
  eager.send("\r\n\r\n");
  eager.close();
  EXPECT_TRUE(isServed());
  EXPECT_THAT(service_.talker()->notes(), SizeIs(0));
}

TEST_F(Hostile, AFloodOfRejectionsEnds) {
  auto flooder = peer();
  std::string flood(1, '\0');
  for (int count = 0; count < 10000; ++count) flood += "AUTH\r\n";
  flooder.send(flood);
  EXPECT_LT(flooder.readToEnd(), 1000u);
}

TEST_F(Hostile, AnEndlessLineEnds) {
  auto flooder = peer();
  flooder.send("\0AUTH EXTERNAL "sv);
  while (flooder.send(std::string(4096, '3'))) {
  }
  EXPECT_TRUE(flooder.isClosed());
}

TEST_F(Hostile, APeerThatClosesInTheMiddleOfTheHandshakeIsForgotten) {
  for (auto part : {""sv, "\0"sv, "\0AUTH EXTER"sv, "\0AUTH EXTERNAL\r\nDATA\r\n"sv,
                    "\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEG"sv}) {
    auto fickle = peer();
    if (!part.empty()) fickle.send(part);
    fickle.close();
  }
  EXPECT_EQ(service_.accepted(), 1u);
}

TEST_F(Hostile, DescriptorsBeforeTheAuthenticationEndTheConnection) {
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

TEST_F(Hostile, TheFirstCallMayComeWithTheAuthentication) {
  auto quick = peer();
  quick.send(std::string(RawPeer::kExchange) + std::string(textOf(rawBarrier(5))));
  for (int line = 0; line < 3; ++line) quick.readLine();
  auto answer = quick.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->replySerial(), 5u);
}

TEST_F(Hostile, OneByteAtATimeIsAnsweredAlike) {
  auto drip = peer();
  for (char byte : std::string(RawPeer::kExchange) + std::string(textOf(rawBarrier(6)))) {
    ASSERT_TRUE(drip.send({&byte, 1}));
  }
  for (int line = 0; line < 3; ++line) drip.readLine();
  auto answer = drip.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->replySerial(), 6u);
}

TEST_F(Hostile, BothByteOrdersAreUnderstood) {
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

// ----- Sizes -------------------------------------------------------------------------------------

// The head of a call that announces a body.
std::string announce(std::uint32_t bodySize, std::uint32_t serial = 3) {
  auto text = std::string(textOf(rawBarrier(serial)));
  text.replace(4, 4, reinterpret_cast<const char*>(&bodySize), 4);
  return text;
}

TEST_F(Hostile, AMessageThatIsTooLargeIsAnsweredAndTheConnectionClosed) {
  auto boaster = authenticatedAs(user_);
  boaster.send(announce(100 << 20));
  auto answer = boaster.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->errorName(), dbus::errors::kLimitsExceeded);
  EXPECT_EQ(answer->replySerial(), 3u);
  EXPECT_TRUE(boaster.isClosed());
  EXPECT_THAT(log_.linesWith("kMessageSize"), SizeIs(1));
}

TEST_F(Hostile, AMessageOfTheLargestSizeIsTaken) {
  auto large = authenticated();
  auto callWith = [](std::size_t size) {
    return rawCall({.member = "note_", .signature = "s"}, 1,
                   [&](auto& writer) { writer.appendString(std::string(size, 'x')); });
  };
  auto overhead = callWith(0).bytes.size();
  large.send(callWith(kMessageSize - overhead));
  auto answer = large.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->type(), dbus::MessageType::kMethodReturn);
  EXPECT_THAT(service_.talker()->notes()[0], SizeIs(kMessageSize - overhead));
  large.send(callWith(kMessageSize - overhead + 1));
  EXPECT_EQ(large.readMessage()->errorName(), dbus::errors::kLimitsExceeded);
}

TEST_F(Hostile, UnfinishedMessagesOfOneUserAreBoundedTogether) {
  std::vector<RawPeer> peers;
  std::string part = announce((1 << 20) - 1024) + std::string(900 << 10, '\0');
  for (int count = 0; count < 12; ++count) {
    peers.push_back(authenticatedAs(user_));
    // Closed while it sends, perhaps.
    (void)peers.back().send(part);
  }
  EXPECT_TRUE(eventually([&] { return log_.has("kHeldBytesOfOneUser"); }));
  // Another user has room.
  auto other = authenticatedAs(otherUser_);
  EXPECT_TRUE(works(other));
}

// ----- Descriptors -------------------------------------------------------------------------------

TEST_F(Hostile, DescriptorsThatNoCallRefersToEndTheConnection) {
  auto pipe = makePipe();
  for (std::size_t count : {1u, 16u, 17u, 253u}) {
    auto pusher = authenticated();
    std::vector<int> many(count, pipe.writing.get());
    pusher.send(textOf(rawBarrier()), many);
    EXPECT_TRUE(pusher.isClosed()) << count;
  }
}

TEST_F(Hostile, DescriptorsOnMessagesThatAreNeverFinishedAreBounded) {
  auto pipe = makePipe();
  std::vector<RawPeer> pushers;
  auto call = rawCall({.member = "echoHandle_endpoint_reply_", .signature = "hh"}, 1,
                      [&](dbus::MessageWriter& writer) {
                        writer.appendFileDescriptor(FileDescriptor::duplicate(pipe.writing.get()));
                        writer.appendFileDescriptor(FileDescriptor::duplicate(pipe.writing.get()));
                      });
  auto text = std::string(textOf(call));
  // One descriptor with every byte.
  auto pusher = authenticatedAs(user_);
  std::size_t pushed = 0;
  while (pushed < text.size() - 1 && pusher.send(text.substr(pushed, 1), {pipe.writing.get()})) {
    ++pushed;
  }
  EXPECT_TRUE(pusher.isClosed());
  EXPECT_TRUE(log_.has("closed, "));
}

TEST_F(Hostile, DescriptorsOfOneUserAreBoundedTogether) {
  auto pipe = makePipe();
  auto call = rawCall(
      {.member = "echo", .signature = std::string(16, 'h')}, 1, [&](dbus::MessageWriter& writer) {
        for (int count = 0; count < 16; ++count) {
          writer.appendFileDescriptor(FileDescriptor::duplicate(pipe.writing.get()));
        }
      });
  std::vector<int> borrowed(16, pipe.writing.get());
  auto half = textOf(call).substr(0, textOf(call).size() - 1);
  std::vector<RawPeer> pushers;
  for (int count = 0; count < 5; ++count) {
    pushers.push_back(authenticatedAs(user_));
    pushers.back().send(half, borrowed);
  }
  EXPECT_TRUE(eventually([&] { return log_.has("kDescriptorsOfOneUser"); }));
}

// A TCP socket whose last owner waits an hour in close(2): until the other end takes what was sent,
// or goes.
class Lingering {
 public:
  Lingering() {
    sockaddr_in address{.sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}};
    socklen_t size = sizeof address;
    auto* where = reinterpret_cast<sockaddr*>(&address);
    FileDescriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sending_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    systemCall("bind", [&] { return ::bind(listener.get(), where, size); });
    systemCall("listen", [&] { return ::listen(listener.get(), 1); });
    systemCall("getsockname", [&] { return ::getsockname(listener.get(), where, &size); });
    systemCall("connect", [&] { return ::connect(sending_.get(), where, size); });
    receiving_.reset(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
    std::string data(1 << 16, 'x');
    while (::send(sending_.get(), data.data(), data.size(), MSG_DONTWAIT) > 0) continue;
    linger hour{1, 3600};
    ::setsockopt(sending_.get(), SOL_SOCKET, SO_LINGER, &hour, sizeof hour);
  }
  // Passes it on for good, with some bytes; answers whether the kernel let it pass.
  bool passTo(RawPeer& peer, std::string_view bytes) {
    bool sent = peer.send(bytes, {sending_.get()});
    // Elsewhere, for the case that the other side has closed it already.
    if (sent) closing_ = std::jthread([own = std::move(sending_)]() mutable { own.reset(); });
    return sent;
  }
  // Ends all waiting.
  ~Lingering() {
    linger off{};
    ::setsockopt(sending_.get(), SOL_SOCKET, SO_LINGER, &off, sizeof off);
    receiving_.reset();
  }

 private:
  FileDescriptor sending_;
  FileDescriptor receiving_;
  std::jthread closing_;
};

TEST_F(Hostile, ADescriptorThatTakesLongToCloseHoldsUpItsSenderAlone) {
  // Received with what ends the connection, and left unreceived in its socket.
  Lingering received, unreceived, refused;
  auto pusher = RawPeer::asUser(user_, service_.socketPath());
  pusher.send("\0AUTH EXTERNAL\r\n"sv);
  EXPECT_EQ(pusher.readLine(), "DATA");
  EXPECT_TRUE(received.passTo(pusher, "DATA\r\n"));
  auto endless = RawPeer::asUser(user_, service_.socketPath());
  endless.send("\0AUTH EXTERNAL\r\n"sv);
  EXPECT_EQ(endless.readLine(), "DATA");
  endless.send(std::string(4096 * 8, 'x'));
  unreceived.passTo(endless, "x");
  // Of a connection that is not admitted.
  std::vector<RawPeer> silent;
  for (std::size_t count = 0; count < kUnauthenticatedOfOneUser; ++count) {
    silent.push_back(RawPeer::asUser(otherUser_, service_.socketPath()));
  }
  auto surplus = RawPeer::asUser(otherUser_, service_.socketPath());
  refused.passTo(surplus, "x");
  for (int count = 0; count < 3; ++count) {
    auto other = authenticated();
    EXPECT_TRUE(works(other));
  }
}

TEST_F(Hostile, AnEndpointsHolderWhoseDescriptorsTakeLongToCloseHoldsUpNobody) {
  auto endpoint = service_.listener()->endpoint();
  descriptors_ = countDescriptors();  // its own two
  auto request = [&](FileDescriptor descriptor) {
    dbus::OutgoingMessage message;
    message.bytes = {'C'};
    message.descriptors.push_back(std::move(descriptor));
    dbus::send(endpoint.descriptor(), message, 0);
  };
  // In the stream that is passed, before it is.
  Lingering inside;
  int ends[2];
  systemCall("socketpair",
             [&] { return ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends); });
  RawPeer mine{FileDescriptor(ends[0])};
  FileDescriptor theirs(ends[1]);
  EXPECT_TRUE(inside.passTo(mine, "garbage"));
  request(std::move(theirs));
  // In place of the stream.
  Lingering instead;
  RawPeer door(FileDescriptor::duplicate(endpoint.descriptor()));
  EXPECT_TRUE(instead.passTo(door, "C"));
  auto connection = service_.connectToEndpoint();
  Outcome<> barrier;
  ask<&Talking::barrierWithCompletion>(connection, barrier);
  EXPECT_EQ(barrier.error(), nullptr);
  auto other = authenticated();
  EXPECT_TRUE(works(other));
}

TEST_F(Hostile, ADescriptorThatIsNoEndpointIsAnsweredWithAnError) {
  auto peer = authenticated();
  peer.send(rawCall({.member = "echoHandle_endpoint_reply_", .signature = "hh"}, 1,
                    [&](dbus::MessageWriter& writer) {
                      writer.appendFileDescriptor(FileDescriptor::duplicate(0));
                      writer.appendFileDescriptor(FileDescriptor::duplicate(0));
                    }));
  EXPECT_EQ(peer.readMessage()->errorName(), dbus::errors::kInvalidArgs);
  EXPECT_TRUE(works(peer));
}

TEST_F(Hostile, AnAnswerWithDescriptorsToAPeerThatTakesNoneIsAnError) {
  auto modest = peer();
  modest.send("\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"sv);
  modest.readLine();
  modest.readLine();
  modest.send(rawCall({.member = "makeDescriptorWithReply_"}));
  EXPECT_EQ(modest.readMessage()->errorName(), dbus::errors::kNotSupported);
  EXPECT_TRUE(works(modest));
}

// ----- Answers that nobody reads -----------------------------------------------------------------

TEST_F(Hostile, APeerThatCallsAMillionTimesAndNeverReadsIsClosedAtASmallBound) {
  std::vector<dbus::OutgoingMessage> calls;
  calls.push_back(rawBarrier());
  calls.push_back(rawCall({.interface = "org.freedesktop.DBus.Peer", .member = "GetMachineId"}));
  calls.push_back(
      rawCall({.interface = "org.freedesktop.DBus.Introspectable", .member = "Introspect"}));
  for (const auto& call : calls) {
    [[maybe_unused]] auto before = residentBytes();
    auto flooder = authenticatedAs(user_);
    std::string batch;
    for (int count = 0; count < 1000; ++count) batch += textOf(call);
    int sent = 0;
    while (sent < 1000 && flooder.send(batch)) ++sent;
    EXPECT_LT(sent, 1000);
    EXPECT_TRUE(isServed());
#ifndef HOIST_SANITIZED
    EXPECT_LT(residentBytes(), before + (8 << 20));
#endif
  }
  EXPECT_THAT(log_.linesWith("kUnreadAnswers"), SizeIs(3));
}

TEST_F(Hostile, LargeAnswersThatNobodyReadsAreBoundedTogether) {
  std::vector<RawPeer> sleepers;
  for (int count = 0; count < 16; ++count) {
    sleepers.push_back(authenticatedAs(user_));
    sleepers.back().send(rawCall({.member = "makeTextOfSize_reply_", .signature = "u"}, 1,
                                 [](auto& writer) { writer.appendUInt32(1'000'000); }));
  }
  EXPECT_TRUE(eventually([&] { return log_.has("kHeldBytesOfOneUser"); }));
  auto other = authenticatedAs(otherUser_);
  EXPECT_TRUE(works(other));
}

TEST_F(Hostile, DescriptorsInAnswersThatNobodyReadsAreBounded) {
  auto pipe = makePipe();
  auto call =
      rawCall({.member = "echoText_data_file_object_reply_", .signature = "asaayaha(sa{sv})"}, 1,
              [&](dbus::MessageWriter& writer) {
                for (char kind : {'s', 'y', 'h', 'o'}) {
                  writer.openArray();
                  if (kind == 'h') {
                    writer.appendFileDescriptor(FileDescriptor::duplicate(pipe.writing.get()));
                  }
                  writer.close();
                }
              });
  auto sleeper = authenticatedAs(user_);
  for (int count = 0; count < 10'000 && sleeper.send(call); ++count) {
  }
  EXPECT_TRUE(eventually([&] { return log_.has("kDescriptorsOfOneUser"); }));
  EXPECT_LE(countDescriptors(), descriptors_ + kDescriptorsOfOneUser + 20);
}

TEST_F(Hostile, AnAnswerWaitsForASlowReader) {
  auto slow = authenticated();
  slow.send(rawCall({.member = "makeTextOfSize_reply_", .signature = "u"}, 1,
                    [](auto& writer) { writer.appendUInt32(1'000'000); }));
  EXPECT_TRUE(isServed());
  auto answer = slow.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_GT(answer->size(), 1'000'000u);
}

TEST_F(Hostile, APeerThatGoesBetweenRequestAndReplyIsForgotten) {
  auto leaving = authenticated();
  leaving.send(rawCall({.member = "keep_reply_", .signature = "s"}, 1,
                       [](auto& writer) { writer.appendString(""); }));
  auto reply = service_.talker()->takeKept();
  auto accepted = service_.lastAccepted();
  leaving.close();
  EXPECT_TRUE(eventually([&] { return !accepted->isPeerConnected(); }));
  reply("nobody listens");
}

TEST_F(Hostile, AnsweringAFutureThatIsGoneWhileItsHandlerBlocksHoldsUpNobody) {
  auto leaving = authenticated();
  leaving.send(rawCall({.member = "waitWithReply_"}));
  service_.talker()->awaitWaiter();
  leaving.close();
  EXPECT_TRUE(isServed());
  service_.talker()->openGate();
}

// ----- Numbers of connections --------------------------------------------------------------------

TEST_F(Hostile, ConnectionsOfOneUserAreBounded) {
  std::vector<RawPeer> peers;
  for (std::size_t count = 0; count < kConnectionsOfOneUser; ++count) {
    peers.push_back(authenticatedAs(user_));
  }
  for (int count = 0; count < 3; ++count) {
    EXPECT_TRUE(RawPeer::asUser(user_, service_.socketPath()).isClosed());
  }
  EXPECT_THAT(log_.linesWith("kConnectionsOfOneUser"), SizeIs(1));
  auto other = authenticatedAs(otherUser_);
  EXPECT_TRUE(works(other));
  // The place of one that goes is free again, and the next refusal is worth a line again.
  peers.pop_back();
  EXPECT_TRUE(eventually([&] {
    try {
      peers.push_back(authenticatedAs(user_));
      return true;
    } catch (const std::exception&) {
      return false;
    }
  }));
  EXPECT_TRUE(RawPeer::asUser(user_, service_.socketPath()).isClosed());
  EXPECT_GE(log_.linesWith("kConnectionsOfOneUser").size(), 2u);
}

TEST_F(Hostile, ConnectionsThatHaveNotAuthenticatedAreBoundedForOneUser) {
  std::vector<RawPeer> silent;
  for (std::size_t count = 0; count < kUnauthenticatedOfOneUser; ++count) {
    silent.push_back(RawPeer::asUser(user_, service_.socketPath()));
  }
  EXPECT_TRUE(RawPeer::asUser(user_, service_.socketPath()).isClosed());
  EXPECT_THAT(log_.linesWith("kUnauthenticatedOfOneUser"), SizeIs(1));
  auto other = authenticatedAs(otherUser_);
  EXPECT_TRUE(works(other));
}

TEST_F(Hostile, ConnectionsThatHaveNotAuthenticatedAreBoundedForAllUsersButRoot) {
  std::vector<RawPeer> silent;
  for (std::size_t count = 0; count < kUnauthenticatedOfAllUsers; ++count) {
    auto user = static_cast<uid_t>(5000 + count / kUnauthenticatedOfOneUser);
    silent.push_back(RawPeer::asUser(user, service_.socketPath()));
  }
  EXPECT_TRUE(RawPeer::asUser(user_, service_.socketPath()).isClosed());
  EXPECT_THAT(log_.linesWith("kUnauthenticatedOfAllUsers"), SizeIs(1));
  auto root = authenticated();
  EXPECT_TRUE(works(root));
}

TEST_F(Hostile, ConnectionsOfHelpersAreCountedByThemselves) {
  service_.listener()->setIsHelper([this](const Peer& peer, int process) {
    EXPECT_EQ(peer.process, ::getpid());
    EXPECT_GE(process, 0);
    return peer.user == user_;
  });
  std::vector<RawPeer> helpers;
  for (std::size_t count = 0; count < kConnectionsOfOneUsersHelpers; ++count) {
    helpers.push_back(authenticatedAs(user_));
  }
  EXPECT_TRUE(works(helpers.back()));
  EXPECT_TRUE(RawPeer::asUser(user_, service_.socketPath()).isClosed());
  EXPECT_THAT(log_.linesWith("kConnectionsOfOneUsersHelpers"), SizeIs(1));
}

// ----- Rules of D-Bus ----------------------------------------------------------------------------

TEST_F(Hostile, AFrameThatBreaksARuleEndsItsConnectionAlone) {
  auto garbage = authenticatedAs(user_);
  garbage.send(std::string(64, 'X'));
  EXPECT_TRUE(garbage.isClosed());
  auto padding = authenticatedAs(user_);
  auto text = std::string(textOf(rawBarrier()));
  text[text.size() - 1] = 'x';
  padding.send(text);
  EXPECT_TRUE(padding.isClosed());
  EXPECT_THAT(log_.linesWith("closed, "), SizeIs(2));
}

TEST_F(Hostile, MutatedFramesHarmNobody) {
  auto original = rawCall({.member = "echoDictionary_date_reply_", .signature = "a{sv}d"}, 1,
                          [](dbus::MessageWriter& writer) {
                            writer.openArray();
                            writer.openDictEntry();
                            writer.appendString("key");
                            writer.openVariant("av");
                            writer.openArray();
                            writer.openVariant("s");
                            writer.appendString("value");
                            writer.close();
                            writer.close();
                            writer.close();
                            writer.close();
                            writer.close();
                            writer.appendDouble(1);
                          });
  std::string text(textOf(original));
#ifdef HOIST_SANITIZED
  constexpr int kFrames = 2'000;
#else
  constexpr int kFrames = 20'000;
#endif
  std::uint64_t state = 42;
  auto random = [&state] {
    state = state * 6364136223846793005u + 1442695040888963407u;
    return static_cast<std::size_t>(state >> 33);
  };
  std::optional<RawPeer> mutant;
  for (int count = 0; count < kFrames; ++count) {
    if (!mutant) mutant.emplace(authenticated());
    auto mutated = text;
    mutated[random() % mutated.size()] = static_cast<char>(random());
    if (!mutant->send(mutated)) mutant.reset();
    // Keeps the socket empty.
    char buffer[4096];
    if (mutant && ::recv(mutant->socket(), buffer, sizeof buffer, MSG_DONTWAIT) == 0)
      mutant.reset();
  }
  EXPECT_TRUE(isServed());
}

}  // namespace
}  // namespace hoist::xpc
