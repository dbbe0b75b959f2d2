// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/KLServiceConnection.h"

namespace hoist {

Ref<KLServiceConnection> KLServiceConnection::initWithServiceName(std::string serviceName,
                                                                  const xpc::Protocol& protocol,
                                                                  unsigned options) {
  return Ref<KLServiceConnection>(
      new KLServiceConnection(std::move(serviceName), protocol, options));
}

KLServiceConnection::KLServiceConnection(std::string serviceName, const xpc::Protocol& protocol,
                                         unsigned options)
    : KLConnection(options, xpc::Interface::interfaceWithProtocol(protocol)),
      serviceName_(std::move(serviceName)) {
  setIdentifier(serviceName_);
}

Ref<xpc::Connection> KLServiceConnection::makeConnection() {
  return xpc::Connection::initWithMachServiceName(serviceName_);
}

}  // namespace hoist
