// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/xpc/Connection.h"
#include "platform/xpc/Interface.h"

namespace hoist {

// The class operation of a server class, which the class registry holds as the class object.
class KLConnectionObjectFactory {
 public:
  virtual ~KLConnectionObjectFactory() = default;

  // The object that serves the connection, shared with other connections or not; null refuses it.
  // The interface is the connection's own and may be adjusted. Called on the listener's thread.
  // serverObjectForConnection:customizingInterface:
  virtual Ref<xpc::Exportable> serverObjectForConnection(const Ref<xpc::Connection>& connection,
                                                         xpc::Interface& interface) = 0;
};

}  // namespace hoist
