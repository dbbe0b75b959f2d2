// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string_view>

#include "platform/xpc/Peer.h"

namespace hoist::xpc {

// Names a peer that was refused or dropped in the log, with what it did; control characters and
// what goes beyond 500 bytes are not shown. A user who misbehaves all the time gets 20 lines in 10
// seconds, then one with the number of those that were left out. Any thread.
void reportPeer(const Peer& peer, std::string_view what);

}  // namespace hoist::xpc
