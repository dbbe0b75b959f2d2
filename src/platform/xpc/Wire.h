// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/FileDescriptor.h"
#include "platform/xpc/ArgumentReader.h"
#include "platform/xpc/ArgumentWriter.h"
#include "platform/xpc/Endpoint.h"
#include "values/Coder.h"
#include "values/Value.h"

// The C++ types that may stand in an operation's signature, and how each crosses.
namespace hoist::xpc {

// signature(): the D-Bus type. nilable: whether it may be nil. Not defined for a type that cannot
// cross.
template <class T>
struct Wire;

#define HOIST_WIRE_TYPE(Type, dbusType, name)                                                   \
  template <>                                                                                   \
  struct Wire<Type> {                                                                           \
    static constexpr bool nilable = false;                                                      \
    static std::string signature() { return dbusType; }                                         \
    static void write(ArgumentWriter& writer, const Type& value) { writer.write##name(value); } \
    static Type read(ArgumentReader& reader) { return reader.read##name(); }                    \
  }
HOIST_WIRE_TYPE(bool, "b", Bool);
HOIST_WIRE_TYPE(std::int32_t, "i", Int32);
HOIST_WIRE_TYPE(std::uint32_t, "u", UInt32);
HOIST_WIRE_TYPE(std::uint16_t, "q", UInt16);
HOIST_WIRE_TYPE(std::int64_t, "x", Int64);
HOIST_WIRE_TYPE(std::uint64_t, "t", UInt64);
HOIST_WIRE_TYPE(double, "d", Double);
HOIST_WIRE_TYPE(std::string, "s", String);
HOIST_WIRE_TYPE(std::vector<std::string>, "as", Strings);
HOIST_WIRE_TYPE(std::vector<std::int32_t>, "ai", Int32s);
HOIST_WIRE_TYPE(Dictionary, "a{sv}", Dictionary);
#undef HOIST_WIRE_TYPE

template <>
struct Wire<Data> {
  static constexpr bool nilable = false;
  static std::string signature() { return "ay"; }
  static void write(ArgumentWriter& writer, const Data& value) { writer.writeData(value.bytes()); }
  static Data read(ArgumentReader& reader) { return reader.readData(); }
};

// Seconds since 1970-01-01 UTC.
template <>
struct Wire<Date> {
  static constexpr bool nilable = false;
  static std::string signature() { return "d"; }
  static void write(ArgumentWriter& writer, const Date& value) {
    writer.writeDouble(value.secondsSince1970());
  }
  static Date read(ArgumentReader& reader) { return Date::fromSeconds(reader.readDouble()); }
};

template <>
struct Wire<FileDescriptor> {
  static constexpr bool nilable = false;
  static std::string signature() { return "h"; }
  static void write(ArgumentWriter& writer, const FileDescriptor& value) {
    writer.writeDescriptor(value.get());
  }
  static FileDescriptor read(ArgumentReader& reader) { return reader.readDescriptor(); }
};

template <>
struct Wire<Endpoint> {
  static constexpr bool nilable = false;
  static std::string signature() { return "h"; }
  static void write(ArgumentWriter& writer, const Endpoint& value) {
    writer.writeDescriptor(value.descriptor());
  }
  static Endpoint read(ArgumentReader& reader) {
    return Endpoint::fromDescriptor(reader.readDescriptor());
  }
};

// An object of a coded class; which classes are admitted stands in the method's declaration or in
// the interface. Never null: what may be nil is an optional.
template <class T>
requires std::is_base_of_v<Object, T>
struct Wire<Ref<T>> {
  static constexpr bool nilable = false;
  static std::string signature() { return "(sa{sv})"; }
  static void write(ArgumentWriter& writer, const Ref<T>& value) { writer.writeObject(value); }
  static Ref<T> read(ArgumentReader& reader) {
    auto object = as<T>(reader.readObject());
    if (!object) throw DecodeError("the object is of another class than its argument");
    return object;
  }
};

// What may be nil: an array of at most one element.
template <class T>
struct Wire<std::optional<T>> {
  static constexpr bool nilable = true;
  static std::string signature() { return "a" + Wire<T>::signature(); }
  static void write(ArgumentWriter& writer, const std::optional<T>& value) {
    writer.openNilable();
    if (value) Wire<T>::write(writer, *value);
    writer.closeNilable();
  }
  static std::optional<T> read(ArgumentReader& reader) {
    std::optional<T> value;
    if (reader.enterNilable()) value.emplace(Wire<T>::read(reader));
    reader.leaveNilable();
    return value;
  }
};

}  // namespace hoist::xpc
