// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// The command "correction".
class CorrectionCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void queryVersionWithReply(xpc::Reply<std::uint64_t> reply) = 0;
  virtual void setVersion(std::uint64_t version) = 0;
  virtual void queryConfigurationIndexWithReply(xpc::Reply<std::uint64_t> reply) = 0;
  virtual void setConfigurationIndex(std::uint64_t index) = 0;
};

const xpc::Protocol& correctionCommandMessagingProtocol();

}  // namespace hoist
