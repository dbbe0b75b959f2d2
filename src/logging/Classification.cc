// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "logging/Classification.h"

#include <algorithm>
#include <array>

namespace hoist::classification {
namespace {

// Seven characters each, so that the columns of a log line up.
constexpr std::array<std::string_view, 10> kNames = {
    "       ", "-------", "Curious", "Caution", "Warning",
    "Failure", "Minutia", "Details", "Subrosa", "#debug#",
};

}  // namespace

std::string_view name(Classification classification) {
  bool known = classification >= 0 && classification < static_cast<Classification>(kNames.size());
  return kNames[known ? classification : Debug];
}

Classification fromName(std::string_view name) {
  auto found = std::find(kNames.begin(), kNames.end(), name);
  return found == kNames.end() ? -1 : static_cast<Classification>(found - kNames.begin());
}

}  // namespace hoist::classification
