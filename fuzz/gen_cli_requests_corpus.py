#!/usr/bin/env python3
"""Writes the seed corpus of cli_requests_fuzz over the rings the fuzz target sets up (ring 1:
master, Gi 0/1 and Gi 1/1, control VLAN 10, member VLANs 20 and 21; ring 2: transit, Gi 2/1
and Po 1, control VLAN 11, member VLAN 30; Gi 3/1 in Po 1; ring 3 without interfaces). Each
seed is the selector byte (0-7 a configuration request, 8 clear, 9-11 debug, 12-14 show, 15
undebug all, 16 an MT_NM request of the type it holds), the message length (u16), then the
message's bytes from offset 0 up to its last non-zero byte; the target zero-fills the rest.

Usage: fuzz/gen_cli_requests_corpus.py [DIR]   (default fuzz/corpus/cli_requests_fuzz)
"""
import struct

from seedfiles import corpus_dir, gi, po, te, vl, write_seeds

PROTO, DESC, CTRL_VLAN, MEMBER_VLAN, MODE, ENABLE, DEAD, HELLO = range(8)
CLEAR, DBG_DETAIL, DBG_EVENT, DBG_PACKET = 8, 9, 10, 11
SHOW_SUMMARY, SHOW_DETAIL, SHOW_MEMBERS, UNDEBUG_ALL, AS_IS = 12, 13, 14, 15, 16
REQ_LEN = 1024


def seed(selector, fields, length=REQ_LEN):
    """fields: (offset, struct format, value) written into a zeroed message."""
    msg = bytearray(REQ_LEN if length < REQ_LEN else length)
    for off, fmt, value in fields:
        struct.pack_into(">" + fmt, msg, off, *(value if isinstance(value, tuple) else (value,)))
    body = bytes(msg).rstrip(b"\0")
    return bytes([selector]) + struct.pack(">H", length) + body


