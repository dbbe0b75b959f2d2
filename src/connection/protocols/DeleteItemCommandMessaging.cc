// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/DeleteItemCommandMessaging.h"

namespace hoist {

const xpc::Protocol& deleteItemCommandMessagingProtocol() {
  static const auto& protocol =
      *new xpc::Protocol(xpc::Protocol("DeleteItemCommandMessaging")
                             .adopts(repositoryCommandMessagingProtocol())
                             .method<&DeleteItemCommandMessaging::addNodeIdentifiedBy>(
                                 "addNodeIdentifiedBy:", {{"node", "FullyQualifiedIdentifier"}}));
  return protocol;
}

}  // namespace hoist
