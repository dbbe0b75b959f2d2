// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/KLComponentServing.h"

namespace hoist {

const xpc::Protocol& klComponentServingProtocol() {
  static const auto& protocol = *new xpc::Protocol(xpc::Protocol("KLComponentServing")
                                                       .adopts(klComponentMessagingProtocol())
                                                       .adopts(klComponentInstallingProtocol()));
  return protocol;
}

}  // namespace hoist
