#!/usr/bin/env python3
"""Writes the seed corpus of ifm_intake_fuzz: one valid IFM notification per record type
and one holding them all, over the interfaces the fuzz target sets up (ring 1 on Gi 0/1
and Po 1, control VLAN 10, member VLANs 20 and 21; Gi 0/2 of no ring).

Usage: fuzz/gen_ifm_intake_corpus.py [DIR]   (default fuzz/corpus/ifm_intake_fuzz)
"""
import struct

from seedfiles import corpus_dir, gi, po, vl, write_seeds

MT_IFM_NOTIF_MSG = 10908
IPC_MAGIC = 0x51454C31


def ma():
    return 1 << 24


def rec(rtype, data=b""):
    return struct.pack(">HH", rtype, 4 + len(data)) + data


def u32(*words):
    return struct.pack(">%dI" % len(words), *words)


MAC = bytes([0x00, 0x1E, 0xC9, 0xAA, 0x0B, 0xFF])


def add_if(rtype, ifindex, attr=0):
    return rec(rtype, u32(ifindex, attr) + bytes(8) + MAC)


def vlan_port(rtype, vlan_if, port_if, tagged):
    return rec(rtype, u32(vlan_if, port_if) + struct.pack(">H", tagged))


def vlan_list(port_if, tagged, vlans):
    return rec(42, u32(port_if) + struct.pack(">H", tagged) + bytes(6) +
               u32(len(vlans), *vlans))


def mode_change(ifindex, value, flags, mode_type):
    return rec(25, u32(ifindex, value, flags) + bytes(10) + u32(mode_type))


def notif(records, count=0):
    body = b"".join(records)
    length = 136 + len(body)
    hdr = bytearray(124)
    struct.pack_into(">III", hdr, 0, IPC_MAGIC, 0, length)
    struct.pack_into(">I", hdr, 12, MT_IFM_NOTIF_MSG)
    return bytes(hdr) + struct.pack(">iII", len(records), count, 0) + body


SEEDS = {
    "add_if": [add_if(1, vl(30), 0x11), add_if(1, gi(0, 3)), add_if(1, po(2)), add_if(1, ma())],
    "del_if": [add_if(2, gi(0, 2)), add_if(2, vl(20)), add_if(2, gi(0, 1))],
    "oper_up": [rec(3, u32(gi(0, 1))), rec(3, u32(po(1)))],
    "oper_down": [rec(4, u32(gi(0, 1))), rec(4, u32(po(1)))],
    "admin": [rec(5), rec(6)],
    "mac_change": [rec(10, u32(gi(0, 1)) + MAC)],
    "port_mode": [rec(11, u32(gi(0, 1), 2))],
    "if_mode_change": [mode_change(po(1), 0x10005, 0x80, 4), mode_change(po(1), 0, 0x80, 16)],
    "add_vlan_port": [vlan_port(40, vl(10), gi(0, 1), 1), vlan_port(40, vl(10), po(1), 1),
                      vlan_port(40, vl(20), gi(0, 1), 1), vlan_port(40, vl(21), gi(0, 2), 0)],
    "del_vlan_port": [vlan_port(41, vl(10), po(1), 1), vlan_port(41, vl(20), gi(0, 1), 1)],
    "add_vlan_list": [vlan_list(gi(0, 1), 1, [vl(10), vl(20), vl(21)])],
    "add_lag_port": [rec(47, u32(po(1), gi(0, 2)))],
    "del_lag_port": [rec(48, u32(po(1), gi(0, 2)))],
    "end_of_config": [rec(92), rec(93)],
}


def main():
    seeds = {name: notif(records) for name, records in SEEDS.items()}
    seeds["all_types"] = notif([r for records in SEEDS.values() for r in records], 0xBEEF)
    write_seeds(corpus_dir("ifm_intake_fuzz"), seeds)


if __name__ == "__main__":
    main()
