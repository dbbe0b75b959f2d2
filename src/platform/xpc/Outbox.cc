// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Outbox.h"

#include <poll.h>
#include <sys/socket.h>

#include "platform/Dispatch.h"
#include "platform/SystemCall.h"
#include "platform/dbus/SocketIO.h"

namespace hoist::xpc {
namespace {

// Picked: what a socket takes at once is of that order.
constexpr std::size_t kPieceSize = 64 * 1024;

}  // namespace

Outbox::Outcome Outbox::send(dbus::OutgoingMessage message, Unsent unsent) {
  MutexLock lock(mutex_);
  if (closed_) return Outcome::kClosed;
  auto size = message.bytes.size();
  if (waitingBytes_ > 0 && waitingBytes_ + size > limit_) return Outcome::kFull;
  waitingBytes_ += size;
  waitingDescriptors_ += message.descriptors.size();
  enqueue({std::move(message), 0, std::move(unsent)});
  write();
  if (!holdWaiting()) return Outcome::kTooMuch;
  pumpIfNeeded();
  return Outcome::kTaken;
}

// Many small messages wait as few large pieces: each on its own would take ten times its size.
void Outbox::enqueue(Waiting next) {
  auto isPlain = [](const Waiting& one) { return one.message.descriptors.empty() && !one.unsent; };
  if (!waiting_.empty() && isPlain(next) && isPlain(waiting_.back())) {
    auto& last = waiting_.back().message.bytes;
    const auto& bytes = next.message.bytes;
    if (last.size() + bytes.size() <= kPieceSize) {
      last.insert(last.end(), bytes.begin(), bytes.end());
      return;
    }
  }
  waiting_.push_back(std::move(next));
}

void Outbox::open(Ref<const FileDescriptor> socket) {
  MutexLock lock(mutex_);
  if (closed_) return;
  socket_ = std::move(socket);
  write();
  pumpIfNeeded();
}

void Outbox::allowDescriptors() {
  MutexLock lock(mutex_);
  descriptorsAllowed_ = true;
  write();
  pumpIfNeeded();
}

std::vector<Outbox::Unsent> Outbox::close() {
  MutexLock lock(mutex_);
  closed_ = true;
  socket_.reset();
  std::vector<Unsent> unsent;
  for (auto& waiting : waiting_) {
    if (waiting.unsent) unsent.push_back(std::move(waiting.unsent));
  }
  waiting_.clear();
  waitingBytes_ = waitingDescriptors_ = 0;
  holdWaiting();
  return unsent;
}

bool Outbox::canWrite() const {
  return socket_ && !waiting_.empty() &&
         (descriptorsAllowed_ || waiting_.front().message.descriptors.empty());
}

void Outbox::write() {
  while (canWrite()) {
    auto& first = waiting_.front();
    auto sent = dbus::send(socket_->get(), first.message, first.sent, MSG_DONTWAIT);
    if (sent.status == dbus::IOStatus::kWouldBlock) return;
    if (sent.status != dbus::IOStatus::kDone) {
      // The peer is gone. The reader, who is woken by this, ends the connection.
      ::shutdown(socket_->get(), SHUT_RDWR);
      socket_.reset();
      return;
    }
    first.sent += sent.size;
    waitingBytes_ -= sent.size;
    if (first.sent == first.message.bytes.size()) {
      waitingDescriptors_ -= first.message.descriptors.size();
      waiting_.pop_front();
    }
  }
}

bool Outbox::holdWaiting() {
  if (!hold_ || waitingBytes_ == held_) return true;
  held_ = waitingBytes_;
  return hold_(waitingBytes_, waitingDescriptors_);
}

void Outbox::pumpIfNeeded() {
  if (pumping_ || !canWrite()) return;
  pumping_ = true;
  dispatch::globalQueue().async([self = shared_from_this()] { self->pump(); });
}

void Outbox::pump() {
  for (;;) {
    Ref<const FileDescriptor> socket;
    {
      MutexLock lock(mutex_);
      write();
      holdWaiting();
      if (!canWrite()) {
        pumping_ = false;
        return;
      }
      socket = socket_;
    }
    pollfd writable{socket->get(), POLLOUT, 0};
    retryInterrupted([&] { return ::poll(&writable, 1, -1); });
  }
}

}  // namespace hoist::xpc
