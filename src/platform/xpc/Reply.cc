// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Reply.h"

#include "platform/Trouble.h"

namespace hoist::xpc {

void reportSecondReply() {
  platform::reportTrouble(platform::Severity::Caution,
                          "a reply block was called a second time; ignored");
}

}  // namespace hoist::xpc
