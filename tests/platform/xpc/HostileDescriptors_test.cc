// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Peers that pass descriptors: too many, unasked, or ones that take long to close.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include "platform/SystemCall.h"
#include "platform/dbus/Names.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/testing/HostileTest.h"
#include "platform/xpc/testing/Lingering.h"

namespace hoist::xpc {
namespace {

using namespace std::literals;

using HostileDescriptors = HostileTest;

TEST_F(HostileDescriptors, DescriptorsThatNoCallRefersToEndTheConnection) {
  auto pipe = makePipe();
  for (std::size_t count : {1u, 16u, 17u, 253u}) {
    auto pusher = authenticated();
    std::vector<int> many(count, pipe.writing.get());
    pusher.send(textOf(rawBarrier()), many);
    EXPECT_TRUE(pusher.isClosed()) << count;
  }
}

TEST_F(HostileDescriptors, DescriptorsOnMessagesThatAreNeverFinishedAreBounded) {
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

TEST_F(HostileDescriptors, DescriptorsOfOneUserAreBoundedTogether) {
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

TEST_F(HostileDescriptors, ADescriptorThatTakesLongToCloseHoldsUpItsSenderAlone) {
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

TEST_F(HostileDescriptors, AnEndpointsHolderWhoseDescriptorsTakeLongToCloseHoldsUpNobody) {
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

TEST_F(HostileDescriptors, ADescriptorThatIsNoEndpointIsAnsweredWithAnError) {
  auto peer = authenticated();
  peer.send(rawCall({.member = "echoHandle_endpoint_reply_", .signature = "hh"}, 1,
                    [&](dbus::MessageWriter& writer) {
                      writer.appendFileDescriptor(FileDescriptor::duplicate(0));
                      writer.appendFileDescriptor(FileDescriptor::duplicate(0));
                    }));
  EXPECT_EQ(peer.readMessage()->errorName(), dbus::errors::kInvalidArgs);
  EXPECT_TRUE(works(peer));
}

TEST_F(HostileDescriptors, ThatFindNoNumberEndTheConnectionForThatReason) {
#ifdef HOIST_SANITIZED
  GTEST_SKIP() << "a sanitizer takes descriptors to look at memory, and an object for none without";
#endif
  auto peer = authenticatedAs(user_);
  int lowest = FileDescriptor::duplicate(0).get();
  auto call = rawCall({.member = "echoHandle_endpoint_reply_", .signature = "hh"}, 1,
                      [&](dbus::MessageWriter& writer) {
                        writer.appendFileDescriptor(FileDescriptor::duplicate(0));
                        writer.appendFileDescriptor(FileDescriptor::duplicate(0));
                      });
  rlimit before;
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  // What the call itself has taken, and one more.
  rlimit oneLeft{static_cast<rlim_t>(lowest) + 3, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &oneLeft), 0);
  peer.send(call);
  EXPECT_TRUE(peer.isClosed());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_TRUE(log_.has("Too many open files"));
  EXPECT_FALSE(log_.has("kDescriptorsOfOneMessage"));
}

TEST_F(HostileDescriptors, AnAnswerWithDescriptorsToAPeerThatTakesNoneIsAnError) {
  auto modest = peer();
  modest.send("\0AUTH EXTERNAL\r\nDATA\r\nBEGIN\r\n"sv);
  modest.readLine();
  modest.readLine();
  modest.send(rawCall({.member = "makeDescriptorWithReply_"}));
  EXPECT_EQ(modest.readMessage()->errorName(), dbus::errors::kNotSupported);
  EXPECT_TRUE(works(modest));
}

}  // namespace
}  // namespace hoist::xpc
