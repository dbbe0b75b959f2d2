// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/Mutex.h"
#include "platform/dbus/Message.h"
#include "values/Ref.h"

namespace hoist::xpc {

// The sending side of a connection: messages leave in the order in which they were put in. Whoever
// puts one in writes it himself as far as the kernel takes it at once; what is left waits for a
// thread of the global queue that follows the peer's reading. Never blocks. Safe to use from any
// thread.
class Outbox : public std::enable_shared_from_this<Outbox> {
 public:
  // Called with the bytes and descriptors that wait; answers whether so much may wait.
  using Hold = std::function<bool(std::size_t bytes, std::size_t descriptors)>;
  // Called when its message was not sent: the connection has ended.
  using Unsent = std::function<void()>;

  enum class Outcome {
    kTaken,   // sent, or will be
    kFull,    // refused: more waits than the limit
    kClosed,  // refused: the connection has ended
    // Taken, but more waits than may by the word of hold, which has been reported: the connection
    // has to end.
    kTooMuch,
  };

  // At most `limit` bytes wait; a message that is larger than that may wait alone.
  explicit Outbox(std::size_t limit, Hold hold = nullptr) : limit_(limit), hold_(std::move(hold)) {}

  Outcome send(dbus::OutgoingMessage message, Unsent unsent = nullptr);

  // From now on messages leave through the socket; those with descriptors once these are allowed.
  void open(Ref<const FileDescriptor> socket);
  void allowDescriptors();

  // Nothing leaves any more. Answers what was to be told of the messages that did not.
  std::vector<Unsent> close();

 private:
  // One message, or several small ones.
  struct Waiting {
    dbus::OutgoingMessage message;
    std::size_t sent;
    Unsent unsent;
  };

  void enqueue(Waiting next) REQUIRES(mutex_);
  bool canWrite() const REQUIRES(mutex_);
  void write() REQUIRES(mutex_);
  bool holdWaiting() REQUIRES(mutex_);
  void pumpIfNeeded() REQUIRES(mutex_);
  void pump();

  const std::size_t limit_;
  const Hold hold_;
  Mutex mutex_;
  Ref<const FileDescriptor> socket_ GUARDED_BY(mutex_);
  bool descriptorsAllowed_ GUARDED_BY(mutex_) = false;
  bool closed_ GUARDED_BY(mutex_) = false;
  bool pumping_ GUARDED_BY(mutex_) = false;
  std::deque<Waiting> waiting_ GUARDED_BY(mutex_);
  std::size_t waitingBytes_ GUARDED_BY(mutex_) = 0;
  std::size_t waitingDescriptors_ GUARDED_BY(mutex_) = 0;
  std::size_t held_ GUARDED_BY(mutex_) = 0;  // the bytes that hold_ was told last
};

}  // namespace hoist::xpc
