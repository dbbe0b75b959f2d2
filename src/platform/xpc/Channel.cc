// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
// One thread reads and runs everything in order; everybody writes, without ever blocking (Outbox).
// While nothing is half read, the thread sleeps in a plain receive, which is the quickest way to
// wake it; a receive is ended from outside by shutting the socket down, and the descriptor is
// closed only when nobody can use it any more. Only an unfinished message has a time limit, and
// only then the thread sleeps in a poll with a deadline.
//
// A client sends its messages right behind its authentication, without waiting for the server's
// word, except for those with descriptors.

#include "platform/xpc/Channel.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "platform/Dispatch.h"
#include "platform/SystemCall.h"
#include "platform/Thread.h"
#include "platform/Trouble.h"
#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"
#include "platform/dbus/Names.h"
#include "platform/dbus/Sasl.h"
#include "platform/xpc/Connection.h"
#include "platform/xpc/PeerReports.h"

namespace hoist::xpc {
namespace {

constexpr std::string_view kObjectPath = "/";

// From which time on a caller may have given up. Picked.
constexpr std::chrono::milliseconds kLongCall{100};

thread_local Channel* currentChannel = nullptr;

Ref<Error> connectionError(std::int64_t code, std::string text) {
  return make<Error>(Error::kCocoaDomain, code,
                     Dictionary{{Error::kLocalizedDescription, std::move(text)}});
}

// Not on the sender's stack.
void failLater(const ErrorHandler& handler, Ref<Error> error) {
  if (!handler) return;
  dispatch::globalQueue().async([handler, error = std::move(error)] { handler(error); });
}

void fail(const ErrorHandler& handler, const Ref<Error>& error) {
  if (handler) platform::contain("an error handler", [&] { handler(error); });
}

Ref<Outbox> makeOutbox(const Ref<Admission>& admission) {
  if (!admission) return make<Outbox>(kUnsentMessages);
  auto hold = [account = WeakRef<Admission>(admission)](std::size_t bytes,
                                                        std::size_t descriptors) {
    auto mine = account.lock();
    return !mine || mine->holdUnread({bytes, descriptors});
  };
  return make<Outbox>(kUnreadAnswers, hold);
}

dbus::OutgoingMessage encodeCall(const Method& method,
                                 const std::function<void(ArgumentWriter&)>& write) {
  auto header =
      dbus::methodCall(kObjectPath, method.interfaceName, method.member, method.argumentSignature,
                       method.hasReply ? 0 : dbus::kNoReplyExpected);
  dbus::MessageWriter message(header, kHelperMessageSize);
  ArgumentWriter writer(message);
  write(writer);
  return message.finish();
}

// Sleeps until there is input, after a receive that found none: whoever made the socket may have
// made it non-blocking. Answers whether it was such a receive.
bool waitedForInput(const FileDescriptor& socket, const dbus::Received& got) {
  if (got.status != dbus::IOStatus::kWouldBlock) return false;
  pollfd input{socket.get(), POLLIN, 0};
  retryInterrupted([&] { return ::poll(&input, 1, -1); });
  return true;
}

// One end of a pair whose other end is closed; the process' own for good.
int descriptorToNowhere() {
  static const int end = [] {
    int ends[2];
    systemCall("socketpair",
               [&] { return ::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends); });
    ::close(ends[1]);
    return ends[0];
  }();
  return end;
}

std::string makeUniqueName() {
  static std::atomic<std::uint64_t> number = 0;
  return fmt::format(":1.{}", ++number);
}

}  // namespace

Ref<Channel> Channel::forClient(Connect connect, std::optional<std::string> serviceName) {
  auto channel = make<Channel>(dbus::FrameLimits{kHelperMessageSize, kDescriptorsOfOneMessage},
                               nullptr, std::move(serviceName));
  channel->connect_ = std::move(connect);
  // What calls back is the service, which runs as who knows whom.
  channel->makeCallHandler(::geteuid(), true, std::string(), kHelperMessageSize);
  return channel;
}

