// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/protocols/CommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "values/Value.h"

namespace hoist {

// The command "install".
class InstallCommandMessaging : public virtual CommandMessaging {
 public:
  // Which classes the dictionary may hold is the interface's matter.
  virtual void setInstallParameters(Dictionary parameters) = 0;
};

const xpc::Protocol& installCommandMessagingProtocol();

}  // namespace hoist
