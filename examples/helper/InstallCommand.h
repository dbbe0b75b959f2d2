// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ExampleCommand.h"
#include "connection/protocols/InstallCommandMessaging.h"

namespace hoist::example {

// "install". The interface that it is served through says which classes its parameters may hold.
class InstallCommand final : public ExampleCommand, public virtual InstallCommandMessaging {
 public:
  void setInstallParameters(Dictionary parameters) override;
  std::string className() const override { return "InstallCommand"; }
};

}  // namespace hoist::example
