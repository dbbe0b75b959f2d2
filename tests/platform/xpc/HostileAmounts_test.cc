// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Peers that send, leave unread or open more than they may, and ones that break the rules of
// D-Bus.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "platform/dbus/Names.h"
#include "platform/xpc/testing/HostileTest.h"

namespace hoist::xpc {
namespace {

using testing::SizeIs;

using HostileAmounts = HostileTest;

// ----- Sizes -------------------------------------------------------------------------------------

// The head of a call that announces a body.
std::string announce(std::uint32_t bodySize, std::uint32_t serial = 3) {
  auto text = std::string(textOf(rawBarrier(serial)));
  text.replace(4, 4, reinterpret_cast<const char*>(&bodySize), 4);
  return text;
}

TEST_F(HostileAmounts, AMessageThatIsTooLargeIsAnsweredAndTheConnectionClosed) {
  auto boaster = authenticatedAs(user_);
  boaster.send(announce(100 << 20));
  auto answer = boaster.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->errorName(), dbus::errors::kLimitsExceeded);
  EXPECT_EQ(answer->replySerial(), 3u);
  EXPECT_TRUE(boaster.isClosed());
  EXPECT_THAT(log_.linesWith("kMessageSize"), SizeIs(1));
}

TEST_F(HostileAmounts, AMessageOfTheLargestSizeIsTaken) {
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

TEST_F(HostileAmounts, UnfinishedMessagesOfOneUserAreBoundedTogether) {
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

TEST_F(HostileAmounts, WhatAConnectionHeldIsGivenBackWhenItEnds) {
  auto staying = authenticatedAs(user_);
  std::string part = announce((1 << 20) - 1024) + std::string(900 << 10, '\0');
  for (int count = 0; count < 12; ++count) {
    auto leaving = authenticatedAs(user_);
    ASSERT_TRUE(leaving.send(part));
    ASSERT_TRUE(eventually([&] { return leaving.isTaken(); }));
    auto accepted = service_.lastAccepted();
    Outcome<> ended;
    accepted->setInvalidationHandler(ended.reply());
    leaving.close();
    ended.values();
  }
  EXPECT_FALSE(log_.has("kHeldBytesOfOneUser"));
  EXPECT_TRUE(works(staying));
}

TEST(HostileAmountsToAHelper, AreReportedWithAHelpersBounds) {
  TroubleLog log;
  TestService helper(Limits::forHelper());
  auto user = makeUser();
  auto boaster = RawPeer::asUser(user, helper.socketPath());
  boaster.authenticate().send(announce(kHelperMessageSize));
  EXPECT_EQ(boaster.readMessage()->errorName(), dbus::errors::kLimitsExceeded);
  EXPECT_TRUE(boaster.isClosed());
  EXPECT_TRUE(log.has("(kHelperMessageSize in"));

  std::vector<RawPeer> peers;
  for (int count = 0; count < 3; ++count) {
    peers.push_back(RawPeer::asUser(user, helper.socketPath()));
    peers.back().authenticate();
    // Closed while it sends, perhaps.
    (void)peers.back().send(announce(15 << 20) + std::string(12 << 20, '\0'));
  }
  EXPECT_TRUE(eventually([&] { return log.has("(kHelperHeldBytesOfOneUser in"); }));
}

// ----- Answers that nobody reads -----------------------------------------------------------------

TEST_F(HostileAmounts, APeerThatCallsAMillionTimesAndNeverReadsIsClosedAtASmallBound) {
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

TEST_F(HostileAmounts, LargeAnswersThatNobodyReadsAreBoundedTogether) {
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

TEST_F(HostileAmounts, MessagesToAPeerThatDoesNotReadFailOnceEachWhenTheyAreTooMany) {
  constexpr std::size_t kSize = 900 << 10;
  std::vector<RawPeer> sleepers;
  std::vector<Ref<Connection>> accepted;
  std::array<std::atomic<int>, 2 * kHeldBytesOfOneUser / kSize> errors{};
  std::size_t sent = 0;
  for (; sent < errors.size() && !log_.has("kHeldBytesOfOneUser"); ++sent) {
    sleepers.push_back(authenticatedAs(user_));
    ASSERT_TRUE(works(sleepers.back()));
    accepted.push_back(service_.lastAccepted());
    accepted.back()
        ->remoteObjectProxyWithErrorHandler([&error = errors[sent]](const Ref<Error>&) { ++error; })
        ->send<&Talking::note>(std::string(kSize, 'x'));
  }
  ASSERT_TRUE(log_.has("kHeldBytesOfOneUser"));
  // The last one asked for too much.
  sleepers.back().readToEnd();
  EXPECT_TRUE(eventually([&] { return errors[sent - 1] > 0; }));
  for (auto& connection : accepted) {
    Outcome<> ended;
    connection->setInvalidationHandler(ended.reply());
    connection->invalidate();
    ended.values();
  }
  for (std::size_t index = 0; index < sent; ++index) EXPECT_EQ(errors[index], 1) << index;
}

TEST_F(HostileAmounts, DescriptorsInAnswersThatNobodyReadsAreBounded) {
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

TEST_F(HostileAmounts, AnAnswerWaitsForASlowReader) {
  auto slow = authenticated();
  slow.send(rawCall({.member = "makeTextOfSize_reply_", .signature = "u"}, 1,
                    [](auto& writer) { writer.appendUInt32(1'000'000); }));
  EXPECT_TRUE(isServed());
  auto answer = slow.readMessage();
  ASSERT_TRUE(answer);
  EXPECT_GT(answer->size(), 1'000'000u);
}

TEST_F(HostileAmounts, APeerThatGoesBetweenRequestAndReplyIsForgotten) {
  auto leaving = authenticated();
  leaving.send(rawCall({.member = "keep_reply_", .signature = "s"}, 1,
                       [](auto& writer) { writer.appendString(""); }));
  auto reply = service_.talker()->takeKept();
  auto accepted = service_.lastAccepted();
  leaving.close();
  EXPECT_TRUE(eventually([&] { return !accepted->isPeerConnected(); }));
  reply("nobody listens");
}

TEST_F(HostileAmounts, AnsweringAFutureThatIsGoneWhileItsHandlerBlocksHoldsUpNobody) {
  auto leaving = authenticated();
  leaving.send(rawCall({.member = "waitWithReply_"}));
  service_.talker()->awaitWaiter();
  leaving.close();
  EXPECT_TRUE(isServed());
  service_.talker()->openGate();
}

// ----- Numbers of connections --------------------------------------------------------------------

TEST_F(HostileAmounts, ConnectionsOfOneUserAreBounded) {
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

TEST_F(HostileAmounts, ConnectionsThatHaveNotAuthenticatedAreBoundedForOneUser) {
  std::vector<RawPeer> silent;
  for (std::size_t count = 0; count < kUnauthenticatedOfOneUser; ++count) {
    silent.push_back(RawPeer::asUser(user_, service_.socketPath()));
  }
  EXPECT_TRUE(RawPeer::asUser(user_, service_.socketPath()).isClosed());
  EXPECT_THAT(log_.linesWith("kUnauthenticatedOfOneUser"), SizeIs(1));
  auto other = authenticatedAs(otherUser_);
  EXPECT_TRUE(works(other));
}

TEST_F(HostileAmounts, ConnectionsThatHaveNotAuthenticatedAreBoundedForAllUsersButRoot) {
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

TEST_F(HostileAmounts, HelpersThatHaveNotAuthenticatedLeaveRoomForTheirUser) {
  std::atomic<bool> isHelper = true;
  service_.listener()->setIsHelper([&](const Peer&, int) { return isHelper.load(); });
  std::vector<RawPeer> helpers;
  for (std::size_t count = 0; count < kUnauthenticatedOfOneUser; ++count) {
    helpers.push_back(RawPeer::asUser(user_, service_.socketPath()));
  }
  // They are accepted in order.
  helpers.push_back(authenticatedAs(user_));
  isHelper = false;
  ++descriptors_;  // the stand-in for what strangers pass is kept for good
  auto own = authenticatedAs(user_);
  EXPECT_TRUE(works(own));
}

TEST_F(HostileAmounts, ConnectionsOfHelpersAreCountedByThemselves) {
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

TEST_F(HostileAmounts, AFrameThatBreaksARuleEndsItsConnectionAlone) {
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

TEST_F(HostileAmounts, MutatedFramesHarmNobody) {
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
