#!/usr/bin/env python3
"""Records every connection attempt that crosses the loopback interface.

Usage: loopback_watch.py OUTPUT
Runs in a network namespace whose only interface is the loopback and whose routes deliver every
address to it, so that every packet any program sends, whatever its destination, crosses the
loopback, where this program sees it. It writes one line per new attempt to OUTPUT: a TCP
connection request (SYN without ACK) as "tcp ADDRESS PORT", any UDP datagram as
"udp ADDRESS PORT", any other IP packet as "ip-N ADDRESS". "ready" goes to standard output once
it captures. Runs until it is terminated.
"""

import ipaddress
import socket
import struct
import sys

ETH_P_ALL = 0x0003
ETH_P_IP = 0x0800
ETH_P_IPV6 = 0x86DD
ICMP = (1, 58)


def attempt(frame):
    """The attempt a frame is, as a line, or None for a packet that starts nothing."""
    (ethertype,) = struct.unpack("!H", frame[12:14])
    packet = frame[14:]
    if ethertype == ETH_P_IP and len(packet) >= 20:
        protocol = packet[9]
        destination = ipaddress.IPv4Address(packet[16:20])
        payload = packet[(packet[0] & 0x0F) * 4 :]
    elif ethertype == ETH_P_IPV6 and len(packet) >= 40:
        protocol = packet[6]
        destination = ipaddress.IPv6Address(packet[24:40])
        payload = packet[40:]
    else:
        return None
    if protocol == 6 and len(payload) >= 14:
        flags = payload[13]
        if flags & 0x02 and not flags & 0x10:
            return f"tcp {destination} {struct.unpack('!H', payload[2:4])[0]}"
        return None
    if protocol == 17 and len(payload) >= 4:
        return f"udp {destination} {struct.unpack('!H', payload[2:4])[0]}"
    if protocol in ICMP:  # answers such as "port unreachable", not attempts
        return None
    return f"ip-{protocol} {destination}"


def main():
    capture = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    capture.bind(("lo", 0))
    seen = set()
    with open(sys.argv[1], "a", buffering=1) as out:
        print("ready", flush=True)
        while True:
            line = attempt(capture.recv(65536))
            if line and line not in seen:
                seen.add(line)
                out.write(line + "\n")


if __name__ == "__main__":
    main()
