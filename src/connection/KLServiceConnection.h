// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/KLConnection.h"

namespace hoist {

// The connection to the service of a name, which is its identifier.
class KLServiceConnection final : public KLConnection {
 public:
  static Ref<KLServiceConnection> initWithServiceName(std::string serviceName,
                                                      const xpc::Protocol& protocol,
                                                      unsigned options = 0);

  std::string className() const override { return "KLServiceConnection"; }

 protected:
  Ref<xpc::Connection> makeConnection() override;

 private:
  KLServiceConnection(std::string serviceName, const xpc::Protocol& protocol, unsigned options);

  const std::string serviceName_;
};

}  // namespace hoist
