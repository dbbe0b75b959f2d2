// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/Mutex.h"
#include "platform/xpc/Endpoint.h"
#include "platform/xpc/Handshake.h"
#include "platform/xpc/Limits.h"
#include "platform/xpc/Listener.h"
#include "platform/xpc/ServiceSocket.h"

namespace hoist::xpc {

// What a listener is made of, apart from the handle that its users hold: the sockets and the thread
// that accepts, authenticates and asks the delegate. Safe to use from any thread.
class Acceptor : public std::enable_shared_from_this<Acceptor> {
 public:
  using IsHelper = std::function<bool(const Peer&, int)>;

  // socket: none for a listener that has only its endpoint.
  Acceptor(std::optional<ServiceSocket> socket, std::string serviceName, Limits limits);

  void setListener(const Ref<Listener>& listener);
  void setDelegate(WeakRef<ListenerDelegate> delegate);
  void setIsHelper(IsHelper isHelper);

  Endpoint endpoint();
  void resume();
  void invalidate();

 private:
  enum class State { kNew, kRunning, kEnded };

  // The thread.
  void run();
  void waitAndServe();
  Clock::Instant earliestDeadline() const;
  void acceptWaiting(int listening);
  void receiveRequests(bool hungUp);
  void pauseAccepting();
  void begin(FileDescriptor socket);
  // Answers whether the handshake goes on; if not, it is let go.
  bool advance(Ref<Handshake>& handshake);
  void letGo(const Ref<Handshake>& handshake);
  void expireHandshakes();
  void deliver(Handshake& handshake);
  bool askDelegate(const Ref<Connection>& connection);

  struct Standing {
    bool isHelper;
    bool isTrusted;
  };
  Standing standingOf(const Peer& peer, int socket) const;
  void wake();

  const std::string serviceName_;
  const Limits limits_;
  const std::string guid_;
  const FileDescriptor wakeup_;

  // Belong to the thread.
  std::list<Ref<Handshake>> handshakes_;
  std::optional<Clock::Instant> pausedUntil_;

  mutable Mutex mutex_;
  State state_ GUARDED_BY(mutex_) = State::kNew;
  std::optional<ServiceSocket> socket_ GUARDED_BY(mutex_);
  // The end that listens, and the one that is given out. None until somebody wants an endpoint.
  Ref<const FileDescriptor> requests_ GUARDED_BY(mutex_);
  std::optional<Endpoint> endpoint_ GUARDED_BY(mutex_);
  WeakRef<Listener> listener_ GUARDED_BY(mutex_);
  WeakRef<ListenerDelegate> delegate_ GUARDED_BY(mutex_);
  IsHelper isHelper_ GUARDED_BY(mutex_);
};

}  // namespace hoist::xpc
