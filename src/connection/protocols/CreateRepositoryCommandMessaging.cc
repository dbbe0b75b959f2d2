// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/CreateRepositoryCommandMessaging.h"

namespace hoist {

const xpc::Protocol& createRepositoryCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("CreateRepositoryCommandMessaging")
          .adopts(repositoryCommandMessagingProtocol())
          .method<&CreateRepositoryCommandMessaging::setSettings>("setSettings:", {"settings"}));
  return protocol;
}

}  // namespace hoist
