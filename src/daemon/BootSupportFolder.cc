// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "daemon/TesselHoister.h"
#include "logging/Logger.h"

namespace hoist {

void TesselHoister::createBootApplicationSupportPathForUser() {
  Logger::log(classification::Failure, "the support folder cannot be made by this build");
}

}  // namespace hoist
