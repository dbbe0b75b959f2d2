// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "values/Value.h"

namespace hoist {

// The command "capture".
class CaptureCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void addTargetPath(Ref<Object> path) = 0;
  virtual void setIgnoreHistory(bool ignore) = 0;
  virtual void setDeferDeDup(bool defer) = 0;
  virtual void setDisableSnapshots(bool disable) = 0;
};

const xpc::Protocol& captureCommandMessagingProtocol();

}  // namespace hoist
