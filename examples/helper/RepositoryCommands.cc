// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "RepositoryCommands.h"

namespace hoist::example {

std::int32_t EncryptCommand::subcommand() const {
  auto number = get("subcommand");
  return number ? static_cast<std::int32_t>(number->integerValue().value_or(0)) : 0;
}

std::uint64_t CorrectionCommand::number(const char* property) const {
  auto number = get(property);
  return number ? static_cast<std::uint64_t>(number->integerValue().value_or(0)) : 0;
}

void CreateRepositoryCommand::setSettings(Dictionary settings) {
  set("settings", std::move(settings));
}

void CaptureCommand::addTargetPath(Ref<Object> path) {
  add("targetPath", path);
}

void CaptureCommand::setIgnoreHistory(bool ignore) {
  set("ignoreHistory", ignore);
}

void CaptureCommand::setDeferDeDup(bool defer) {
  set("deferDeDup", defer);
}

void CaptureCommand::setDisableSnapshots(bool disable) {
  set("disableSnapshots", disable);
}

void MergeCommand::setRetainDeletedItemsDate(std::optional<Date> date) {
  set("retainDeletedItemsDate", date);
}

void CompactCommand::queryMinimumFreeRatioWithReply(xpc::Reply<double> reply) {
  auto ratio = get("minimumFreeRatio");
  reply(ratio ? ratio->doubleValue().value_or(0) : 0);
}

void CompactCommand::setMinimumFreeRatio(double ratio) {
  set("minimumFreeRatio", ratio);
}

void RepairCommand::setRecoveryRepositoryPath(std::optional<std::string> path) {
  set("recoveryRepositoryPath", std::move(path));
}

void RepairCommand::setUseAutoRepair(bool use) {
  set("useAutoRepair", use);
}

void RepairCommand::setRecoverLostFiles(bool recover) {
  set("recoverLostFiles", recover);
}

void RepairCommand::setRecoverCorruptFiles(bool recover) {
  set("recoverCorruptFiles", recover);
}

void RepairCommand::setStripData(bool strip) {
  set("stripData", strip);
}

void RepairCommand::setCorrectionMode(std::int32_t mode) {
  set("correctionMode", mode);
}

void EncryptCommand::setSubcommand(std::int32_t subcommand) {
  set("subcommand", subcommand);
}

void EncryptCommand::querySubcommandithReply(xpc::Reply<std::int32_t> reply) {
  reply(subcommand());
}

void EncryptCommand::queryHumanReadableEncryptVerbReply(xpc::Reply<std::string> reply) {
  reply(subcommand() == 0 ? "Encrypt" : subcommand() == 1 ? "Decrypt" : "Change Passphrase");
}

void EncryptCommand::setPassphrase(std::optional<std::string> passphrase) {
  setSecret("passphrase", std::move(passphrase));
}

void CorrectionCommand::queryVersionWithReply(xpc::Reply<std::uint64_t> reply) {
  reply(number("version"));
}

void CorrectionCommand::setVersion(std::uint64_t version) {
  set("version", version);
}

void CorrectionCommand::queryConfigurationIndexWithReply(xpc::Reply<std::uint64_t> reply) {
  reply(number("configurationIndex"));
}

void CorrectionCommand::setConfigurationIndex(std::uint64_t index) {
  set("configurationIndex", index);
}

}  // namespace hoist::example
