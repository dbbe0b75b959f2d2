// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/RepairCommandMessaging.h"

namespace hoist {

const xpc::Protocol& repairCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("RepairCommandMessaging")
          .adopts(repositoryCommandMessagingProtocol())
          .method<&RepairCommandMessaging::setRecoveryRepositoryPath>("setRecoveryRepositoryPath:",
                                                                      {"path"})
          .method<&RepairCommandMessaging::setUseAutoRepair>("setUseAutoRepair:", {"use"})
          .method<&RepairCommandMessaging::setRecoverLostFiles>("setRecoverLostFiles:", {"recover"})
          .method<&RepairCommandMessaging::setRecoverCorruptFiles>("setRecoverCorruptFiles:",
                                                                   {"recover"})
          .method<&RepairCommandMessaging::setStripData>("setStripData:", {"strip"})
          .method<&RepairCommandMessaging::setCorrectionMode>("setCorrectionMode:", {"mode"}));
  return protocol;
}

}  // namespace hoist
