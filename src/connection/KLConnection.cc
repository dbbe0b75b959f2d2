// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// Two locks, never held together. The connection's lock guards which connection is current, and is
// held while a new one is tested, so that nobody uses it before. The barrier's lock passes a round
// trip back and forth between the caller and the connection's thread by its condition: idle, then
// outstanding, then returned (by the completion or by an error, whichever comes first), then idle.
//
// A candidate's invalidation handler is set before it is resumed: one that ends between its test
// and its acceptance is noticed all the same. As long as a candidate is not the current connection
// its end changes nothing.

#include "connection/KLConnection.h"

#include <fmt/format.h>

#include <exception>

#include "connection/protocols/KLComponentMessaging.h"
#include "logging/Logger.h"
#include "platform/Dispatch.h"
#include "platform/NotificationCenter.h"

namespace hoist {
namespace {

// The conditions of the barrier's lock.
constexpr int kIdle = 0;
constexpr int kReturned = 1;
constexpr int kOutstanding = 2;

std::string textOf(const std::optional<std::string>& name) {
  return name.value_or("(null)");
}

// What kept the action from being done: no thread for a connection, or an interface without the
// barrier.
template <class Action>
Ref<Error> errorOf(const Action& action) {
  try {
    action();
    return nullptr;
  } catch (const std::exception& thrown) {
    return make<Error>(Error::kCocoaDomain, Error::kConnectionInvalid,
                       Dictionary{{Error::kLocalizedDescription, Value(thrown.what())}});
  }
}

// Waits until the candidate's peer has answered a barrier, or failed to.
Ref<Error> verify(const Ref<xpc::Connection>& candidate) {
  struct Answer {
    ConditionLock lock;
    Ref<Error> error;
  };
  auto answer = make<Answer>();
  auto proxy = candidate->remoteObjectProxyWithErrorHandler([answer](const Ref<Error>& error) {
    answer->error = error;
    answer->lock.messageReplied();
  });
  auto unsent = errorOf([&] {
    proxy->send<&KLComponentMessaging::barrierWithCompletion>(
        [answer] { answer->lock.messageReplied(); });
  });
  if (unsent) return unsent;
  answer->lock.waitForMessageReply();
  return answer->error;
}

}  // namespace

Ref<KLConnection> KLConnection::initWithXPCOptions(unsigned options,
                                                   const xpc::Protocol& protocol) {
  return initWithXPCOptions(options, xpc::Interface::interfaceWithProtocol(protocol));
}

Ref<KLConnection> KLConnection::initWithXPCOptions(unsigned options,
                                                   Ref<xpc::Interface> interface) {
  return Ref<KLConnection>(new KLConnection(options, std::move(interface)));
}

KLConnection::KLConnection(unsigned options, Ref<xpc::Interface> interface)
    : connectionOptions_(options), connectionInterface_(std::move(interface)) {}

KLConnection::~KLConnection() {
  SpinLockHolder lock(connectionLock_);
  disconnect_Internal();
}

WeakRef<KLConnection> KLConnection::weakSelf() {
  return std::static_pointer_cast<KLConnection>(shared_from_this());
}

// ----- Properties --------------------------------------------------------------------------------

Ref<xpc::Interface> KLConnection::serviceInterface() const {
  SpinLockHolder lock(propertyLock_);
  return connectionInterface_;
}

void KLConnection::setServiceInterface(Ref<xpc::Interface> interface) {
  {
    SpinLockHolder lock(propertyLock_);
    connectionInterface_ = interface;
  }
  SpinLockHolder lock(connectionLock_);
  if (connection_) connection_->setRemoteObjectInterface(std::move(interface));
}

std::function<void()> KLConnection::invalidationHandler() const {
  SpinLockHolder lock(connectionLock_);
  return invalidationHandler_;
}

void KLConnection::setInvalidationHandler(std::function<void()> handler) {
  // The old one is let go outside of the lock.
  SpinLockHolder lock(connectionLock_);
  invalidationHandler_.swap(handler);
  lock.unlock();
}

bool KLConnection::connected() const {
  SpinLockHolder lock(connectionLock_);
  return connection_ != nullptr;
}

std::optional<std::string> KLConnection::identifier() const {
  SpinLockHolder lock(propertyLock_);
  return identifier_;
}

void KLConnection::setIdentifier(std::string identifier) {
  SpinLockHolder lock(propertyLock_);
  identifier_ = std::move(identifier);
}

// ----- Connecting --------------------------------------------------------------------------------

Ref<xpc::Connection> KLConnection::makeConnection() {
  return nullptr;
}

std::vector<Ref<xpc::Connection>> KLConnection::makeConnections() {
  auto connection = makeConnection();
  if (!connection) return {};
  return {std::move(connection)};
}

void KLConnection::connect() {
  SpinLockHolder lock(connectionLock_);
  if (connection_) return;
  barrierProxy_.reset();
  auto candidates = makeConnections();
  bool tested = verifyConnection_ || candidates.size() >= 2;
  std::vector<FailedCandidate> failures;
  for (const auto& candidate : candidates) {
    auto error = tryCandidate(candidate, tested);
    if (!error) {
      if (tested) loggedConnectionError_ = loggedBarrierError_ = false;
      connection_ = candidate;
      return;
    }
    failures.push_back({error, candidate});
  }
  logFailures(failures);
}

Ref<Error> KLConnection::tryCandidate(const Ref<xpc::Connection>& candidate, bool tested) {
  candidate->setRemoteObjectInterface(serviceInterface());
  candidate->setInvalidationHandler(endOfConnection(candidate));
  auto error = errorOf([&] { candidate->resume(); });
  if (!error && tested) error = verify(candidate);
  if (error) {
    candidate->setInvalidationHandler(nullptr);
    candidate->invalidate();
  }
  return error;
}

std::function<void()> KLConnection::endOfConnection(const Ref<xpc::Connection>& connection) {
  auto forget = [weakSelf = weakSelf(), weakConnection = WeakRef<xpc::Connection>(connection)] {
    auto self = weakSelf.lock();
    auto ended = weakConnection.lock();
    // A connection that nobody holds any more is nobody's current one.
    if (!self || !ended || !self->disconnectConnection(ended)) return;
    if (auto handler = self->invalidationHandler()) handler();
  };
  return [queue = dispatch::holdCurrentQueue(), forget] { queue->async(forget); };
}

void KLConnection::logFailures(const std::vector<FailedCandidate>& failures) {
  if (failures.empty() || loggedConnectionError_) return;
  for (const auto& failure : failures) {
    Logger::logError(classification::Debug,
                     fmt::format("failed to verify connection {} with {}", textOf(identifier()),
                                 failure.connection->description()),
                     failure.error);
  }
  loggedConnectionError_ = true;
}

Ref<xpc::Proxy> KLConnection::serviceProxy() {
  connect();
  SpinLockHolder lock(connectionLock_);
  if (!barrierProxy_ && connection_) {
    barrierProxy_ = connection_->remoteObjectProxyWithErrorHandler(
        [weakSelf = weakSelf(), serviceName = connection_->serviceName()](const Ref<Error>& error) {
          if (auto self = weakSelf.lock()) self->proxyFailed(error, serviceName);
        });
    setupProxy(barrierProxy_);
  }
  return barrierProxy_;
}

void KLConnection::setupProxy(const Ref<xpc::Proxy>&) {
  dispatch::mainQueue().async([weakSelf = weakSelf()] {
    if (auto self = weakSelf.lock())
      NotificationCenter::defaultCenter().postNotification({kDidConnectNotification, self});
  });
}

// ----- Round trips -------------------------------------------------------------------------------

bool KLConnection::performSynchronousBlock(const MessageBlock& block, Ref<Error>* error) {
  auto proxy = serviceProxy();
  if (!proxy) return false;
  block(*proxy);
  return syncReturningError(error);
}

bool KLConnection::syncReturningError(Ref<Error>* error) {
  auto failure = makeRoundTrip();
  bool succeeded = !failure;
  if (error) *error = std::move(failure);
  return succeeded;
}

Ref<Error> KLConnection::makeRoundTrip() {
  auto proxy = serviceProxy();
  barrierLock_.lockWhenCondition(kIdle);
  if (!proxy) {
    barrierLock_.unlock();
    return make<Error>(Error::kCocoaDomain, Error::kConnectionInvalid);
  }
  auto unsent = errorOf([&] {
    proxy->send<&KLComponentMessaging::barrierWithCompletion>(
        [weakSelf = weakSelf(), roundTrip = ++roundTrips_] {
          if (auto self = weakSelf.lock()) self->barrierReturned(roundTrip);
        });
  });
  if (unsent) {
    barrierLock_.unlock();
    return unsent;
  }
  barrierLock_.unlockWithCondition(kOutstanding);
  barrierLock_.lockWhenCondition(kReturned);
  auto error = std::exchange(proxyError_, nullptr);
  if (!error) loggedBarrierError_ = false;
  barrierLock_.unlockWithCondition(kIdle);
  return error;
}

// A barrier may come back after an error has ended its round trip; it must not end another one.
void KLConnection::barrierReturned(std::uint64_t roundTrip) {
  barrierLock_.lock();
  int condition = barrierLock_.condition();
  bool awaited = condition == kOutstanding && roundTrip == roundTrips_;
  barrierLock_.unlockWithCondition(awaited ? kReturned : condition);
}

void KLConnection::proxyFailed(const Ref<Error>& error,
                               const std::optional<std::string>& serviceName) {
  barrierLock_.lock();
  int condition = barrierLock_.condition();
  if (condition == kOutstanding) {
    proxyError_ = error;
    condition = kReturned;
  }
  if (!loggedBarrierError_.exchange(true)) {
    Logger::logError(
        classification::Debug,
        fmt::format("message from {} to {} failed", textOf(identifier()), textOf(serviceName)),
        error);
  }
  barrierLock_.unlockWithCondition(condition);
}

// ----- Disconnecting -----------------------------------------------------------------------------

bool KLConnection::disconnectConnection(const Ref<xpc::Connection>& connection) {
  SpinLockHolder lock(connectionLock_);
  if (connection && connection != connection_) return false;
  barrierProxy_.reset();
  if (!connection_) return false;
  disconnect_Internal();
  return true;
}

void KLConnection::disconnect_Internal() {
  Logger::log(classification::Debug, [this] {
    return fmt::format("{} invalidating connection ({})", "-[KLConnection disconnect_Internal]",
                       textOf(identifier()));
  });
  auto connection = std::exchange(connection_, nullptr);
  if (!connection) return;
  // So that the end that is made here is not taken for the system's.
  connection->setInvalidationHandler(nullptr);
  connection->invalidate();
}

}  // namespace hoist
