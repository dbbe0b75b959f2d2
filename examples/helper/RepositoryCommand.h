// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ExampleCommand.h"
#include "connection/protocols/RepositoryCommandMessaging.h"

namespace hoist::example {

// A command that works on a repository. Passwords are kept out of the log.
class RepositoryCommand : public ExampleCommand, public virtual RepositoryCommandMessaging {
 public:
  void setRepositoryRef(std::optional<Ref<Object>> reference) override;
  void queryRepositoryRefWithReply(xpc::Reply<std::optional<Ref<Object>>> reply) override;
  void setLayerPicker(std::optional<Ref<Object>> picker) override;
  void setAlternateKeyFilePath(std::optional<std::string> path) override;
  void queryAlternateKeyFilePathWithReply(xpc::Reply<std::optional<std::string>> reply) override;
  void setPassword(std::optional<std::string> password) override;
};

}  // namespace hoist::example
