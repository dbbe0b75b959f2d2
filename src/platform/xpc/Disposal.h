// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/FileDescriptor.h"
#include "platform/dbus/Message.h"
#include "values/Ref.h"

// For threads that serve everybody: closing what somebody else has made may take as long as he
// likes. Nothing here waits for it. Any thread.
namespace hoist::xpc {

// Closes a socket of the Unix family whose messages were perhaps not all received.
void closeUnread(FileDescriptor socket);

// Closes descriptors of any kind, one call's after the other's.
void closeElsewhere(Ref<dbus::FileDescriptors> descriptors);

}  // namespace hoist::xpc
