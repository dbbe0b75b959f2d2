// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "ItemCommands.h"

namespace hoist::example {

void RestoreCommand::addNodeIdentifiedBy(Ref<Object> node) {
  add("nodeIdentifiedBy", node);
}

void RestoreCommand::setRestoreVolume(std::optional<Ref<Object>> volume) {
  set("restoreVolume", std::move(volume));
}

void RestoreCommand::setIncludeDeleted(bool include) {
  set("includeDeleted", include);
}

void RestoreCommand::setOwnershipEdict(std::int32_t edict) {
  set("ownershipEdict", edict);
}

void RecallCommand::setRecallPath(std::optional<std::string> path) {
  set("recallPath", std::move(path));
}

void CombineCommand::addNodeIdentifiedBy(Ref<Object> node) {
  add("nodeIdentifiedBy", node);
}

void DeleteItemCommand::addNodeIdentifiedBy(Ref<Object> node) {
  add("nodeIdentifiedBy", node);
}

}  // namespace hoist::example
