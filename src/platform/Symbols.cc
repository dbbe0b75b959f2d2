// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/Symbols.h"

#include <dlfcn.h>
#include <fmt/format.h>

namespace hoist {
namespace {

std::string describePointer(const void* pointer) {
  return describeAddress(reinterpret_cast<std::uintptr_t>(pointer));
}

}  // namespace

std::string describeAddress(std::uintptr_t address) {
  return fmt::format("{:>18}", fmt::format("{:#x}", address));
}

std::string describeSymbol(std::uintptr_t address) {
  Dl_info info{};
  if (!::dladdr(reinterpret_cast<const void*>(address), &info)) return "(unknown image)";
  return fmt::format("{} {} ({}@{})", describePointer(info.dli_saddr),
                     info.dli_sname ? info.dli_sname : "unknown", info.dli_fname,
                     describePointer(info.dli_fbase));
}

}  // namespace hoist
