// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "platform/xpc/Protocol.h"

namespace hoist::xpc {

// What an object at "/" answers to Introspect: an interface for the protocol and for each that it
// adopts, without the optional operations that the object leaves out, and the standard interfaces.
// An argument that may be nil has the annotation "<prefix>.Nilable". Without a protocol: the
// standard interfaces alone. Source of the format: the D-Bus specification, "Introspection Data
// Format".
std::string introspectionText(const Protocol* protocol, const Exportable* object);

}  // namespace hoist::xpc
