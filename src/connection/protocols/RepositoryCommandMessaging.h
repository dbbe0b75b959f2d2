// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <optional>
#include <string>

#include "connection/protocols/CommandMessaging.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"
#include "values/Value.h"

namespace hoist {

// A command that works on a repository.
class RepositoryCommandMessaging : public virtual CommandMessaging {
 public:
  virtual void setRepositoryRef(std::optional<Ref<Object>> reference) = 0;
  virtual void queryRepositoryRefWithReply(xpc::Reply<std::optional<Ref<Object>>> reply) = 0;
  virtual void setLayerPicker(std::optional<Ref<Object>> picker) = 0;
  virtual void setAlternateKeyFilePath(std::optional<std::string> path) = 0;
  virtual void queryAlternateKeyFilePathWithReply(xpc::Reply<std::optional<std::string>> reply) = 0;
  virtual void setPassword(std::optional<std::string> password) = 0;
};

const xpc::Protocol& repositoryCommandMessagingProtocol();

}  // namespace hoist
