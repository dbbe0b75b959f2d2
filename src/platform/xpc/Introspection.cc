// SPDX-FileCopyrightText: The hoist authors
// SPDX-License-Identifier: Apache-2.0
#include "platform/xpc/Introspection.h"

#include <fmt/format.h>

#include "values/product.h"

namespace hoist::xpc {
namespace {

constexpr std::string_view kHead =
    "<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
    " \"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n"
    "<node>\n";

constexpr std::string_view kStandardInterfaces =
    " <interface name=\"org.freedesktop.DBus.Peer\">\n"
    "  <method name=\"Ping\"/>\n"
    "  <method name=\"GetMachineId\">\n"
    "   <arg type=\"s\" name=\"machine_uuid\" direction=\"out\"/>\n"
    "  </method>\n"
    " </interface>\n"
    " <interface name=\"org.freedesktop.DBus.Introspectable\">\n"
    "  <method name=\"Introspect\">\n"
    "   <arg type=\"s\" name=\"xml_data\" direction=\"out\"/>\n"
    "  </method>\n"
    " </interface>\n"
    "</node>\n";

void appendArgument(std::string& text, const Argument& argument, std::string_view direction) {
  text += fmt::format("   <arg type=\"{}\" name=\"{}\" direction=\"{}\"", argument.signature,
                      argument.name, direction);
  if (argument.nilable) {
    text += fmt::format(">\n    <annotation name=\"{}.Nilable\" value=\"true\"/>\n   </arg>\n",
                        product::kIdentifierPrefix);
  } else {
    text += "/>\n";
  }
}

void appendMethod(std::string& text, const Method& method) {
  text += fmt::format("  <method name=\"{}\"", method.member);
  if (method.arguments.empty() && method.results.empty()) {
    text += "/>\n";
    return;
  }
  text += ">\n";
  for (const auto& argument : method.arguments) appendArgument(text, argument, "in");
  for (const auto& result : method.results) appendArgument(text, result, "out");
  text += "  </method>\n";
}

void appendInterface(std::string& text, const Protocol& protocol, const Exportable* object) {
  text += fmt::format(" <interface name=\"{}\">\n", protocol.interfaceName());
  for (const Method& method : protocol.methods()) {
    if (method.optional && !(object && object->respondsToSelector(method.selector))) continue;
    appendMethod(text, method);
  }
  text += " </interface>\n";
}

}  // namespace

std::string introspectionText(const Protocol* protocol, const Exportable* object) {
  std::string text(kHead);
  if (protocol) {
    for (const Protocol* one : protocol->closure()) appendInterface(text, *one, object);
  }
  text += kStandardInterfaces;
  return text;
}

}  // namespace hoist::xpc
