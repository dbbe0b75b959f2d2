// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "connection/KLConnectionObjectFactory.h"
#include "connection/KLConnectionVendor.h"
#include "platform/xpc/Protocol.h"

namespace hoist {

// The vendor that serves: for each connection it makes a fresh interface from the protocol, asks
// the server class for an object and resumes the connection. Safe from any thread.
class KLConnectionServiceFactory final : public KLConnectionVendor {
 public:
  // Resumes the listener: the factory accepts connections as soon as it exists. The server class is
  // a name that the class registry is asked for at each connection; the protocol is permanent.
  // initWithListener:serverClass:conformingTo:
  static Ref<KLConnectionServiceFactory> initWithListener(const Ref<xpc::Listener>& listener,
                                                          std::string serverClass,
                                                          const xpc::Protocol& protocol);

  // Refuses, by answering false and touching the connection no further, when there is no such class
  // or it answers no object.
  bool shouldAcceptNewConnection(xpc::Listener& listener,
                                 const Ref<xpc::Connection>& connection) override;

  std::string serverClass() const;
  void setServerClass(std::string name);
  const xpc::Protocol& serverProtocol() const { return *serverProtocol_; }
  // Belongs to whoever sets the factory up; not while connections come in.
  void setServerProtocol(const xpc::Protocol& protocol) { serverProtocol_ = &protocol; }

  std::string className() const override { return "KLConnectionServiceFactory"; }

 private:
  KLConnectionServiceFactory(Ref<xpc::Listener> listener, std::string serverClass,
                             const xpc::Protocol& protocol)
      : KLConnectionVendor(std::move(listener)),
        serverClass_(std::move(serverClass)),
        serverProtocol_(&protocol) {}

  mutable Mutex mutex_;
  std::string serverClass_ GUARDED_BY(mutex_);
  const xpc::Protocol* serverProtocol_;
};

}  // namespace hoist
