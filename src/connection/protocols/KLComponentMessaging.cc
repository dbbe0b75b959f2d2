// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/KLComponentMessaging.h"

namespace hoist {

const xpc::Protocol& klComponentMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("KLComponentMessaging")
          .method<&KLComponentMessaging::barrierWithCompletion>("barrierWithCompletion:"));
  return protocol;
}

}  // namespace hoist
