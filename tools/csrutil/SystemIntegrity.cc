// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
//
// The two Linux facilities that stand nearest to a system that protects itself from its root user:
//
// - lockdown: /sys/kernel/security/lockdown names the modes with the one in force in brackets, like
//   "none [integrity] confidentiality" (kernel_lockdown(7)).
// - Secure Boot: the variables of the UEFI specification, as files of four bytes of attributes and
// the
//   value. It is enforced when SecureBoot is 1 and SetupMode is not; a machine whose owner told the
//   first-stage loader not to verify (MokSBStateRT is 1 and not kept over a restart) counts as not
//   enforcing, as it does for the kernel (drivers/firmware/efi/libstub/secureboot.c).
#include "csrutil/SystemIntegrity.h"

#include <fmt/format.h>

#include <cstdint>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

namespace hoist::csrutil {
namespace {

constexpr std::string_view kGlobalVariables = "8be4df61-93ca-11d2-aa0d-00e098032b8c";
constexpr std::string_view kLoaderVariables = "605dab50-e046-4300-abb6-3dd810dd8b23";
constexpr std::uint8_t kNonVolatile = 1;  // lowest bit of the attributes

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool isLockedDown(const std::string& sysfs) {
  const std::string modes = contents(sysfs + "/kernel/security/lockdown");
  return modes.find("[integrity]") != std::string_view::npos ||
         modes.find("[confidentiality]") != std::string_view::npos;
}

struct FirmwareVariable {
  std::uint8_t attributes;
  std::uint8_t value;
};

std::optional<FirmwareVariable> variable(const std::string& sysfs, std::string_view name,
                                         std::string_view vendor) {
  const std::string bytes =
      contents(fmt::format("{}/firmware/efi/efivars/{}-{}", sysfs, name, vendor));
  if (bytes.size() != 5) return std::nullopt;
  return FirmwareVariable{static_cast<std::uint8_t>(bytes[0]), static_cast<std::uint8_t>(bytes[4])};
}

bool isSecureBootEnforced(const std::string& sysfs) {
  const auto secureBoot = variable(sysfs, "SecureBoot", kGlobalVariables);
  const auto setupMode = variable(sysfs, "SetupMode", kGlobalVariables);
  if (!secureBoot || secureBoot->value != 1 || (setupMode && setupMode->value == 1)) return false;
  const auto unverified = variable(sysfs, "MokSBStateRT", kLoaderVariables);
  return !(unverified && (unverified->attributes & kNonVolatile) == 0 && unverified->value == 1);
}

}  // namespace

bool isSystemIntegrityProtected(const std::string& sysfs) {
  return isLockedDown(sysfs) || isSecureBootEnforced(sysfs);
}

std::string statusText(bool isProtected) {
  return fmt::format("System Integrity Protection status: {}.",
                     isProtected ? "enabled" : "disabled");
}

}  // namespace hoist::csrutil