def config(selector, ring, no=False, mode=None, hello=None, dead=None, pri=None, sec=None,
           ctrl=None, members=(), desc=None, length=REQ_LEN):
    f = [(90, "H", ring), (82, "H", 1 if no else 0)]
    if mode is not None:
        f.append((92, "B", mode))
    if hello is not None:
        f.append((94, "H", hello))
    if dead is not None:
        f.append((96, "H", dead))
    if pri is not None:
        f.append((100, "I", pri))
    if sec is not None:
        f.append((104, "I", sec))
    if ctrl is not None:
        f.append((108, "I", vl(ctrl)))
    if members:
        bitmap = bytearray(512)
        for v in members:
            bitmap[v // 8] |= 0x80 >> (v % 8)
        f.append((112, "512s", bytes(bitmap)))
    if desc is not None:
        f.append((624, "%ds" % len(desc), desc))
    return seed(selector, f, length)


def debug(selector, ring, off=0, mode=0x11, count=0):
    return seed(selector, [(64, "I", ring), (68, "B", off), (76, "I", mode), (80, "I", count)])


def show(selector, ring, cursor=0, single=0, cont=0, size=2048, params=1, length=REQ_LEN):
    return seed(selector, [(76, "I", size), (80, "I", params),
                           (84, "IIII", (ring, cursor, single, cont))], length)


SEEDS = {
    "ring_create": config(PROTO, 5),
    "ring_remove": config(PROTO, 1, no=True),
    "ring_remove_missing": config(PROTO, 9, no=True),
    "ring_bad_id": config(PROTO, 300),
    "desc": config(DESC, 1, desc=b"core ring east\0"),
    "desc_remove": config(DESC, 1, no=True),
    "desc_longest": config(DESC, 2, desc=b"d" * 255 + b"\0"),
    "desc_unterminated": config(DESC, 2, desc=b"x" * 400),
    "ctrl_vlan_new_ring": config(CTRL_VLAN, 3, pri=gi(0, 2), sec=gi(1, 2), ctrl=12),
    "ctrl_vlan_lag_te": config(CTRL_VLAN, 3, pri=po(5), sec=te(2, 3), ctrl=13),
    "ctrl_vlan_remove": config(CTRL_VLAN, 1, no=True, pri=gi(0, 1), sec=gi(1, 1), ctrl=10),
    "ctrl_vlan_remove_other_if": config(CTRL_VLAN, 2, no=True, pri=gi(2, 1), sec=gi(3, 1),
                                        ctrl=11),
    "ctrl_vlan_same_if": config(CTRL_VLAN, 3, pri=gi(0, 3), sec=gi(0, 3), ctrl=14),
    "ctrl_vlan_in_use": config(CTRL_VLAN, 3, pri=gi(0, 4), sec=gi(1, 4), ctrl=11),
    "ctrl_vlan_member_of_ring": config(CTRL_VLAN, 3, pri=gi(0, 4), sec=gi(1, 4), ctrl=20),
    "ctrl_vlan_lag_member": config(CTRL_VLAN, 3, pri=gi(3, 1), sec=gi(1, 5), ctrl=15),
    "ctrl_vlan_missing_ring": config(CTRL_VLAN, 5, pri=gi(0, 2), sec=gi(1, 2), ctrl=12),
    "members_add": config(MEMBER_VLAN, 1, members=range(22, 26)),
    "members_bare_ring": config(MEMBER_VLAN, 3, members=(40, 41)),
    "mode_bare_ring": config(MODE, 3, mode=1),
    "members_ctrl_vlan": config(MEMBER_VLAN, 1, members=(10, 22)),
    "members_of_other_ring": config(MEMBER_VLAN, 2, members=(20,)),
    "members_remove": config(MEMBER_VLAN, 1, no=True, members=(20,)),
    "members_all": config(MEMBER_VLAN, 2, members=range(1, 4095)),
    "mode_transit": config(MODE, 1, mode=2),
    "mode_remove_other": config(MODE, 2, no=True, mode=1),
    "mode_bad": config(MODE, 2, mode=7),
    "enable": config(ENABLE, 1, no=True),
    "disable": config(ENABLE, 2),
    "hello": config(HELLO, 1, hello=500),
    "hello_remove": config(HELLO, 1, no=True),
    "hello_out_of_range": config(HELLO, 2, hello=60000),
    "dead": config(DEAD, 2, dead=1500),
    "dead_zero": config(DEAD, 1, dead=0),
    "config_short": config(MODE, 1, mode=2, length=500),
    "clear_all": seed(CLEAR, []),
    "clear_ring": seed(CLEAR, [(124, "H", 1)]),
    "clear_bad_ring": seed(CLEAR, [(124, "H", 300)]),
    "debug_detail_on": debug(DBG_DETAIL, 1),
    "debug_event_count": debug(DBG_EVENT, 2, mode=0, count=5),
    "debug_packet_tx_off": debug(DBG_PACKET, 1, off=1, mode=0x10),
    "debug_bad_mode": debug(DBG_PACKET, 1, mode=0x22),
    "debug_all_rings": debug(DBG_DETAIL, 0, mode=0x01),
    "debug_bad_ring": debug(DBG_EVENT, 999, mode=0),
    "show_summary": show(SHOW_SUMMARY, 0),
    "show_summary_single": show(SHOW_SUMMARY, 1, single=1),
    "show_summary_small_pages": show(SHOW_SUMMARY, 0, size=100),
    "show_summary_past_rings": show(SHOW_SUMMARY, 256),
    "show_detail": show(SHOW_DETAIL, 1),
    "show_detail_missing": show(SHOW_DETAIL, 7),
    "show_detail_no_room": show(SHOW_DETAIL, 2, size=100),
    "show_members": show(SHOW_MEMBERS, 1, cursor=20, cont=1),
    "show_no_paging": show(SHOW_SUMMARY, 0, params=0),
    "show_paging_cut": show(SHOW_DETAIL, 1, length=90),
    "undebug_all": seed(UNDEBUG_ALL, [], length=60),
    "unknown_type": seed(AS_IS, [(72, "I", 99), (90, "H", 1)]),
}


def main():
    write_seeds(corpus_dir("cli_requests_fuzz"), SEEDS)


if __name__ == "__main__":
    main()
