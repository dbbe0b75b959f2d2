// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "RepositoryCommand.h"
#include "connection/protocols/DumpCommandMessaging.h"

namespace hoist::example {

// "dump": writes what it was told, one property a line, to its output.
class DumpCommand final : public RepositoryCommand, public virtual DumpCommandMessaging {
 public:
  void setSubcommand(std::int32_t subcommand) override;
  void setDumpFlags(std::uint16_t flags, std::int64_t set) override;
  void clearDumpFlags(std::uint16_t flags, std::int64_t set) override;
  void listNodeIdentifiedBy(Ref<Object> node) override;
  void setIncludeDeleted(bool include) override;
  void setColumnFormat(std::vector<std::string> columns) override;
  void setDateStyle(std::uint64_t dateStyle, std::uint64_t timeStyle) override;
  void setSizeStyle(std::int32_t style) override;
  void setOutputFile(std::optional<std::string> path) override;
  void setOutputFileHandle(std::optional<FileDescriptor> file) override;
  std::string className() const override { return "DumpCommand"; }

 protected:
  void produce() override;

 private:
  void changeFlags(std::uint16_t flags, std::int64_t set, bool on);

  Mutex outputMutex_;
  FileDescriptor output_ GUARDED_BY(outputMutex_);
};

}  // namespace hoist::example
