# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
import array
import socket
import sys

from jeepney import DBusAddress, new_method_call
from jeepney.auth import BEGIN, Authenticator
from jeepney.io.blocking import DBusConnection, prep_socket
from jeepney.wrappers import unwrap_msg


def ask(connection, interface, method, signature=None, arguments=()):
    """The values of the answer, however long it takes."""
    address = DBusAddress("/", bus_name="com.kelvo.hoist", interface="com.kelvo." + interface)
    return unwrap_msg(connection.send_and_get_reply(new_method_call(address, method, signature, arguments)))


def connect_through(endpoint):
    """Passes one end of a socket pair over the endpoint; the other end is a connection to the helper."""
    mine, theirs = socket.socketpair()
    with socket.socket(fileno=endpoint.to_raw_fd()) as door:
        door.sendmsg([b"C"], [(socket.SOL_SOCKET, socket.SCM_RIGHTS, array.array("i", [theirs.fileno()]))])
    theirs.close()
    authenticator = Authenticator(enable_fds=True)
    for request in authenticator:
        mine.sendall(request)
        authenticator.feed(mine.recv(1024))
    mine.sendall(BEGIN)
    return DBusConnection(mine, enable_fds=True)


executable, command = sys.argv[1:]
hoist = DBusConnection(prep_socket("/run/kelvo/com.kelvo.hoist", enable_fds=True), enable_fds=True)
names, endpoints = ask(hoist, "TesselHoisting", "launchPrivilegedHelper_commandName_flags_reply_", "ssas",
                       (executable, command, ["seconds=0"]))
if not endpoints:
    sys.exit("no helper was launched")
exception, = ask(connect_through(endpoints[0]), "CommandMessaging", "runWithReply_")
print("failed" if exception else "finished")
