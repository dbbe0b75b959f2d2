// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/MergeCommandMessaging.h"

namespace hoist {

const xpc::Protocol& mergeCommandMessagingProtocol() {
  static const auto& protocol =
      *new xpc::Protocol(xpc::Protocol("MergeCommandMessaging")
                             .adopts(repositoryCommandMessagingProtocol())
                             .method<&MergeCommandMessaging::setRetainDeletedItemsDate>(
                                 "setRetainDeletedItemsDate:", {"date"}));
  return protocol;
}

}  // namespace hoist
