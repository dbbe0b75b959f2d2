# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""Has a helper launched and talks to it, with nothing but a D-Bus library: HELPER-EXECUTABLE COMMAND.

Prints what it was answered, a line each: the service name, the helper's own name for its command, its process.
"""
import array
import socket
import sys

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

ADDRESS = "unix:path=/run/kelvo/com.kelvo.hoist"
CLIENT = Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT


def ask(connection, interface, method, signature="()"):
    answer = connection.call_sync(None, "/", "com.kelvo." + interface, method, None,
                                  GLib.VariantType(signature), Gio.DBusCallFlags.NONE, 5000, None)
    return answer.unpack()


def connect_through(endpoint):
    """Passes one end of a socket pair over the endpoint; the other end is a connection to the helper."""
    mine, theirs = socket.socketpair(socket.AF_UNIX, socket.SOCK_STREAM)
    door = socket.socket(fileno=endpoint)
    door.sendmsg([b"C"], [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", [theirs.fileno()]))])
    theirs.close()
    connection = Gio.Socket.new_from_fd(mine.detach()).connection_factory_create_connection()
    return Gio.DBusConnection.new_sync(connection, None, CLIENT, None, None)


def main():
    hoist = Gio.DBusConnection.new_for_address_sync(ADDRESS, CLIENT, None, None)
    answer, descriptors = hoist.call_with_unix_fd_list_sync(
        None, "/", "com.kelvo.TesselHoisting", "launchPrivilegedHelper_commandName_flags_reply_",
        GLib.Variant("(ssas)", (sys.argv[1], sys.argv[2], [])), GLib.VariantType("(asah)"),
        Gio.DBusCallFlags.NONE, 30000, None, None)
    names, endpoints = answer.unpack()
    if not names:
        sys.exit("the launch failed")
    print(names[0])
    helper = connect_through(descriptors.steal_fds()[endpoints[0]])
    print(ask(helper, "CommandMessaging", "queryNameWithReply_", "(s)")[0])
    print(ask(helper, "CommandMessaging", "queryProcessIdentifierWithReply_", "(s)")[0])


main()
