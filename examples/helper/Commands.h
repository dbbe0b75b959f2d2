// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "ExampleCommand.h"

namespace hoist::example {

// Makes the classes of the sixteen commands, and those of the values that they take, known to the
// class registry. Called once, before any command is made.
void registerClasses();

// The command of that name, prepared with the flags; null when there is none.
Ref<ExampleCommand> makeCommand(const std::string& name, const std::vector<std::string>& flags);

}  // namespace hoist::example
