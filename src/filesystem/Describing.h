// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <fmt/format.h>

#include <string>

#include "filesystem/PXFileInfo.h"
#include "logging/Logger.h"

namespace hoist {

// For what only describes an item, which does not raise: what the code answers, else the fallback
// and a line for debugging.
template <class Code>
std::string describing(const char* method, const PXFileInfo& info, const std::string& fallback,
                       const Code& code) {
  try {
    return code();
  } catch (const Exception& exception) {
    Logger::log(classification::Debug, [&] {
      return fmt::format("{} can't describe {} ({})", method, info.path(), exception.description());
    });
    return fallback;
  }
}

}  // namespace hoist
