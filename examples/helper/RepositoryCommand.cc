// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "RepositoryCommand.h"

namespace hoist::example {

void RepositoryCommand::setRepositoryRef(std::optional<Ref<Object>> reference) {
  set("repositoryRef", std::move(reference));
}

void RepositoryCommand::queryRepositoryRefWithReply(xpc::Reply<std::optional<Ref<Object>>> reply) {
  auto reference = get("repositoryRef");
  reply(reference ? std::optional(reference->object()) : std::nullopt);
}

void RepositoryCommand::setLayerPicker(std::optional<Ref<Object>> picker) {
  set("layerPicker", std::move(picker));
}

void RepositoryCommand::setAlternateKeyFilePath(std::optional<std::string> path) {
  set("alternateKeyFilePath", std::move(path));
}

void RepositoryCommand::queryAlternateKeyFilePathWithReply(
    xpc::Reply<std::optional<std::string>> reply) {
  reply(getString("alternateKeyFilePath"));
}

void RepositoryCommand::setPassword(std::optional<std::string> password) {
  setSecret("password", std::move(password));
}

}  // namespace hoist::example