Ref<Channel> Channel::forAccepted(Accepted accepted) {
  auto user = accepted.admission->peer().user;
  auto messageSize = accepted.admission->limits().messageSize;
  dbus::FrameLimits limits{messageSize,
                           accepted.descriptorsNegotiated ? kDescriptorsOfOneMessage : 0,
                           accepted.isTrusted ? -1 : descriptorToNowhere()};
  auto channel = make<Channel>(limits, std::move(accepted.admission), std::nullopt);
  channel->setSocket(make<const FileDescriptor>(std::move(accepted.socket)));
  channel->makeCallHandler(user, accepted.descriptorsNegotiated, std::move(accepted.serviceName),
                           messageSize);
  return channel;
}

Channel::Channel(dbus::FrameLimits limits, Ref<Admission> admission,
                 std::optional<std::string> serviceName)
    : serviceName_(std::move(serviceName)),
      client_(admission ? std::optional(admission->peer()) : std::nullopt),
      outbox_(makeOutbox(admission)),
      admission_(std::move(admission)),
      descriptorsOfOneRead_(limits.standIn < 0 ? kDescriptorsOfOneMessage : 0),
      reader_(limits) {}

void Channel::makeCallHandler(uid_t user, bool takesDescriptors, std::string exportedName,
                              std::size_t maximumAnswer) {
  auto send = [self = weak_from_this()](dbus::OutgoingMessage answer) {
    if (auto channel = self.lock()) channel->sendAnswer(std::move(answer));
  };
  // The handler belongs to this channel and runs on its thread.
  auto reportRefusal = [this](std::string_view why) { report(fmt::format("refused, {}", why)); };
  calls_.emplace(send, CallHandler::Caller{makeUniqueName(), user, takesDescriptors, reportRefusal},
                 std::move(exportedName), maximumAnswer);
}

Channel* Channel::current() {
  return currentChannel;
}

// ----- What the handle asks ----------------------------------------------------------------------

void Channel::setOwner(const Ref<Connection>& owner) {
  MutexLock lock(mutex_);
  owner_ = owner;
}

Ref<Connection> Channel::owner() const {
  MutexLock lock(mutex_);
  return owner_.lock();
}

void Channel::setRemoteInterface(Ref<Interface> interface) {
  MutexLock lock(mutex_);
  remoteInterface_.swap(interface);
}

Ref<Interface> Channel::remoteInterface() const {
  MutexLock lock(mutex_);
  return remoteInterface_;
}

void Channel::setInvalidationHandler(std::function<void()> handler) {
  MutexLock lock(mutex_);
  bool isTooLate = state_ == State::kEnded;
  if (!isTooLate) invalidationHandler_.swap(handler);
  lock.unlock();
  // What was replaced is let go outside of the lock.
  if (isTooLate && handler) dispatch::globalQueue().async(std::move(handler));
}

Peer Channel::peer() const {
  MutexLock lock(mutex_);
  return peer_;
}

FileDescriptor Channel::processDescriptor() const {
  auto mine = socket();
  return mine ? Peer::processDescriptorOfSocket(mine->get()) : FileDescriptor();
}

bool Channel::isPeerRunning() const {
  auto mine = socket();
  return mine && Peer::isRunning(mine->get());
}

bool Channel::isPeerConnected() const {
  auto mine = socket();
  if (!mine) return false;
  pollfd hangUp{mine->get(), POLLRDHUP, 0};
  return retryInterrupted([&] { return ::poll(&hangUp, 1, 0); }) == 0;
}

void Channel::setSocket(Ref<const FileDescriptor> socket) {
  auto peer = Peer::ofSocket(socket->get());
  MutexLock lock(mutex_);
  peer_ = peer;
  socket_ = std::move(socket);
}

Ref<const FileDescriptor> Channel::socket() const {
  MutexLock lock(mutex_);
  return socket_;
}

// ----- Life --------------------------------------------------------------------------------------

void Channel::resume() {
  MutexLock lock(mutex_);
  if (state_ != State::kNew) return;
  runOnSpareThread("connection", [self = shared_from_this()] { self->run(); });
  state_ = State::kRunning;
  if (isAccepted()) kept_ = owner_.lock();
}

void Channel::runUntil(Clock::Instant deadline) {
  {
    MutexLock lock(mutex_);
    if (state_ != State::kNew) return;
    state_ = State::kRunning;
  }
  deadline_ = deadline;
  run();
}

