# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""The test protocol by jeepney (python3-jeepney), an implementation of D-Bus that is Python alone.

usage: jeepney_peer.py client|server SOCKET

The client calls the test service, says what each call has come to, and ends with 0 if all came to what they should. The
server says "ready" and answers one client's calls with their own arguments, until the client goes.
"""
import os
import socket
import sys

from jeepney import DBusAddress, MessageType, Properties, new_error, new_method_call, new_method_return
from jeepney.io.blocking import DBusConnection, DBusConnectionBase, prep_socket
from jeepney.low_level import HeaderFields
from jeepney.wrappers import unwrap_msg

TALKER = DBusAddress("/", bus_name="com.kelvo.test", interface="com.kelvo.Talking")
VALUES = {"true": ("b", True), "number": ("x", -2**63), "text": ("s", "Grüße"), "data": ("ay", b"\0\xff"),
          "list": ("av", [("d", 0.5), ("a{sv}", {"deep": ("s", "er")})])}


def call_service(path):
    connection = DBusConnection(prep_socket(path, enable_fds=True, timeout=30), enable_fds=True)

    def ask(member, signature=None, values=(), interface=TALKER):
        return connection.send_and_get_reply(new_method_call(interface, member, signature, values), timeout=30)

    print("unique name", connection.unique_name)
    answer = unwrap_msg(ask("echoText_strings_data_processes_reply_", "sasayai", ("ä", ["a", ""], b"\0\1", [-1, 7])))
    assert answer == ("ä", ["a", ""], b"\0\1", [-1, 7]), answer
    answer = unwrap_msg(ask("echoDictionary_date_reply_", "a{sv}d", (VALUES, 2.5)))
    assert answer == (VALUES, 2.5), answer
    reading, writing = os.pipe()
    objects = [("NSError", {"NSDomain": ("s", "D"), "NSCode": ("x", 5)})]
    texts, data, files, errors = unwrap_msg(ask("echoText_data_file_object_reply_", "asaayaha(sa{sv})",
                                                (["here"], [], [writing], objects)))
    assert (texts, data, errors[0][0]) == (["here"], [], "NSError"), (texts, data, errors)
    os.write(files[0].to_raw_fd(), b"through")
    assert os.read(reading, 100) == b"through"
    refused = ask("note_", "u", (1,))
    assert refused.header.message_type == MessageType.error
    print(refused.header.fields[HeaderFields.error_name], refused.body[0])
    read_all = new_method_call(DBusAddress("/", bus_name="com.kelvo.test"), "echoBool_i_u_q_x_t_d_reply_", "biuqxtd",
                               (True, -2**31, 2**32 - 1, 2**16 - 1, -2**63, 2**64 - 1, 0.5))
    assert unwrap_msg(connection.send_and_get_reply(read_all, timeout=30))[1:6] == (
        -2**31, 2**32 - 1, 2**16 - 1, -2**63, 2**64 - 1)
    properties = connection.send_and_get_reply(Properties(TALKER).get_all(), timeout=30)
    assert properties.header.message_type == MessageType.error, properties


def read_line(client):
    line = b""
    while not line.endswith(b"\r\n"):
        line += client.recv(1)
    return line[:-2].lstrip(b"\0")


def authenticate(client):
    """The server's side of the exchange, which the library has not: whoever can connect is let in."""
    while True:
        line = read_line(client)
        if line == b"BEGIN":
            return
        if line.startswith(b"AUTH EXTERNAL"):
            client.sendall(b"DATA\r\n" if line == b"AUTH EXTERNAL" else b"OK 0123456789abcdef0123456789abcdef\r\n")
        elif line == b"DATA":
            client.sendall(b"OK 0123456789abcdef0123456789abcdef\r\n")
        elif line == b"NEGOTIATE_UNIX_FD":
            client.sendall(b"AGREE_UNIX_FD\r\n")
        else:
            client.sendall(b"ERROR\r\n")


class Served(DBusConnectionBase):
    def answer_one(self):
        call = self._receive(None)
        fields = call.header.fields
        if fields[HeaderFields.member].startswith("fail"):
            answer = new_error(call, "com.kelvo.Failure", "s", call.body)
        else:
            answer = new_method_return(call, fields.get(HeaderFields.signature), call.body)
        data, descriptors = self._serialise(answer, None)
        self._send_with_fds(data, descriptors) if descriptors else self.sock.sendall(data)


def serve(path):
    listener = socket.socket(socket.AF_UNIX)
    listener.bind(path)
    listener.listen()
    print("ready", flush=True)
    client, _ = listener.accept()
    authenticate(client)
    served = Served(client, enable_fds=True)
    try:
        while True:
            served.answer_one()
    except ConnectionResetError:
        pass


if __name__ == "__main__":
    {"client": call_service, "server": serve}[sys.argv[1]](sys.argv[2])
