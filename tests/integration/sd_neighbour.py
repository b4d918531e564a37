#!/usr/bin/env python3
"""Another SOME/IP program on the host, as widely used stacks open their SD sockets: the SD port on the
wildcard address and on the program's own unicast address, both with address reuse, and membership of
the SD group. It answers nothing; it writes the destination address of every datagram it receives, one
per line, to the file given, until it is terminated (or after a bounded lifetime)."""
import select
import socket
import struct
import sys
import time

own, group, port, out_path = sys.argv[1], sys.argv[2], int(sys.argv[3]), sys.argv[4]
IP_PKTINFO = 8
LIFETIME_S = 300


def open_socket(address):
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.setsockopt(socket.IPPROTO_IP, IP_PKTINFO, 1)
    sock.bind((address, port))
    return sock


wildcard = open_socket("0.0.0.0")
wildcard.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                    socket.inet_aton(group) + socket.inet_aton(own))
unicast = open_socket(own)
with open(out_path, "w", buffering=1) as out:
    out.write("ready\n")
    deadline = time.monotonic() + LIFETIME_S
    while time.monotonic() < deadline:
        ready, _, _ = select.select([wildcard, unicast], [], [], 1.0)
        for sock in ready:
            _, ancillary, _, _ = sock.recvmsg(65535, 256)
            for level, kind, data in ancillary:
                if level == socket.IPPROTO_IP and kind == IP_PKTINFO:
                    # struct in_pktinfo: ifindex, spec_dst, addr (the datagram's destination)
                    out.write(socket.inet_ntoa(struct.unpack("i4s4s", data[:12])[2]) + "\n")
