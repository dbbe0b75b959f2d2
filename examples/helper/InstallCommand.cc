// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "InstallCommand.h"

namespace hoist::example {

void InstallCommand::setInstallParameters(Dictionary parameters) {
  set("installParameters", std::move(parameters));
}

}  // namespace hoist::example