bool Channel::isResumed() const {
  MutexLock lock(mutex_);
  return state_ != State::kNew;
}

void Channel::invalidate() {
  invalidated_ = true;
  bool neverRan;
  {
    MutexLock lock(mutex_);
    neverRan = state_ == State::kNew;
    if (neverRan) state_ = State::kEnded;
  }
  if (neverRan) {
    dispatch::globalQueue().async([self = shared_from_this()] { self->end(); });
  } else {
    shutDown();
  }
}

void Channel::shutDown() {
  if (auto mine = socket()) ::shutdown(mine->get(), SHUT_RDWR);
}

void Channel::run() {
  auto outer = std::exchange(currentChannel, this);
  platform::contain("a connection", [this] {
    if (open()) read();
  });
  end();
  currentChannel = outer;
}

// A service that cannot be reached is no trouble of this process: whoever sends is told.
bool Channel::open() {
  if (isAccepted()) {
    outbox_->allowDescriptors();
    outbox_->open(socket());
    return true;
  }
  try {
    auto made = make<const FileDescriptor>(connect_(invalidated_));
    setSocket(made);
    // Whoever invalidated it before had nothing to shut down.
    if (invalidated_) return false;
    authenticate(made);
    return true;
  } catch (const std::exception& exception) {
    MutexLock lock(mutex_);
    whyEnded_ = exception.what();
    return false;
  }
}

void Channel::authenticate(const Ref<const FileDescriptor>& socket) {
  dbus::SaslClient sasl;
  auto exchange = sasl.exchange();
  // A fresh socket has room for it.
  auto sent = dbus::send(socket->get(),
                         {reinterpret_cast<const std::uint8_t*>(exchange.data()), exchange.size()});
  if (sent.size != exchange.size()) throw SystemCallError(sent.error, "sendmsg", {});
  outbox_->open(socket);
  std::uint8_t buffer[4096];
  for (;;) {
    if (!isInTime(*socket)) throw std::runtime_error("the service does not answer");
    auto got = dbus::receive(socket->get(), buffer, kDescriptorsOfOneMessage);
    if (waitedForInput(*socket, got)) continue;
    if (got.status != dbus::IOStatus::kDone) throw std::runtime_error("the service hung up");
    auto step = sasl.receive({reinterpret_cast<const char*>(buffer), got.size});
    if (step.state == dbus::SaslState::kFailed)
      throw std::runtime_error(std::string(sasl.failure()));
    if (step.state == dbus::SaslState::kNeedMore) continue;
    if (!sasl.fileDescriptorsNegotiated()) {
      throw std::runtime_error("the service does not take descriptors");
    }
    outbox_->allowDescriptors();
    std::span<const std::uint8_t> rest(buffer + step.consumed, got.size - step.consumed);
    if (!rest.empty()) reader_.append(rest, std::move(got.descriptors));
    return;
  }
}

void Channel::end() {
  std::function<void()> invalidationHandler;
  Ref<const FileDescriptor> socket;
  Ref<Connection> kept;
  {
    MutexLock lock(mutex_);
    state_ = State::kEnded;
    invalidationHandler.swap(invalidationHandler_);
    socket.swap(socket_);
    kept.swap(kept_);
  }
  if (socket) ::shutdown(socket->get(), SHUT_RDWR);
  auto unsent = outbox_->close();
  auto error = endError();
  for (auto& call : pending_.takeAll()) fail(call.handler, error);
  for (auto& tell : unsent) platform::contain("an error handler", tell);
  if (invalidationHandler) platform::contain("an invalidation handler", invalidationHandler);
  // What is exported may hold this connection.
  calls_->setObject(nullptr);
  calls_->setInterface(nullptr);
  // The descriptor goes before the place that was taken for it.
  socket.reset();
  reader_ = dbus::FrameReader();
  admission_.reset();
}

Ref<Error> Channel::endError() const {
  if (invalidated_)
    return connectionError(Error::kConnectionInvalid, "the connection was invalidated");
  MutexLock lock(mutex_);
  if (!whyEnded_.empty()) return connectionError(Error::kConnectionInvalid, whyEnded_);
  return connectionError(Error::kConnectionInterrupted, "the connection ended");
}

