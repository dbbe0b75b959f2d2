// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/KLHelperCoupling.h"

namespace hoist {

const xpc::Protocol& klHelperCouplingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("KLHelperCoupling")
          .method<&KLHelperCoupling::connectWithEndpoint>(
              "connectWithEndpoint:forCommandID:withReply:", {"endpoint", "commandID"}));
  return protocol;
}

}  // namespace hoist
