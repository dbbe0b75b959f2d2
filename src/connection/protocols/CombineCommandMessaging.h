// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "values/Value.h"

namespace hoist {

// The command "combine".
class CombineCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void addNodeIdentifiedBy(Ref<Object> node) = 0;
};

const xpc::Protocol& combineCommandMessagingProtocol();

}  // namespace hoist
