// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "values/Value.h"

namespace hoist {

// The command "restore".
class RestoreCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void addNodeIdentifiedBy(Ref<Object> node) = 0;
  virtual void setRestoreVolume(std::optional<Ref<Object>> volume) = 0;
  virtual void setIncludeDeleted(bool include) = 0;
  virtual void setOwnershipEdict(std::int32_t edict) = 0;
};

const xpc::Protocol& restoreCommandMessagingProtocol();

}  // namespace hoist
