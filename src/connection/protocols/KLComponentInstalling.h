// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>

#include "platform/xpc/Exportable.h"
#include "platform/xpc/Protocol.h"
#include "platform/xpc/Reply.h"

namespace hoist {

// What installers ask of a component.
class KLComponentInstalling : public virtual xpc::Exportable {
 public:
  virtual void queryComponentVersionWithReply(xpc::Reply<std::string> reply) = 0;
  virtual void queryBuildNumberWithReply(xpc::Reply<std::uint32_t> reply) = 0;
  // Optional.
  virtual void didInstallComponent() {}
  // Optional.
  virtual void willUninstallComponent() {}
};

const xpc::Protocol& klComponentInstallingProtocol();

}  // namespace hoist
