// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/KLEndpointConnection.h"

namespace hoist {

Ref<KLEndpointConnection> KLEndpointConnection::initWithEndpoint(xpc::Endpoint endpoint,
                                                                 std::string identifier,
                                                                 Ref<xpc::Interface> interface,
                                                                 unsigned options) {
  return Ref<KLEndpointConnection>(new KLEndpointConnection(
      std::move(endpoint), std::move(identifier), std::move(interface), options));
}

KLEndpointConnection::KLEndpointConnection(xpc::Endpoint endpoint, std::string identifier,
                                           Ref<xpc::Interface> interface, unsigned options)
    : KLConnection(options, std::move(interface)), endpoint_(std::move(endpoint)) {
  setIdentifier(std::move(identifier));
}

Ref<xpc::Connection> KLEndpointConnection::makeConnection() {
  return xpc::Connection::initWithListenerEndpoint(endpoint_);
}

}  // namespace hoist
