// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One thread waits for everything that can happen before a connection is one: peers that connect,
// requests through the endpoint, the next bytes of every authentication, and the moment when one of
// these has taken too long. So a peer that is silent costs an entry in a list, not a thread. The
// connection's own thread starts when it has authenticated and the delegate wants it. What fails
// before is closed elsewhere: closing may take long (Disposal.h).

#include "platform/xpc/Acceptor.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "platform/SystemCall.h"
#include "platform/Thread.h"
#include "platform/Trouble.h"
#include "platform/dbus/Guid.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/Channel.h"
#include "platform/xpc/Disposal.h"
#include "platform/xpc/SocketFacts.h"

namespace hoist::xpc {
namespace {

// Connections that are taken before the authentications under way get their turn again. Picked.
constexpr int kBatch = 64;

// Of Linux 6.16, newer than the C library's headers.
#ifndef SO_PASSRIGHTS
#define SO_PASSRIGHTS 83
#endif

// Whether the socket, and what is accepted from it, may get descriptors at all. An older kernel
// knows no way to refuse them.
void allowDescriptors(int socket, bool allowed) {
  int value = allowed;
  ::setsockopt(socket, SOL_SOCKET, SO_PASSRIGHTS, &value, sizeof value);
}

}  // namespace

Acceptor::Acceptor(std::optional<ServiceSocket> socket, std::string serviceName, Limits limits)
    : serviceName_(std::move(serviceName)),
      limits_(limits),
      guid_(dbus::makeGuid()),
      wakeup_(systemCall("eventfd", [] { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); })),
      socket_(std::move(socket)) {
  // Until a connection is admitted: to close one that is not must not take long.
  if (socket_) allowDescriptors(socket_->descriptor.get(), false);
}

void Acceptor::setListener(const Ref<Listener>& listener) {
  MutexLock lock(mutex_);
  listener_ = listener;
}

void Acceptor::setDelegate(WeakRef<ListenerDelegate> delegate) {
  MutexLock lock(mutex_);
  delegate_ = std::move(delegate);
}

void Acceptor::setIsHelper(IsHelper isHelper) {
  MutexLock lock(mutex_);
  isHelper_ = std::move(isHelper);
}

Endpoint Acceptor::endpoint() {
  MutexLock lock(mutex_);
  if (!endpoint_) {
    int ends[2];
    systemCall("socketpair",
               [&] { return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends); });
    FileDescriptor given(ends[1]);
    // After the end of listening the endpoint leads nowhere.
    FileDescriptor mine(ends[0]);
    if (state_ != State::kEnded) requests_ = make<const FileDescriptor>(std::move(mine));
    endpoint_ = Endpoint::fromDescriptor(std::move(given));
    wake();
  }
  return *endpoint_;
}

void Acceptor::resume() {
  MutexLock lock(mutex_);
  if (state_ != State::kNew) return;
  startDetachedThread("listener", [self = shared_from_this()] { self->run(); });
  state_ = State::kRunning;
}

void Acceptor::invalidate() {
  Ref<const FileDescriptor> requests;
  MutexLock lock(mutex_);
  if (state_ == State::kEnded) return;
  bool hasThread = state_ == State::kRunning;
  state_ = State::kEnded;
  requests.swap(requests_);
  if (socket_)
    platform::contain("removing a service's socket",
                      [this]() NO_THREAD_SAFETY_ANALYSIS { socket_->removeFile(); });
  if (hasThread) {
    // The thread is perhaps waiting on the socket, and closes it.
    wake();
  } else {
    socket_.reset();
  }
}

void Acceptor::wake() {
  std::uint64_t one = 1;
  // Only a counter about to overflow could refuse, and then the thread is awake anyway.
  [[maybe_unused]] auto written =
      retryInterrupted([&] { return ::write(wakeup_.get(), &one, sizeof one); });
}

// ----- The thread --------------------------------------------------------------------------------

void Acceptor::run() {
  for (;;) {
    platform::contain("a listener", [this] { waitAndServe(); });
    MutexLock lock(mutex_);
    if (state_ == State::kEnded) {
      socket_.reset();
      break;
    }
  }
  handshakes_.clear();
}

void Acceptor::waitAndServe() {
  Ref<const FileDescriptor> requests;
  int listening = -1;
  {
    MutexLock lock(mutex_);
    if (state_ == State::kEnded) return;
    requests = requests_;
    // Only this thread closes it.
    if (socket_) listening = socket_->descriptor.get();
  }
  if (pausedUntil_ && *pausedUntil_ <= Clock::instant()) pausedUntil_.reset();
  // Negative descriptors are passed over.
  std::vector<pollfd> wanted{{wakeup_.get(), POLLIN, 0},
                             {pausedUntil_ ? -1 : listening, POLLIN, 0},
                             {pausedUntil_ || !requests ? -1 : requests->get(), POLLIN, 0}};
  for (const auto& handshake : handshakes_) wanted.push_back({handshake->socket(), POLLIN, 0});
  Clock::poll(wanted, earliestDeadline());

  if (wanted[0].revents) {
    std::uint64_t count;
    [[maybe_unused]] auto got =
        retryInterrupted([&] { return ::read(wakeup_.get(), &count, sizeof count); });
  }
  auto next = wanted.begin() + 3;
  for (auto handshake = handshakes_.begin(); next != wanted.end(); ++next) {
    auto current = handshake++;
    if (next->revents && !advance(*current)) handshakes_.erase(current);
  }
  expireHandshakes();
  if (wanted[1].revents) acceptWaiting(listening);
  if (wanted[2].revents) receiveRequests(wanted[2].revents & (POLLHUP | POLLERR));
}

