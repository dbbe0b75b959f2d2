// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "DumpCommand.h"

#include <fmt/format.h>
#include <unistd.h>

#include "platform/SystemCall.h"

namespace hoist::example {

namespace {

void writeAll(int file, std::string_view text) {
  while (!text.empty()) {
    ssize_t put = retryInterrupted([&] { return ::write(file, text.data(), text.size()); });
    if (put < 0) KLException::ioErrnoWithReason("cannot write the dump").setAPI("write").raise();
    text.remove_prefix(static_cast<std::size_t>(put));
  }
}

}  // namespace

// The file is made by whoever holds its descriptor: a path given by a client is opened by nobody
// here, because this process has rights that the client has not.
void DumpCommand::produce() {
  std::string text;
  for (const auto& [property, value] : properties())
    if (property != "password") text += fmt::format("{} = {}\n", property, value.description());
  MutexLock lock(outputMutex_);
  if (output_) writeAll(output_.get(), text);
}

// One property for each set of flags.
void DumpCommand::changeFlags(std::uint16_t flags, std::int64_t set, bool on) {
  std::string property = fmt::format("dumpFlags.{}", set);
  auto kept = get(property.c_str());
  auto before = static_cast<std::uint16_t>(kept ? kept->integerValue().value_or(0) : 0);
  this->set(property.c_str(), on ? before | flags : before & ~flags);
}

void DumpCommand::setSubcommand(std::int32_t subcommand) {
  set("subcommand", subcommand);
}

void DumpCommand::setDumpFlags(std::uint16_t flags, std::int64_t set) {
  changeFlags(flags, set, true);
}

void DumpCommand::clearDumpFlags(std::uint16_t flags, std::int64_t set) {
  changeFlags(flags, set, false);
}

void DumpCommand::listNodeIdentifiedBy(Ref<Object> node) {
  add("nodeIdentifiedBy", node);
}

void DumpCommand::setIncludeDeleted(bool include) {
  set("includeDeleted", include);
}

void DumpCommand::setColumnFormat(std::vector<std::string> columns) {
  set("columnFormat", Value(Array(columns.begin(), columns.end())));
}

void DumpCommand::setDateStyle(std::uint64_t dateStyle, std::uint64_t timeStyle) {
  set("dateStyle", dateStyle);
  set("timeStyle", timeStyle);
}

void DumpCommand::setSizeStyle(std::int32_t style) {
  set("sizeStyle", style);
}

void DumpCommand::setOutputFile(std::optional<std::string> path) {
  set("outputFile", std::move(path));
}

void DumpCommand::setOutputFileHandle(std::optional<FileDescriptor> file) {
  MutexLock lock(outputMutex_);
  output_ = file ? std::move(*file) : FileDescriptor();
}

}  // namespace hoist::example
