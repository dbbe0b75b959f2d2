// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"

namespace hoist {

// The command "repair".
class RepairCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void setRecoveryRepositoryPath(std::optional<std::string> path) = 0;
  virtual void setUseAutoRepair(bool use) = 0;
  virtual void setRecoverLostFiles(bool recover) = 0;
  virtual void setRecoverCorruptFiles(bool recover) = 0;
  virtual void setStripData(bool strip) = 0;
  virtual void setCorrectionMode(std::int32_t mode) = 0;
};

const xpc::Protocol& repairCommandMessagingProtocol();

}  // namespace hoist
