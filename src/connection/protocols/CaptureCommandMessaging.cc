// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/CaptureCommandMessaging.h"

namespace hoist {

const xpc::Protocol& captureCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("CaptureCommandMessaging")
          .adopts(repositoryCommandMessagingProtocol())
          .method<&CaptureCommandMessaging::addTargetPath>("addTargetPath:", {{"path", "PXPath"}})
          .method<&CaptureCommandMessaging::setIgnoreHistory>("setIgnoreHistory:", {"ignore"})
          .method<&CaptureCommandMessaging::setDeferDeDup>("setDeferDeDup:", {"defer"})
          .method<&CaptureCommandMessaging::setDisableSnapshots>("setDisableSnapshots:",
                                                                 {"disable"}));
  return protocol;
}

}  // namespace hoist
