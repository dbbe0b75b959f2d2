// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "values/Value.h"

namespace hoist {

// The command "merge".
class MergeCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void setRetainDeletedItemsDate(std::optional<Date> date) = 0;
};

const xpc::Protocol& mergeCommandMessagingProtocol();

}  // namespace hoist
