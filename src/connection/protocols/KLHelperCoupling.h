// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/xpc/Endpoint.h"
#include "platform/xpc/Exportable.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// What a started helper calls back.
class KLHelperCoupling : public virtual xpc::Exportable {
 public:
  // Hands over the endpoint of the helper's own listener.
  // connectWithEndpoint:forCommandID:withReply:
  virtual void connectWithEndpoint(xpc::Endpoint endpoint, std::string commandID,
                                   xpc::Reply<> reply) = 0;
};

const xpc::Protocol& klHelperCouplingProtocol();

}  // namespace hoist
