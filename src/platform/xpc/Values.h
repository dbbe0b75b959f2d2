// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/dbus/MessageReader.h"
#include "platform/dbus/MessageWriter.h"
#include "values/Coder.h"
#include "values/Value.h"

// How values and coded objects cross: a{sv} for a dictionary, (sa{sv}) for an object, and inside a
// variant b, x, d, s, ay, av, a{sv}, h and (sa{sv}). A date is the object "NSDate" with its field
// "seconds" (d, since 1970-01-01 UTC), the null marker the object "NSNull" without fields. A
// variant that comes in may also hold integers of other widths and arrays of one type, which is
// what other libraries send when nobody tells them otherwise.
namespace hoist::xpc {

// Throw dbus::EncodingError for what cannot cross.
void writeDictionary(dbus::MessageWriter& writer, const Dictionary& dictionary);
void writeObject(dbus::MessageWriter& writer, const Object& object);
void writeString(dbus::MessageWriter& writer, std::string_view text);

// Make only objects of the allowed classes, at any depth; values count as objects of the classes
// that Value::className names, and a boolean passes where a number does. Throw dbus::TypeError or
// DecodeError.
Dictionary readDictionary(dbus::MessageReader& reader, const AllowedClasses& allowed);
Ref<Object> readObject(dbus::MessageReader& reader, const AllowedClasses& allowed);

}  // namespace hoist::xpc
