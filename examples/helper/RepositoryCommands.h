// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "RepositoryCommand.h"
#include "connection/protocols/CaptureCommandMessaging.h"
#include "connection/protocols/CompactCommandMessaging.h"
#include "connection/protocols/CorrectionCommandMessaging.h"
#include "connection/protocols/CreateRepositoryCommandMessaging.h"
#include "connection/protocols/EncryptCommandMessaging.h"
#include "connection/protocols/MergeCommandMessaging.h"
#include "connection/protocols/RepairCommandMessaging.h"

// The commands that work on a repository as a whole.
namespace hoist::example {

// "create"
class CreateRepositoryCommand final : public RepositoryCommand,
                                      public virtual CreateRepositoryCommandMessaging {
 public:
  void setSettings(Dictionary settings) override;
  std::string className() const override { return "CreateRepositoryCommand"; }
};

// "capture"
class CaptureCommand final : public RepositoryCommand, public virtual CaptureCommandMessaging {
 public:
  void addTargetPath(Ref<Object> path) override;
  void setIgnoreHistory(bool ignore) override;
  void setDeferDeDup(bool defer) override;
  void setDisableSnapshots(bool disable) override;
  std::string className() const override { return "CaptureCommand"; }
};

// "merge"
class MergeCommand final : public RepositoryCommand, public virtual MergeCommandMessaging {
 public:
  void setRetainDeletedItemsDate(std::optional<Date> date) override;
  std::string className() const override { return "MergeCommand"; }
};

// "delete"
class DeleteLayerCommand final : public RepositoryCommand {
 public:
  std::string className() const override { return "DeleteLayerCommand"; }
};

// "verify"
class VerifyCommand final : public RepositoryCommand {
 public:
  std::string className() const override { return "VerifyCommand"; }
};

// "reindex"
class ReindexCommand final : public RepositoryCommand {
 public:
  std::string className() const override { return "ReindexCommand"; }
};

// "compact"
class CompactCommand final : public RepositoryCommand, public virtual CompactCommandMessaging {
 public:
  void queryMinimumFreeRatioWithReply(xpc::Reply<double> reply) override;
  void setMinimumFreeRatio(double ratio) override;
  std::string className() const override { return "CompactCommand"; }
};

// "repair"
class RepairCommand final : public RepositoryCommand, public virtual RepairCommandMessaging {
 public:
  void setRecoveryRepositoryPath(std::optional<std::string> path) override;
  void setUseAutoRepair(bool use) override;
  void setRecoverLostFiles(bool recover) override;
  void setRecoverCorruptFiles(bool recover) override;
  void setStripData(bool strip) override;
  void setCorrectionMode(std::int32_t mode) override;
  std::string className() const override { return "RepairCommand"; }
};

// "encrypt": subcommand 0 encrypts, 1 decrypts, any other changes the passphrase.
class EncryptCommand final : public RepositoryCommand, public virtual EncryptCommandMessaging {
 public:
  void setSubcommand(std::int32_t subcommand) override;
  void querySubcommandithReply(xpc::Reply<std::int32_t> reply) override;
  void queryHumanReadableEncryptVerbReply(xpc::Reply<std::string> reply) override;
  void setPassphrase(std::optional<std::string> passphrase) override;
  std::string className() const override { return "EncryptCommand"; }

 private:
  std::int32_t subcommand() const;
};

// "correction"
class CorrectionCommand final : public RepositoryCommand,
                                public virtual CorrectionCommandMessaging {
 public:
  void queryVersionWithReply(xpc::Reply<std::uint64_t> reply) override;
  void setVersion(std::uint64_t version) override;
  void queryConfigurationIndexWithReply(xpc::Reply<std::uint64_t> reply) override;
  void setConfigurationIndex(std::uint64_t index) override;
  std::string className() const override { return "CorrectionCommand"; }

 private:
  std::uint64_t number(const char* property) const;
};

}  // namespace hoist::example
