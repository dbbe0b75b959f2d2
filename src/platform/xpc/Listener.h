// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/FileDescriptor.h"
#include "platform/xpc/Connection.h"
#include "platform/xpc/Endpoint.h"
#include "platform/xpc/Limits.h"
#include "values/Object.h"

namespace hoist::xpc {

class Listener;

// Decides about every new connection, which has authenticated by then.
class ListenerDelegate {
 public:
  virtual ~ListenerDelegate();
  // Runs on the listener's thread, one connection at a time. To accept, sets what the connection
  // exports, resumes it and answers true; a connection that is answered false, or that was not
  // resumed, is closed. What it throws refuses the connection.
  virtual bool shouldAcceptNewConnection(Listener& listener, const Ref<Connection>& connection) = 0;
};

class Acceptor;

// Waits for the connections of a service's name, of its endpoint, or of both, once it is resumed.
// One thread accepts, authenticates and asks the delegate; each accepted connection then has its
// own. Safe to use from any thread.
class Listener : public Object {
 public:
  // Takes the socket that the service manager passed for the name (the one with that descriptor
  // name, or the only one), else makes it in the runtime directory. Clients can connect, and wait,
  // from now on. Throws SystemCallError: with EADDRINUSE when a live process holds the service.
  static Ref<Listener> initWithMachServiceName(std::string serviceName, Limits limits = {});
  // Listens for its endpoint only.
  static Ref<Listener> anonymousListener(Limits limits = {});
  // For use by the above.
  Listener(std::optional<std::string> serviceName, Ref<Acceptor> acceptor);
  ~Listener() override;

  // Held weakly; set before resume().
  void setDelegate(WeakRef<ListenerDelegate> delegate);
  // Tells whether a peer is a helper that this process started: its connections do not count
  // against its user's bound, and descriptors are taken from nobody else (Channel.h). Without it
  // they are taken from everybody. The descriptor is a process descriptor, borrowed, or -1 where
  // the kernel has none. Called on the listener's thread; set before resume().
  void setIsHelper(std::function<bool(const Peer& peer, int processDescriptor)> isHelper);

  // Whoever holds it can connect. Throws SystemCallError when there is no descriptor for it.
  Endpoint endpoint();

  void resume();
  // Stops accepting; connections that were accepted live on. Once.
  void invalidate();

  std::optional<std::string> serviceName() const { return serviceName_; }

  std::string className() const override { return "NSXPCListener"; }
  std::string description() const override;

 private:
  const std::optional<std::string> serviceName_;
  const Ref<Acceptor> acceptor_;
};

}  // namespace hoist::xpc
