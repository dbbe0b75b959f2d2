// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "connection/protocols/RepositoryCommandMessaging.h"
#include "platform/FileDescriptor.h"
#include "platform/xpc/Protocol.h"
#include "values/Value.h"

namespace hoist {

// The command "dump".
class DumpCommandMessaging : public virtual RepositoryCommandMessaging {
 public:
  virtual void setSubcommand(std::int32_t subcommand) = 0;
  // setDumpFlags:inSet:
  virtual void setDumpFlags(std::uint16_t flags, std::int64_t set) = 0;
  // clearDumpFlags:inSet:
  virtual void clearDumpFlags(std::uint16_t flags, std::int64_t set) = 0;
  virtual void listNodeIdentifiedBy(Ref<Object> node) = 0;
  virtual void setIncludeDeleted(bool include) = 0;
  virtual void setColumnFormat(std::vector<std::string> columns) = 0;
  // setDateStyle:timeStyle:
  virtual void setDateStyle(std::uint64_t dateStyle, std::uint64_t timeStyle) = 0;
  virtual void setSizeStyle(std::int32_t style) = 0;
  virtual void setOutputFile(std::optional<std::string> path) = 0;
  virtual void setOutputFileHandle(std::optional<FileDescriptor> file) = 0;
};

const xpc::Protocol& dumpCommandMessagingProtocol();

}  // namespace hoist
