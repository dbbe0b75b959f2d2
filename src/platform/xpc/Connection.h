// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/FileDescriptor.h"
#include "platform/xpc/Endpoint.h"
#include "platform/xpc/Exportable.h"
#include "platform/xpc/Interface.h"
#include "platform/xpc/Peer.h"
#include "platform/xpc/Proxy.h"
#include "values/Error.h"

namespace hoist::xpc {

class Channel;

// One connection between two processes, in either role: a client makes one for a service's name or
// for an endpoint, a listener makes one for every client that it accepts. Either side may export an
// object whose operations the other calls, and call the other's through a proxy.
//
// A connection has a thread of its own from resume() on, which is its queue: it reads, runs the
// handlers of the exported object and the completions of replies in order, and waits where one of
// them waits. What a handler throws is reported; the connection goes on.
//
// A client's connection ends when its last handle goes (proxies are handles too); an accepted one
// lives until the peer ends it or it is invalidated.
//
// Safe to use from any thread; interfaces, exported object and handlers are set before resume().
class Connection : public Object {
 public:
  // Connects when it is resumed; a service that cannot be reached invalidates the connection.
  static Ref<Connection> initWithMachServiceName(std::string serviceName);
  static Ref<Connection> initWithListenerEndpoint(Endpoint endpoint);
  // Speaks as the client on a connected stream socket of the Unix family.
  static Ref<Connection> initWithSocket(FileDescriptor socket);
  // For use by Listener, and by the above.
  static Ref<Connection> initWithChannel(const Ref<Channel>& channel);
  explicit Connection(Ref<Channel> channel);
  ~Connection() override;

  // The connection whose handler or completion is running on this thread, or null.
  static Ref<Connection> currentConnection();

  // What the peer exports, and what this side does.
  void setRemoteObjectInterface(Ref<Interface> interface);
  Ref<Interface> remoteObjectInterface() const;
  void setExportedInterface(Ref<Interface> interface);
  Ref<Interface> exportedInterface() const;
  void setExportedObject(Ref<Exportable> object);
  Ref<Exportable> exportedObject() const;

  // Called once, on the connection's thread, when the connection has ended, for whatever reason;
  // every message that was under way has had its error by then. May be set and cleared at any time.
  void setInvalidationHandler(std::function<void()> handler);

  // For each message sent through the proxy exactly one of its completion and the error handler is
  // called (for a message without a reply: the error handler if it could not be sent), never on the
  // sender's stack.
  Ref<Proxy> remoteObjectProxy();
  Ref<Proxy> remoteObjectProxyWithErrorHandler(ErrorHandler handler);

  // Starts the connection. Messages sent before wait for it.
  void resume();
  // Takes the place of resume() and of the connection's thread for one who has nothing else to do
  // meanwhile: reads, and runs handlers and completions, on the calling thread until the connection
  // has ended, be it that one of them has invalidated it, or the deadline has come, which ends it.
  // A service that very many connect to at once is waited for longer.
  void runUntil(Clock::Instant deadline);
  bool isResumed() const;
  // Ends the connection; nothing is sent any more, what the peer sent and was not read is lost.
  void invalidate();

  // The service's name; nothing for an accepted connection and for an endpoint's.
  std::optional<std::string> serviceName() const;
  // The peer, by the kernel's word; on a client's connection the process that listens, known once
  // connected. -1 and 0 before.
  uid_t effectiveUserIdentifier() const;
  gid_t effectiveGroupIdentifier() const;
  pid_t processIdentifier() const;
  Peer peer() const;
  // A process descriptor of the peer; empty where the kernel has none or the process is gone.
  FileDescriptor processDescriptor() const;
  // Whether the process that made the connection still runs, and processIdentifier() is still its
  // own. True where the kernel cannot say.
  bool isPeerRunning() const;

  // Whether the peer still has its end open: a handler that takes long can ask whether anybody
  // waits for it.
  bool isPeerConnected() const;

  std::string className() const override { return "NSXPCConnection"; }
  // "<NSXPCConnection: 0x...> connection to service named ..." or "... from user ..., process ...".
  std::string description() const override;

 private:
  friend class Proxy;

  const Ref<Channel> channel_;
};

}  // namespace hoist::xpc
