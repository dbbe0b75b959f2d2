// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Names and texts that D-Bus knows, and the rules for those that it does not. Everything here is
// pure and may be called from any thread. Source of rules and constants: the D-Bus specification,
// "Valid Names" and "Standard Interfaces".
namespace hoist::dbus {

// Bytes that an interface, member, error or bus name may have.
inline constexpr std::size_t kMaximumNameLength = 255;

// UTF-8 without overlong forms, surrogates, values above U+10FFFF and NUL.
bool isValidText(std::string_view text);
// The text with U+FFFD in the place of each byte that keeps it from being valid.
std::string mendedText(std::string_view text);
// "/" or "/a/b_1": elements of [A-Za-z0-9_], none empty, no slash at the end.
bool isValidObjectPath(std::string_view path);
// At least two elements of [A-Za-z_][A-Za-z0-9_]*, separated by dots.
bool isValidInterfaceName(std::string_view name);
// One such element.
bool isValidMemberName(std::string_view name);
// An interface name, or one with hyphens, or a unique name (":1.42").
bool isValidBusName(std::string_view name);
inline bool isValidErrorName(std::string_view name) {
  return isValidInterfaceName(name);
}

namespace names {
inline constexpr std::string_view kBus = "org.freedesktop.DBus";  // bus name and interface
inline constexpr std::string_view kBusPath = "/org/freedesktop/DBus";
inline constexpr std::string_view kPeer = "org.freedesktop.DBus.Peer";
inline constexpr std::string_view kIntrospectable = "org.freedesktop.DBus.Introspectable";
inline constexpr std::string_view kProperties = "org.freedesktop.DBus.Properties";
// Reserved for what a library tells its own program; never seen on the wire.
inline constexpr std::string_view kLocal = "org.freedesktop.DBus.Local";
inline constexpr std::string_view kLocalPath = "/org/freedesktop/DBus/Local";
}  // namespace names

namespace errors {
inline constexpr std::string_view kFailed = "org.freedesktop.DBus.Error.Failed";
inline constexpr std::string_view kNoMemory = "org.freedesktop.DBus.Error.NoMemory";
inline constexpr std::string_view kNoReply = "org.freedesktop.DBus.Error.NoReply";
inline constexpr std::string_view kDisconnected = "org.freedesktop.DBus.Error.Disconnected";
inline constexpr std::string_view kAccessDenied = "org.freedesktop.DBus.Error.AccessDenied";
inline constexpr std::string_view kLimitsExceeded = "org.freedesktop.DBus.Error.LimitsExceeded";
inline constexpr std::string_view kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
inline constexpr std::string_view kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
inline constexpr std::string_view kUnknownObject = "org.freedesktop.DBus.Error.UnknownObject";
inline constexpr std::string_view kUnknownInterface = "org.freedesktop.DBus.Error.UnknownInterface";
inline constexpr std::string_view kUnknownProperty = "org.freedesktop.DBus.Error.UnknownProperty";
inline constexpr std::string_view kNameHasNoOwner = "org.freedesktop.DBus.Error.NameHasNoOwner";
inline constexpr std::string_view kNotSupported = "org.freedesktop.DBus.Error.NotSupported";
inline constexpr std::string_view kTimeout = "org.freedesktop.DBus.Error.Timeout";
}  // namespace errors

}  // namespace hoist::dbus
