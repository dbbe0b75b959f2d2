// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/xpc/Exportable.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// What every component answers.
class KLComponentMessaging : public virtual xpc::Exportable {
 public:
  // Calls the completion when every message that was sent before has been handled.
  virtual void barrierWithCompletion(xpc::Reply<> completion) = 0;
};

const xpc::Protocol& klComponentMessagingProtocol();

}  // namespace hoist
