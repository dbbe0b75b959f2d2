// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "RepositoryCommand.h"
#include "connection/protocols/CombineCommandMessaging.h"
#include "connection/protocols/DeleteItemCommandMessaging.h"
#include "connection/protocols/RecallCommandMessaging.h"
#include "connection/protocols/RestoreCommandMessaging.h"

// The commands that work on single items of a repository.
namespace hoist::example {

// "restore"
class RestoreCommand : public RepositoryCommand, public virtual RestoreCommandMessaging {
 public:
  void addNodeIdentifiedBy(Ref<Object> node) override;
  void setRestoreVolume(std::optional<Ref<Object>> volume) override;
  void setIncludeDeleted(bool include) override;
  void setOwnershipEdict(std::int32_t edict) override;
  std::string className() const override { return "RestoreCommand"; }
};

// "recall"
class RecallCommand final : public RestoreCommand, public virtual RecallCommandMessaging {
 public:
  void setRecallPath(std::optional<std::string> path) override;
  std::string className() const override { return "RecallCommand"; }
};

// "combine"
class CombineCommand final : public RepositoryCommand, public virtual CombineCommandMessaging {
 public:
  void addNodeIdentifiedBy(Ref<Object> node) override;
  std::string className() const override { return "CombineCommand"; }
};

// "erase"
class DeleteItemCommand final : public RepositoryCommand,
                                public virtual DeleteItemCommandMessaging {
 public:
  void addNodeIdentifiedBy(Ref<Object> node) override;
  std::string className() const override { return "DeleteItemCommand"; }
};

}  // namespace hoist::example
