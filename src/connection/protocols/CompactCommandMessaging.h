// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// The command "compact".
class CompactCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void queryMinimumFreeRatioWithReply(xpc::Reply<double> reply) = 0;
  virtual void setMinimumFreeRatio(double ratio) = 0;
};

const xpc::Protocol& compactCommandMessagingProtocol();

}  // namespace hoist
