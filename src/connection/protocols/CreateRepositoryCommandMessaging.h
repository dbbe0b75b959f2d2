// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "values/Value.h"

namespace hoist {

// The command "create".
class CreateRepositoryCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void setSettings(Dictionary settings) = 0;
};

const xpc::Protocol& createRepositoryCommandMessagingProtocol();

}  // namespace hoist
