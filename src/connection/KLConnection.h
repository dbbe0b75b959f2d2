// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/ConditionLock.h"
#include "platform/Mutex.h"
#include "platform/xpc/Connection.h"

namespace hoist {

// The client's side of a connection: makes it on first use, trusts it only when the peer has
// answered a barrier, turns that barrier into a round trip that waits and reports the first
// failure, and tells its owner when the system ends the connection, which the next use makes anew.
//
// A subclass supplies the connection (makeConnection); the protocol must adopt
// KLComponentMessaging. Waits have no time limit: a peer that neither answers nor ends holds up
// its caller. Nothing is thrown; a failure is the absence of a proxy, or an error.
//
// Safe to use from any thread but the connection's own: what runs there (completions, error
// handlers) would wait for itself. The end of a connection is handled on the dispatch queue that
// was current when it was made; on the main queue that needs a running main run loop.
class KLConnection : public Object {
 public:
  // Posted on the main queue, with the KLConnection as its object, for every new proxy.
  static constexpr const char* kDidConnectNotification = "KLConnectionDidConnect";

  // Makes no connection yet. initWithXPCOptions:protocol:, initWithXPCOptions:interface:
  static Ref<KLConnection> initWithXPCOptions(unsigned options, const xpc::Protocol& protocol);
  static Ref<KLConnection> initWithXPCOptions(unsigned options, Ref<xpc::Interface> interface);
  ~KLConnection() override;

  // The interface of the peer's object, for this and all later connections.
  Ref<xpc::Interface> serviceInterface() const;
  void setServiceInterface(Ref<xpc::Interface> interface);
  // Called when the system has ended the current connection, not for disconnect().
  std::function<void()> invalidationHandler() const;
  void setInvalidationHandler(std::function<void()> handler);
  // Whether a connection is tested before it is trusted; true at first. Of several candidates each
  // is tested anyway.
  bool verifyConnection() const { return verifyConnection_; }
  void setVerifyConnection(bool verify) { verifyConnection_ = verify; }
  bool connected() const;
  // Names the connection in log lines; nothing until a subclass has named it.
  std::optional<std::string> identifier() const;

  // Does nothing when connected. Failure is silent: it stays disconnected.
  void connect();
  // Connects if needed; null when that fails. The same proxy until the connection ends.
  Ref<xpc::Proxy> serviceProxy();

  // A round trip: true when the peer has handled everything that was sent before and nothing of it
  // failed meanwhile. The error, if there is a place for it, is set to what failed or to null.
  bool ping() { return syncReturningError(nullptr); }
  bool syncReturningError(Ref<Error>* error);
  // Calls the block with the proxy, for it to send its messages, then makes a round trip. Without a
  // connection false at once, the error untouched.
  using MessageBlock = std::function<void(const xpc::Proxy& proxy)>;
  bool performSynchronousBlock(const MessageBlock& block, Ref<Error>* error = nullptr);

  // Answers whether there was a connection to end. With a connection (disconnect:): only if it is
  // the current one.
  bool disconnect() { return disconnectConnection(nullptr); }
  bool disconnectConnection(const Ref<xpc::Connection>& connection);

  std::string className() const override { return "KLConnection"; }

 protected:
  KLConnection(unsigned options, Ref<xpc::Interface> interface);

  // ---- For subclasses. All but the first three are called with the connection's lock held: they
  // must not come back to connect(), serviceProxy(), connected() or disconnect(). ----

  unsigned connectionOptions() const { return connectionOptions_; }
  void setIdentifier(std::string identifier);
  // 0 idle, 2 a round trip is under way, 1 it has come back.
  int barrierCondition() const { return barrierLock_.condition(); }
  // A connection that is not resumed yet; null when there is none to be had.
  virtual Ref<xpc::Connection> makeConnection();
  // The candidates, tried in order; makeConnection's alone unless overridden.
  virtual std::vector<Ref<xpc::Connection>> makeConnections();
  // Called once for each new proxy; posts the notification.
  virtual void setupProxy(const Ref<xpc::Proxy>& proxy);

 private:
  struct FailedCandidate {
    Ref<Error> error;
    Ref<xpc::Connection> connection;
  };

  WeakRef<KLConnection> weakSelf();
  Ref<Error> tryCandidate(const Ref<xpc::Connection>& candidate, bool tested);
  std::function<void()> endOfConnection(const Ref<xpc::Connection>& connection);
  void logFailures(const std::vector<FailedCandidate>& failures) REQUIRES(connectionLock_);
  void disconnect_Internal() REQUIRES(connectionLock_);

  Ref<Error> makeRoundTrip();
  void barrierReturned(std::uint64_t roundTrip);
  void proxyFailed(const Ref<Error>& error, const std::optional<std::string>& serviceName);

  const unsigned connectionOptions_;
  std::atomic<bool> verifyConnection_ = true;
  std::atomic<bool> loggedBarrierError_ = false;

  // Held across the making and testing of a connection.
  mutable SpinLock connectionLock_;
  Ref<xpc::Connection> connection_ GUARDED_BY(connectionLock_);
  Ref<xpc::Proxy> barrierProxy_ GUARDED_BY(connectionLock_);
  std::function<void()> invalidationHandler_ GUARDED_BY(connectionLock_);
  bool loggedConnectionError_ GUARDED_BY(connectionLock_) = false;

  // What a subclass may ask for and set while it makes a connection.
  mutable SpinLock propertyLock_;
  Ref<xpc::Interface> connectionInterface_ GUARDED_BY(propertyLock_);
  std::optional<std::string> identifier_ GUARDED_BY(propertyLock_);

  // One round trip at a time; guards the two below.
  ConditionLock barrierLock_{0};
  Ref<Error> proxyError_;
  std::uint64_t roundTrips_ = 0;
};

}  // namespace hoist
