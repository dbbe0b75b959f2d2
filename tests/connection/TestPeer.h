// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <string>

#include "connection/KLConnection.h"
#include "connection/protocols/KLComponentMessaging.h"
#include "platform/Mutex.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/OperationRefused.h"

// A peer to connect to, and a connection to it that a test looks into.
namespace hoist {

class Answering : public virtual KLComponentMessaging {
 public:
  virtual void count() = 0;
  // Waits until the test opens the gate, then is answered with an error.
  virtual void refuseWithReply(xpc::Reply<bool> reply) = 0;
};
inline const xpc::Protocol& answeringProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("Answering")
          .adopts(klComponentMessagingProtocol())
          .method<&Answering::count>("count")
          .method<&Answering::refuseWithReply>("refuseWithReply:", {}, {"never"}));
  return protocol;
}

class Answerer final : public Object, public Answering {
 public:
  void barrierWithCompletion(xpc::Reply<> completion) override {
    ++barriers;
    if (refusesBarriers) throw xpc::OperationRefused("no barrier today");
    if (!holdsBarriers) return completion();
    {
      MutexLock lock(mutex_);
      held_.push_back(std::move(completion));
    }
    if (barrierHeld) barrierHeld();
  }
  void count() override { ++counted; }
  void refuseWithReply(xpc::Reply<bool>) override {
    gate.lockWhenCondition(1);
    gate.unlockWithCondition(0);
    throw xpc::OperationRefused("not today");
  }
  std::string className() const override { return "Answerer"; }

  std::size_t heldBarriers() const {
    MutexLock lock(mutex_);
    return held_.size();
  }
  // The one that has been held longest; there has to be one.
  void answerHeldBarrier() {
    MutexLock lock(mutex_);
    held_.front()();
    held_.pop_front();
  }

  std::atomic<int> barriers = 0;
  std::atomic<int> counted = 0;
  std::atomic<bool> holdsBarriers = false;
  std::atomic<bool> refusesBarriers = false;
  std::function<void()> barrierHeld;  // set before the first client comes
  ConditionLock gate{0};

 private:
  mutable Mutex mutex_;
  std::deque<xpc::Reply<>> held_ GUARDED_BY(mutex_);
};

// A listener, one of its own unless given, that exports one answerer, or refuses everybody. With a
// function to call instead it answers no barrier.
class TestPeer {
  // Outlives the peer for as long as the listener's thread asks it.
  class Delegate final : public xpc::ListenerDelegate {
   public:
    bool shouldAcceptNewConnection(xpc::Listener&,
                                   const Ref<xpc::Connection>& connection) override {
      MutexLock lock(mutex_);
      if (refuses) return false;
      connection->setExportedInterface(xpc::Interface::interfaceWithProtocol(answeringProtocol()));
      connection->setExportedObject(answerer);
      connection->resume();
      accepted_.push_back(connection);
      return true;
    }
    void endConnections() {
      MutexLock lock(mutex_);
      for (const auto& connection : accepted_) connection->invalidate();
      accepted_.clear();
    }

    const Ref<Answerer> answerer = make<Answerer>();
    std::atomic<bool> refuses = false;

   private:
    Mutex mutex_;
    std::vector<Ref<xpc::Connection>> accepted_ GUARDED_BY(mutex_);
  };

  const Ref<Delegate> delegate_ = make<Delegate>();

 public:
  explicit TestPeer(Ref<xpc::Listener> listener = xpc::Listener::anonymousListener(),
                    std::function<void()> barrierHeld = nullptr)
      : listener_(std::move(listener)) {
    answerer->holdsBarriers = barrierHeld != nullptr;
    answerer->barrierHeld = std::move(barrierHeld);
    listener_->setDelegate(delegate_);
    listener_->resume();
  }
  ~TestPeer() {
    refuses = true;
    listener_->invalidate();
    endConnections();
  }
  TestPeer(const TestPeer&) = delete;
  TestPeer& operator=(const TestPeer&) = delete;

  Ref<xpc::Connection> connect() {
    return xpc::Connection::initWithListenerEndpoint(listener_->endpoint());
  }
  xpc::Endpoint endpoint() { return listener_->endpoint(); }
  // As if the peer's process had ended and another one had been started.
  void endConnections() { delegate_->endConnections(); }

  const Ref<Answerer> answerer = delegate_->answerer;
  std::atomic<bool>& refuses = delegate_->refuses;

 private:
  const Ref<xpc::Listener> listener_;
};

// Its candidates are connections to the given peers, in order.
class TestConnection final : public KLConnection {
 public:
  explicit TestConnection(std::vector<TestPeer*> peers)
      : KLConnection(0, xpc::Interface::interfaceWithProtocol(answeringProtocol())),
        peers_(std::move(peers)) {
    setIdentifier("test");
  }
  std::vector<Ref<xpc::Connection>> makeConnections() override {
    made.clear();
    for (auto* peer : peers_) made.push_back(peer->connect());
    return made;
  }
  void setupProxy(const Ref<xpc::Proxy>& proxy) override {
    ++proxies;
    KLConnection::setupProxy(proxy);
  }
  using KLConnection::barrierCondition;

  std::vector<Ref<xpc::Connection>> made;
  int proxies = 0;

 private:
  const std::vector<TestPeer*> peers_;
};

}  // namespace hoist