// ----- Reading -----------------------------------------------------------------------------------

void Channel::read() {
  auto mine = socket();
  try {
    readMessages(*mine);
  } catch (const dbus::MessageTooLarge& error) {
    if (error.replyExpected()) {
      sendAnswer(dbus::makeError(error.serial(), dbus::errors::kLimitsExceeded, error.what()));
    }
    bool isHelpers = error.limit() == kHelperMessageSize;
    drop(fmt::format("{} ({} in xpc/Limits.h)", error.what(),
                     isHelpers ? "kHelperMessageSize" : "kMessageSize"));
  } catch (const dbus::ProtocolError& error) {
    drop(error.what());
  }
}

void Channel::readMessages(const FileDescriptor& socket) {
  std::optional<Clock::Instant> begun;  // when the unfinished message began
  for (;;) {
    while (auto message = reader_.next()) {
      if (invalidated_ || dropped_) return;
      begun.reset();
      handle(std::move(*message));
    }
    if (reader_.isMidMessage() && !begun) begun = Clock::instant();
    if (!holdReceived() || !receive(socket, begun) || !holdReceived()) return;
  }
}

// Answers whether there is more to read from.
bool Channel::receive(const FileDescriptor& socket, std::optional<Clock::Instant> begun) {
  for (;;) {
    if (!isInTime(socket)) return false;
    if (begun && !waitForRest(socket, *begun)) return false;
    auto got = dbus::receive(socket.get(), reader_.space(), descriptorsOfOneRead_,
                             begun ? MSG_DONTWAIT : 0);
    if (got.status == dbus::IOStatus::kDone) {
      if (got.withheld) {
        reader_.receivedWithheld(got.size);
      } else {
        reader_.received(got.size, std::move(got.descriptors));
      }
      return true;
    }
    if (waitedForInput(socket, got)) continue;
    if (got.status == dbus::IOStatus::kFailed && got.error == EMSGSIZE) {
      drop(
          fmt::format("more than {} descriptors came at once (kDescriptorsOfOneMessage in "
                      "xpc/Limits.h)",
                      kDescriptorsOfOneMessage));
    } else if (got.status == dbus::IOStatus::kFailed && got.error == EMFILE) {
      drop(fmt::format("its descriptors cannot be taken: {}", errorText(got.error)));
    }
    return false;
  }
}

// Whether there is input before the deadline, if there is one.
bool Channel::isInTime(const FileDescriptor& socket) const {
  pollfd input{socket.get(), POLLIN, 0};
  return !deadline_ || Clock::poll({&input, 1}, *deadline_) != 0;
}

bool Channel::waitForRest(const FileDescriptor& socket, Clock::Instant begun) {
  pollfd input{socket.get(), POLLIN, 0};
  if (Clock::poll({&input, 1}, begun + kMessageTime) != 0) return true;
  drop(
      fmt::format("a message was not complete after {} seconds, {} bytes of it are here "
                  "(kMessageTime in xpc/Limits.h)",
                  kMessageTime.count(), reader_.heldBytes()));
  return false;
}

// Says in the user's account what is held here; answers whether that may be.
bool Channel::holdReceived() {
  if (!admission_) return true;
  Admission::Held held{reader_.heldBytes(), reader_.heldFileDescriptors()};
  if (held == held_) return true;
  held_ = held;
  return admission_->holdUnfinished(held);
}

void Channel::handle(dbus::Message message) {
  switch (message.type()) {
    case dbus::MessageType::kMethodCall:
      handleCall(std::move(message));
      break;
    case dbus::MessageType::kMethodReturn:
    case dbus::MessageType::kError:
      handleAnswer(message);
      break;
    default:
      break;  // signals mean nothing here
  }
}

// Behind a call that takes long others queue up. When their sender has gone meanwhile, those that
// want an answer are not begun any more; whoever wants none may well have hung up.
void Channel::handleCall(dbus::Message message) {
  if (hadLongCall_ && message.replyExpected() && !isPeerConnected()) return;
  auto begun = Clock::instant();
  platform::contain("a call", [&] { calls_->handle(std::move(message)); });
  hadLongCall_ |= Clock::instant() - begun > kLongCall;
}

