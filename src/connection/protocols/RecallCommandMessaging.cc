// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/RecallCommandMessaging.h"

namespace hoist {

const xpc::Protocol& recallCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("RecallCommandMessaging")
          .adopts(restoreCommandMessagingProtocol())
          .method<&RecallCommandMessaging::setRecallPath>("setRecallPath:", {"path"}));
  return protocol;
}

}  // namespace hoist
