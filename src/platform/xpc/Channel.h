// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/FileDescriptor.h"
#include "platform/Mutex.h"
#include "platform/dbus/FrameReader.h"
#include "platform/dbus/SocketIO.h"
#include "platform/xpc/Admission.h"
#include "platform/xpc/CallHandler.h"
#include "platform/xpc/Outbox.h"
#include "platform/xpc/PendingCalls.h"

namespace hoist::xpc {

class Connection;

// What a connection is made of, apart from the handle that its users hold: the socket, its thread,
// and what waits to be sent, handled and answered. Its thread keeps it alive, so that a handle can
// go at any moment; an accepted one keeps its own handle until it has ended. Safe to use from any
// thread.
//
// A descriptor of a file system that its sender serves can hold up whoever closes it, every child
// that is started while it is open, and the end of the process, for as long as the sender likes. So
// what is passed by a peer that is not trusted never becomes a descriptor here: the kernel drops
// it, and one that leads nowhere stands in its place.
class Channel : public std::enable_shared_from_this<Channel> {
 public:
  // Makes the socket of a client's connection; waits, at most until the flag is set. Throws.
  using Connect = std::function<FileDescriptor(const std::atomic<bool>& cancelled)>;
  static Ref<Channel> forClient(Connect connect, std::optional<std::string> serviceName);

  // A connection that has authenticated.
  struct Accepted {
    FileDescriptor socket;
    Ref<Admission> admission;
    bool descriptorsNegotiated;
    bool isTrusted;           // to pass descriptors
    std::string serviceName;  // of the listener, or empty
  };
  static Ref<Channel> forAccepted(Accepted accepted);

  // For use by the above.
  Channel(dbus::FrameLimits limits, Ref<Admission> admission,
          std::optional<std::string> serviceName);

  // The channel whose thread this is, or null.
  static Channel* current();

  void setOwner(const Ref<Connection>& owner);
  Ref<Connection> owner() const;

  void setRemoteInterface(Ref<Interface> interface);
  Ref<Interface> remoteInterface() const;
  void setInvalidationHandler(std::function<void()> handler);
  CallHandler& calls() { return *calls_; }

  void resume();
  void runUntil(Clock::Instant deadline);
  bool isResumed() const;
  void invalidate();

  // See Proxy::send. An empty `read` is a message without a reply.
  void sendCall(const Method& method, const Ref<Interface>& interface,
                const std::function<void(ArgumentWriter&)>& write,
                std::function<void(ArgumentReader&)> read, const ErrorHandler& handler);

  const std::optional<std::string>& serviceName() const { return serviceName_; }
  Peer peer() const;
  FileDescriptor processDescriptor() const;
  bool isPeerRunning() const;
  bool isPeerConnected() const;
  bool isAccepted() const { return client_.has_value(); }

 private:
  enum class State { kNew, kRunning, kEnded };

  void makeCallHandler(uid_t user, bool takesDescriptors, std::string exportedName,
                       std::size_t maximumAnswer);

  // The thread: open, read, end.
  void run();
  bool open();
  void authenticate(const Ref<const FileDescriptor>& socket);
  void read();
  void readMessages(const FileDescriptor& socket);
  bool receive(const FileDescriptor& socket, std::optional<Clock::Instant> begun);
  bool isInTime(const FileDescriptor& socket) const;
  bool waitForRest(const FileDescriptor& socket, Clock::Instant begun);
  bool holdReceived();
  void handle(dbus::Message message);
  void handleCall(dbus::Message message);
  void handleAnswer(dbus::Message& message);
  void end();
  Ref<Error> endError() const;

  void sendAnswer(dbus::OutgoingMessage message);
  std::uint32_t nextSerial();
  void setSocket(Ref<const FileDescriptor> socket);
  Ref<const FileDescriptor> socket() const;
  void shutDown();
  void drop(std::string_view why);
  void cutOff();
  void report(std::string_view what) const;

  Connect connect_;  // of a client's connection
  const std::optional<std::string> serviceName_;
  const std::optional<Peer> client_;  // of an accepted connection
  const Ref<Outbox> outbox_;
  PendingCalls pending_;
  std::optional<CallHandler> calls_;
  std::atomic<std::uint32_t> serial_ = 0;
  std::atomic<bool> invalidated_ = false;  // by this side's user
  std::atomic<bool> dropped_ = false;      // because of what the peer did

  // Belong to the thread.
  Ref<Admission> admission_;  // of an accepted connection until its end
  const std::size_t descriptorsOfOneRead_;
  dbus::FrameReader reader_;
  Admission::Held held_;  // what the account was told last
  bool hadLongCall_ = false;
  std::optional<Clock::Instant> deadline_;  // of runUntil

  mutable Mutex mutex_;
  State state_ GUARDED_BY(mutex_) = State::kNew;
  Ref<const FileDescriptor> socket_ GUARDED_BY(mutex_);
  Peer peer_ GUARDED_BY(mutex_);
  std::string whyEnded_ GUARDED_BY(mutex_);  // empty unless it could not be opened
  WeakRef<Connection> owner_ GUARDED_BY(mutex_);
  Ref<Connection> kept_ GUARDED_BY(mutex_);  // the owner of an accepted connection, while it lives
  Ref<Interface> remoteInterface_ GUARDED_BY(mutex_);
  std::function<void()> invalidationHandler_ GUARDED_BY(mutex_);
};

}  // namespace hoist::xpc