void Channel::handleAnswer(dbus::Message& message) {
  auto call = pending_.take(message.replySerial());
  if (!call) return;
  auto refuse = [&](std::string text) {
    fail(call->handler, connectionError(Error::kConnectionReplyInvalid, std::move(text)));
  };
  if (message.type() == dbus::MessageType::kError) {
    return refuse(fmt::format("{}: {}", message.errorName(), message.errorText()));
  }
  if (message.signature() != call->method->resultSignature) {
    return refuse(fmt::format("the answer to {} holds ({}), not ({})", call->method->selector,
                              message.signature(), call->method->resultSignature));
  }
  dbus::MessageReader values(message);
  ArgumentReader reader(values, *call->interface, *call->method, true);
  std::optional<std::string> failure;
  platform::contain("a reply block", [&] {
    try {
      call->read(reader);
    } catch (const std::exception& exception) {
      if (reader.isFinished()) throw;
      failure = exception.what();
    }
  });
  if (failure) refuse(std::move(*failure));
}

void Channel::drop(std::string_view why) {
  if (dropped_.exchange(true)) return;
  report(fmt::format("closed, {}", why));
  shutDown();
}

// What for has been reported.
void Channel::cutOff() {
  dropped_ = true;
  shutDown();
}

void Channel::report(std::string_view what) const {
  if (client_) return reportPeer(*client_, what);
  platform::reportTrouble(
      platform::Severity::Caution,
      fmt::format("connection to {}: {}", serviceName_.value_or("an endpoint"), what));
}

// ----- Sending -----------------------------------------------------------------------------------

// Answers carry the sender's own serials, which nobody refers to.
void Channel::sendAnswer(dbus::OutgoingMessage message) {
  auto size = message.bytes.size();
  message.setSerial(nextSerial());
  if (dropped_) return;
  auto outcome = outbox_->send(std::move(message));
  if (outcome == Outbox::Outcome::kTooMuch) return cutOff();
  if (outcome != Outbox::Outcome::kFull) return;
  drop(
      fmt::format("its unread answers leave no room for {} bytes more (kUnreadAnswers, {}, in "
                  "xpc/Limits.h)",
                  size, kUnreadAnswers));
}

void Channel::sendCall(const Method& method, const Ref<Interface>& interface,
                       const std::function<void(ArgumentWriter&)>& write,
                       std::function<void(ArgumentReader&)> read, const ErrorHandler& handler) {
  bool hasReply = static_cast<bool>(read);
  dbus::OutgoingMessage message;
  try {
    message = encodeCall(method, write);
  } catch (const std::exception& exception) {
    return failLater(handler, connectionError(Error::kConnectionInvalid, exception.what()));
  }
  auto serial = nextSerial();
  message.setSerial(serial);
  if (hasReply && !pending_.add(serial, {interface, &method, std::move(read), handler})) {
    return failLater(handler, connectionError(Error::kConnectionInterrupted,
                                              fmt::format("{} calls wait for their answer already",
                                                          kOutstandingCalls)));
  }
  Outbox::Unsent unsent;
  if (!hasReply && handler) {
    unsent = [self = weak_from_this(), handler] {
      if (auto channel = self.lock()) handler(channel->endError());
    };
  }
  auto outcome = outbox_->send(std::move(message), std::move(unsent));
  if (outcome == Outbox::Outcome::kTaken) return;
  // The end of the connection tells the sender.
  if (outcome == Outbox::Outcome::kTooMuch) return cutOff();
  // Whoever ended the connection may have told the sender already.
  if (hasReply && !pending_.take(serial)) return;
  failLater(handler, outcome == Outbox::Outcome::kClosed
                         ? connectionError(Error::kConnectionInvalid, "the connection has ended")
                         : connectionError(Error::kConnectionInterrupted,
                                           "the peer does not read what was sent before"));
}

std::uint32_t Channel::nextSerial() {
  auto serial = ++serial_;
  return serial != 0 ? serial : ++serial_;
}

}  // namespace hoist::xpc
