// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "connection/protocols/RestoreCommandMessaging.h"
#include "platform/xpc/Protocol.h"

namespace hoist {

// The command "recall".
class RecallCommandMessaging : public virtual RestoreCommandMessaging {
 public:
  virtual void setRecallPath(std::optional<std::string> path) = 0;
};

const xpc::Protocol& recallCommandMessagingProtocol();

}  // namespace hoist
