# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""A client that passes a file of its own file system, which never answers when the file is closed.

Usage: stubborn_file.py SOCKET USER MOUNT_POINT, as root. Says "passed" when everything is sent, and
lets go of it when its standard input ends.
"""

import ctypes
import os
import select
import socket
import struct
import sys

LOOKUP, GETATTR, OPEN, RELEASE, FLUSH, INIT = 1, 3, 14, 18, 25, 26  # linux/fuse.h
FORGET, INTERRUPT, BATCH_FORGET = 2, 36, 42
ENOSYS = 38

IN_HEADER = struct.Struct("<IIQQIIIHH")  # length, opcode, unique, node, ...
DIRECTORY, FILE = 0o40755, 0o100666


def attributes(node):
    mode = DIRECTORY if node == 1 else FILE
    return struct.pack("<QQQQQQIIIIIIIIII", node, *[0] * 8, mode, 1, *[0] * 5)


def answer_to(opcode, node):
    if opcode == INIT:
        return struct.pack("<IIIIHHIIHHI28x", 7, 31, 0, 0, 12, 12, 4096, 0, 0, 0, 0)
    if opcode == LOOKUP:
        return struct.pack("<QQQQII", 2, 0, 60, 60, 0, 0) + attributes(2)
    if opcode == GETATTR:
        return struct.pack("<QII", 60, 0, 0) + attributes(node)
    if opcode == OPEN:
        return struct.pack("<QII", 0, 0, 0)
    return b"" if opcode == RELEASE else None


def serve(device):
    """Until standard input ends. When the device is closed, all waiting ends."""
    while device in select.select([device, sys.stdin], [], [])[0]:
        request = os.read(device, 1 << 17)
        opcode, unique, node = IN_HEADER.unpack_from(request)[1:4]
        if opcode in (FLUSH, FORGET, INTERRUPT, BATCH_FORGET):
            continue
        body = answer_to(opcode, node)
        error = -ENOSYS if body is None else 0
        body = body or b""
        os.write(device, struct.pack("<IiQ", 16 + len(body), error, unique) + body)


def mount(place):
    device = os.open("/dev/fuse", os.O_RDWR)
    options = f"fd={device},rootmode=40000,user_id=0,group_id=0,allow_other"
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.mount(b"stubborn", place.encode(), b"fuse", 0, options.encode()) != 0:
        raise OSError(ctypes.get_errno(), "mount")
    server = os.fork()
    if server == 0:
        serve(device)
        os._exit(0)
    os.close(device)
    file = os.open(place + "/file", os.O_RDONLY)
    libc.umount2(place.encode(), 2)  # lazily: it lives as long as the file
    return server, file


def connect(path):
    peer = socket.socket(socket.AF_UNIX)
    peer.connect(path)
    return peer


def read_line(peer):
    line = b""
    while not line.endswith(b"\r\n"):
        line += peer.recv(1)
    return line


def authenticate(peer):
    peer.send(b"\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\n")
    for _ in range(3):
        read_line(peer)
    peer.send(b"BEGIN\r\n")


def coupling_call():
    """connectWithEndpoint:forCommandID:withReply: with descriptor 0 of one."""
    fields = [
        (1, b"o", b"/"),
        (2, b"s", b"com.kelvo.KLHelperCoupling"),
        (3, b"s", b"connectWithEndpoint_forCommandID_withReply_"),
    ]
    header = b""
    for code, kind, text in fields:
        header += bytes(-len(header) % 8)
        header += bytes([code, 1]) + kind + b"\0" + struct.pack("<I", len(text)) + text + b"\0"
    header += bytes(-len(header) % 8) + b"\x08\x01g\0\x02hs\0"
    header += bytes(-len(header) % 8) + b"\x09\x01u\0" + struct.pack("<I", 1)
    body = struct.pack("<II", 0, 1) + b"x\0"
    start = b"l\1\0\1" + struct.pack("<III", len(body), 1, len(header))
    return start + header + bytes(-(len(start) + len(header)) % 8) + body


def main():
    path, user, place = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    server, file = mount(place)
    os.seteuid(user)
    early = connect(path)
    early.send(b"\0AUTH EXTERNAL\r\n")
    read_line(early)
    socket.send_fds(early, [b"DATA\r\n"], [file])
    # Half a message, and a whole one.
    unfinished, refused = connect(path), connect(path)
    for peer in (unfinished, refused):
        authenticate(peer)
    socket.send_fds(unfinished, [coupling_call()[:-1]], [file])
    socket.send_fds(refused, [coupling_call()], [file])
    print("passed", flush=True)
    sys.stdin.read()
    os.waitpid(server, 0)


main()
