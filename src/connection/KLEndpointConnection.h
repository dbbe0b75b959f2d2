// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/KLConnection.h"

namespace hoist {

// The connection to the listener of an endpoint, as the hoist hands one out for a helper. An
// endpoint has no name: the identifier is what the client calls it.
class KLEndpointConnection final : public KLConnection {
 public:
  static Ref<KLEndpointConnection> initWithEndpoint(xpc::Endpoint endpoint, std::string identifier,
                                                    Ref<xpc::Interface> interface,
                                                    unsigned options = 0);

  std::string className() const override { return "KLEndpointConnection"; }

 protected:
  Ref<xpc::Connection> makeConnection() override;

 private:
  KLEndpointConnection(xpc::Endpoint endpoint, std::string identifier,
                       Ref<xpc::Interface> interface, unsigned options);

  const xpc::Endpoint endpoint_;
};

}  // namespace hoist