Clock::Instant Acceptor::earliestDeadline() const {
  auto earliest = pausedUntil_.value_or(Clock::Instant::max());
  // They began one after the other.
  return handshakes_.empty() ? earliest : std::min(earliest, handshakes_.front()->deadline());
}

void Acceptor::expireHandshakes() {
  while (!handshakes_.empty() && handshakes_.front()->deadline() <= Clock::instant()) {
    auto late = std::move(handshakes_.front());
    handshakes_.pop_front();
    late->reportLate();
    letGo(late);
  }
}

void Acceptor::acceptWaiting(int listening) {
  for (int count = 0; count < kBatch; ++count) {
    int descriptor = ::accept4(listening, nullptr, nullptr, SOCK_CLOEXEC);
    if (descriptor >= 0) {
      begin(FileDescriptor(descriptor));
    } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
      return pauseAccepting();
    } else if (errno != ECONNABORTED && errno != EINTR) {
      return;
    }
  }
}

void Acceptor::pauseAccepting() {
  platform::reportTrouble(platform::Severity::Caution,
                          fmt::format("{}: no connection can be accepted at the moment: {}",
                                      serviceName_, errorText(errno)));
  pausedUntil_ = Clock::instant() + kAcceptPause;
}

// Each is one byte and one connected stream socket; whatever else comes is closed.
void Acceptor::receiveRequests(bool hungUp) {
  Ref<const FileDescriptor> requests;
  {
    MutexLock lock(mutex_);
    requests = requests_;
  }
  if (!requests) return;
  for (int count = 0; count < kBatch; ++count) {
    std::uint8_t bytes[2];
    auto got = dbus::receive(requests->get(), bytes, dbus::kMaximumPassedDescriptors, MSG_DONTWAIT);
    if (got.status == dbus::IOStatus::kWouldBlock) return;
    if (got.status == dbus::IOStatus::kFailed && (got.error == EMFILE || got.error == ENFILE)) {
      errno = got.error;
      return pauseAccepting();
    }
    // An empty message looks like the end, too. The real end comes only when a holder of the
    // endpoint shuts it down for all; a new one is made when somebody asks for it.
    if (got.status == dbus::IOStatus::kEnd && hungUp) {
      MutexLock lock(mutex_);
      requests_.reset();
      endpoint_.reset();
      return;
    }
    bool isRequest = got.status == dbus::IOStatus::kDone && got.size == 1 &&
                     bytes[0] == kConnectRequest && got.descriptors.size() == 1 &&
                     isConnectedStream(got.descriptors[0].get());
    if (isRequest) {
      begin(std::move(got.descriptors[0]));
    } else if (!got.descriptors.empty()) {
      closeElsewhere(make<dbus::FileDescriptors>(std::move(got.descriptors)));
    }
  }
}

void Acceptor::begin(FileDescriptor socket) {
  auto peer = Peer::ofSocket(socket.get());
  auto [isHelper, isTrusted] = standingOf(peer, socket.get());
  auto admission = Admission::admit(peer, isHelper, limits_);
  if (!admission) return closeUnread(std::move(socket));
  allowDescriptors(socket.get(), true);
  auto handshake = make<Handshake>(std::move(socket), std::move(admission), isTrusted, guid_);
  // The first bytes are mostly here already.
  if (advance(handshake)) handshakes_.push_back(std::move(handshake));
}

void Acceptor::letGo(const Ref<Handshake>& handshake) {
  if (!handshake->hasHungUp()) closeUnread(handshake->takeSocket());
}

Acceptor::Standing Acceptor::standingOf(const Peer& peer, int socket) const {
  IsHelper ask;
  {
    MutexLock lock(mutex_);
    ask = isHelper_;
  }
  if (!ask) return {.isHelper = false, .isTrusted = true};
  auto process = Peer::processDescriptorOfSocket(socket);
  // Asked last: while the process runs, its number is nobody else's.
  bool isHelper = ask(peer, process.get()) && Peer::isRunning(socket);
  return {.isHelper = isHelper, .isTrusted = isHelper};
}

bool Acceptor::advance(Ref<Handshake>& handshake) {
  switch (handshake->advance()) {
    case Handshake::Outcome::kNeedsInput:
      return true;
    case Handshake::Outcome::kAuthenticated:
      platform::contain("accepting a connection", [&] { deliver(*handshake); });
      return false;
    case Handshake::Outcome::kFailed:
      letGo(handshake);
      return false;
  }
  return false;
}

void Acceptor::deliver(Handshake& handshake) {
  auto connection = Connection::initWithChannel(Channel::forAccepted(
      {handshake.takeSocket(), handshake.takeAdmission(), handshake.descriptorsNegotiated(),
       handshake.isTrusted(), serviceName_}));
  if (!askDelegate(connection) || !connection->isResumed()) connection->invalidate();
}

bool Acceptor::askDelegate(const Ref<Connection>& connection) {
  Ref<Listener> listener;
  Ref<ListenerDelegate> delegate;
  {
    MutexLock lock(mutex_);
    if (state_ == State::kEnded) return false;
    listener = listener_.lock();
    delegate = delegate_.lock();
  }
  if (!listener || !delegate) return false;
  bool accepted = false;
  platform::contain("a listener's delegate",
                    [&] { accepted = delegate->shouldAcceptNewConnection(*listener, connection); });
  return accepted;
}

}  // namespace hoist::xpc
