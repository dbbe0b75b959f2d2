// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/RestoreCommandMessaging.h"

namespace hoist {

const xpc::Protocol& restoreCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("RestoreCommandMessaging")
          .adopts(repositoryCommandMessagingProtocol())
          .method<&RestoreCommandMessaging::addNodeIdentifiedBy>(
              "addNodeIdentifiedBy:", {{"node", "FullyQualifiedIdentifier"}})
          .method<&RestoreCommandMessaging::setRestoreVolume>("setRestoreVolume:",
                                                              {{"volume", "PXVolumeInfo"}})
          .method<&RestoreCommandMessaging::setIncludeDeleted>("setIncludeDeleted:", {"include"})
          .method<&RestoreCommandMessaging::setOwnershipEdict>("setOwnershipEdict:", {"edict"}));
  return protocol;
}

}  // namespace hoist
