// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "Commands.h"

#include "DumpCommand.h"
#include "HelperValues.h"
#include "InstallCommand.h"
#include "ItemCommands.h"
#include "RepositoryCommands.h"
#include "exceptions/KLException.h"
#include "filesystem/PXPath.h"
#include "filesystem/PXVolumeInfo.h"
#include "logging/Logger.h"
#include "values/ClassRegistry.h"

namespace hoist::example {
namespace {

template <class... Commands>
void registerCommands() {
  (ClassRegistry::shared().add(
       {.name = Commands().className(), .create = [] { return make<Commands>(); }}),
   ...);
}

}  // namespace

void registerClasses() {
  Logger::registerClasses();
  KLException::registerClass();
  PXPath::registerClasses();
  PXVolumeInfo::registerClass();
  HelperValue::registerClasses();
  registerCommands<InstallCommand, CreateRepositoryCommand, CaptureCommand, RestoreCommand,
                   RecallCommand, MergeCommand, CombineCommand, DeleteLayerCommand,
                   DeleteItemCommand, CompactCommand, VerifyCommand, EncryptCommand,
                   CorrectionCommand, ReindexCommand, RepairCommand, DumpCommand>();
}

Ref<ExampleCommand> makeCommand(const std::string& name, const std::vector<std::string>& flags) {
  auto found = CommandInfo::classForCommandName(name);
  auto command = found && found->create ? as<ExampleCommand>(found->create()) : nullptr;
  if (command) command->prepare(flags);
  return command;
}

}  // namespace hoist::example
