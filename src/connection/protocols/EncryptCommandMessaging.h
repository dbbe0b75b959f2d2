// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// The command "encrypt". Two of its selectors are spelled in a way that client and helper must
// agree on.
class EncryptCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void setSubcommand(std::int32_t subcommand) = 0;
  virtual void querySubcommandithReply(xpc::Reply<std::int32_t> reply) = 0;
  virtual void queryHumanReadableEncryptVerbReply(xpc::Reply<std::string> reply) = 0;
  virtual void setPassphrase(std::optional<std::string> passphrase) = 0;
};

const xpc::Protocol& encryptCommandMessagingProtocol();

}  // namespace hoist
