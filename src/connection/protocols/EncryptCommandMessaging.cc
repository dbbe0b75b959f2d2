// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "connection/protocols/EncryptCommandMessaging.h"

namespace hoist {

const xpc::Protocol& encryptCommandMessagingProtocol() {
  static const auto& protocol = *new xpc::Protocol(
      xpc::Protocol("EncryptCommandMessaging")
          .adopts(repositoryCommandMessagingProtocol())
          .method<&EncryptCommandMessaging::setSubcommand>("setSubcommand:", {"subcommand"})
          .method<&EncryptCommandMessaging::querySubcommandithReply>("querySubcommandithReply:", {},
                                                                     {"subcommand"})
          .method<&EncryptCommandMessaging::queryHumanReadableEncryptVerbReply>(
              "queryHumanReadableEncryptVerbReply:", {}, {"verb"})
          .method<&EncryptCommandMessaging::setPassphrase>("setPassphrase:", {"passphrase"}));
  return protocol;
}

}  // namespace hoist
