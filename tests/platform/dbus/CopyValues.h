// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"

namespace hoist::dbus {

// Copies every value that the reader has left, by the types that they have.
void copyValues(MessageReader& reader, MessageWriter& writer);

// The message written anew by us, in our byte order.
OutgoingMessage rewritten(Message& message);

}  // namespace hoist::dbus
