// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <gtest/gtest.h>

#include "platform/xpc/testing/RawPeer.h"
#include "platform/xpc/testing/TestService.h"
#include "platform/xpc/testing/TroubleLog.h"

namespace hoist::xpc {

// Each test has users of its own.
inline uid_t makeUser() {
  static uid_t last = 4710;
  return ++last;
}

// Peers that own their bytes. In each test an honest client is served meanwhile, and afterwards the
// process holds what it held before.
class HostileTest : public testing::Test {
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

}  // namespace hoist::xpc
