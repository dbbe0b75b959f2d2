// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/InstallCommandMessaging.h"

namespace hoist {

const xpc::Protocol& installCommandMessagingProtocol() {
  static const auto& protocol =
      *new xpc::Protocol(xpc::Protocol("InstallCommandMessaging")
                             .adopts(commandMessagingProtocol())
                             .method<&InstallCommandMessaging::setInstallParameters>(
                                 "setInstallParameters:", {"parameters"}));
  return protocol;
}

}  // namespace hoist
