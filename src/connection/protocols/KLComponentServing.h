// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "connection/protocols/KLComponentInstalling.h"
#include "connection/protocols/KLComponentMessaging.h"
#include "platform/xpc/Protocol.h"

namespace hoist {

// A component that serves others; it has no operations of its own.
class KLComponentServing : public virtual KLComponentMessaging,
                           public virtual KLComponentInstalling {};

const xpc::Protocol& klComponentServingProtocol();

}  // namespace hoist
