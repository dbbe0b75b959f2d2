// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/RepositoryCommandMessaging.h"

namespace hoist {

const xpc::Protocol& repositoryCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("RepositoryCommandMessaging")
          .adopts(commandMessagingProtocol())
          .method<&RepositoryCommandMessaging::setRepositoryRef>(
              "setRepositoryRef:", {{"reference", "RepositoryReference"}})
          .method<&RepositoryCommandMessaging::queryRepositoryRefWithReply>(
              "queryRepositoryRefWithReply:", {}, {{"reference", "RepositoryReference"}})
          .method<&RepositoryCommandMessaging::setLayerPicker>("setLayerPicker:",
                                                               {{"picker", "LayerPicker"}})
          .method<&RepositoryCommandMessaging::setAlternateKeyFilePath>("setAlternateKeyFilePath:",
                                                                        {"path"})
          .method<&RepositoryCommandMessaging::queryAlternateKeyFilePathWithReply>(
              "queryAlternateKeyFilePathWithReply:", {}, {"path"})
          .method<&RepositoryCommandMessaging::setPassword>("setPassword:", {"password"}));
  return protocol;
}

}  // namespace hoist
