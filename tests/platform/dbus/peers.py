# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""The other side of a connection, by GDBus (python3-gi) and by libdbus (python3-dbus), as client and as server.

usage: peers.py gio-client|dbus-client|gio-server|dbus-server ADDRESS

Clients call a.b.Echo with values of every type and end with 0 if each comes back as it went. Servers say "ready" on
standard output, answer a.b.Echo (v to v) and a.b.File (h to h) at "/", and end when standard input does.
"""
import os
import sys

from gi.repository import Gio, GLib

EVERYTHING = GLib.Variant(
    "(ybnqiuxtdsoga{sv}a(is)avaay)",
    (255, True, -32768, 65535, -2**31, 2**32 - 1, -2**63, 2**64 - 1, -2.5e300, "Grüße 😀", "/a/b_1", "a{sv}(ii)",
     {"one": GLib.Variant("i", 1), "two": GLib.Variant("as", ["x", ""])}, [(1, "a"), (2, "b")],
     [GLib.Variant("v", GLib.Variant("(yd)", (1, 0.5)))], [b"\x00\x01", b""]))
OTHERS = [GLib.Variant("()", ()), GLib.Variant("(a{sv}as)", ({}, [])), GLib.Variant("(yax)", (1, [])),
          GLib.Variant("(yax)", (1, [2, 3])), GLib.Variant("(ay)", (bytes(300_000),)),
          GLib.Variant("(s)", ("x" * 100_000,))]
FILES = ["/dev/null", "/dev/zero", "/"]

INTERFACE = """<node><interface name='a.b'>
<method name='Echo'><arg type='v' direction='in'/><arg type='v' direction='out'/></method>
<method name='File'><arg type='h' direction='in'/><arg type='h' direction='out'/></method>
</interface></node>"""


def is_file(descriptor, name):
    return os.path.samestat(os.fstat(descriptor), os.stat(name))


def gio_call(connection, body, order, files=None):
    message = Gio.DBusMessage.new_method_call(None, "/", "a.b", "Echo")
    message.set_byte_order(order)
    message.set_body(body)
    message.set_unix_fd_list(files)
    reply, _ = connection.send_message_with_reply_sync(message, Gio.DBusSendMessageFlags.NONE, 10_000, None)
    reply.to_gerror()
    assert reply.get_message_type() == Gio.DBusMessageType.METHOD_RETURN, reply.print_(0)
    assert body.n_children() == 0 or reply.get_body().equal(body), (reply.get_body(), body)
    return reply


def gio_client(address):
    connection = Gio.DBusConnection.new_for_address_sync(
        address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT, None, None)
    for order in (Gio.DBusMessageByteOrder.LITTLE_ENDIAN, Gio.DBusMessageByteOrder.BIG_ENDIAN):
        for body in [EVERYTHING, *OTHERS]:
            gio_call(connection, body, order)
        files = Gio.UnixFDList.new()
        for name in FILES:
            descriptor = os.open(name, os.O_RDONLY)
            files.append(descriptor)  # duplicates it
            os.close(descriptor)
        body = GLib.Variant("(ahv)", ([0, 1], GLib.Variant("h", 2)))
        answered = gio_call(connection, body, order, files).get_unix_fd_list().steal_fds()
        assert [is_file(*pair) for pair in zip(answered, FILES)] == [True] * len(FILES)


def dbus_client(address):
    import dbus
    import dbus.connection
    connection = dbus.connection.Connection(address)
    types = "ybnqiuxtdsoga{sv}a(is)avaay"
    values = [dbus.Byte(255), True, -32768, 65535, -2**31, 2**32 - 1, -2**63, 2**64 - 1, -2.5e300, "Grüße 😀",
              "/a/b_1", "a{sv}(ii)", {"one": dbus.Int32(1)}, [(1, "a"), (2, "b")],
              [dbus.Struct((dbus.Byte(1), 0.5), variant_level=1)], [[0, 1], []]]
    for signature, arguments in [(types, values), ("", []), ("ax", [[]]), ("ay", [bytes(300_000)])]:
        answer = connection.call_blocking(None, "/", "a.b", "Echo", signature, arguments, timeout=10)
        if len(arguments) == 0:
            assert answer is None, answer
        elif len(arguments) == 1:
            assert list(answer) == list(arguments[0])
        else:
            for got, sent in zip(answer[:14], values[:14]):
                assert got == sent, (got, sent)
            assert answer[14] == [(1, 0.5)] and [list(a) for a in answer[15]] == [[0, 1], []]
    with open("/dev/zero") as file:
        answer = connection.call_blocking(None, "/", "a.b", "Echo", "h", [dbus.types.UnixFd(file)], timeout=10)
    assert is_file(answer.take(), "/dev/zero")
    try:
        connection.call_blocking(None, "/", "a.b", "Nothing", "", [], timeout=10)
        raise AssertionError("an unknown method was answered")
    except dbus.exceptions.DBusException as error:
        assert error.get_dbus_name() == "org.freedesktop.DBus.Error.UnknownMethod", error
        assert error.get_dbus_message() == "no method Nothing", error


def run_until_input_ends():
    loop = GLib.MainLoop()
    GLib.unix_fd_add_full(0, 0, GLib.IOCondition.IN | GLib.IOCondition.HUP, lambda *_: loop.quit())
    print("ready", flush=True)
    loop.run()


def gio_server(address):
    def handle(connection, sender, path, interface, member, arguments, invocation):
        if member == "Echo":
            invocation.return_value(arguments)
        else:
            files = invocation.get_message().get_unix_fd_list()
            invocation.return_value_with_unix_fd_list(GLib.Variant("(h)", (0,)), files)

    def accept(server, connection):
        kept.append(connection)
        connection.register_object("/", Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0], handle, None, None)
        return True

    kept = []
    server = Gio.DBusServer.new_sync(address, Gio.DBusServerFlags.NONE, Gio.dbus_generate_guid(), None, None)
    server.connect("new-connection", accept)
    server.start()
    run_until_input_ends()


def dbus_server(address):
    import dbus.mainloop.glib
    import dbus.server
    import dbus.service
    dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)

    class Echo(dbus.service.Object):
        @dbus.service.method("a.b", in_signature="v", out_signature="v")
        def Echo(self, value):
            return value

        @dbus.service.method("a.b", in_signature="h", out_signature="h")
        def File(self, file):
            return file

    class Server(dbus.server.Server):
        def connection_added(self, connection):
            kept.append(Echo(connection, "/"))

    kept = []
    server = Server(address)
    run_until_input_ends()
    server.disconnect()


if __name__ == "__main__":
    {"gio-client": gio_client, "dbus-client": dbus_client, "gio-server": gio_server,
     "dbus-server": dbus_server}[sys.argv[1]](sys.argv[2])
