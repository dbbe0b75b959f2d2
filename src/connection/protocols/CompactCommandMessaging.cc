// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/CompactCommandMessaging.h"

namespace hoist {

const xpc::Protocol& compactCommandMessagingProtocol() {
  static const auto& protocol =
      *new xpc::Protocol(xpc::Protocol("CompactCommandMessaging")
                             .adopts(repositoryCommandMessagingProtocol())
                             .method<&CompactCommandMessaging::queryMinimumFreeRatioWithReply>(
                                 "queryMinimumFreeRatioWithReply:", {}, {"ratio"})
                             .method<&CompactCommandMessaging::setMinimumFreeRatio>(
                                 "setMinimumFreeRatio:", {"ratio"}));
  return protocol;
}

}  // namespace hoist
