#!/usr/bin/env python3
"""Writes the seed corpus of agent_msgs_fuzz over the rings the fuzz target sets up (ring 1:
primary Gi 0/1 = port 130, secondary Gi 1/1 = port 194, slot 1; ring 2: primary Gi 2/1 =
port 258, secondary Po 1 = port 1 with its member on slot 3, slot 3). The first byte of
each seed chooses the message type: 0 registration, 1 agent report, 2 card event.

Usage: fuzz/gen_agent_msgs_corpus.py [DIR]   (default fuzz/corpus/agent_msgs_fuzz)
"""
import struct

from seedfiles import corpus_dir, write_seeds

REGISTER, REPORT, EVENT = 0, 1, 2
SWP_MAGIC = 0x53575031
CARD_UP, CARD_DOWN, CARD_SHUTDOWN = 0x118011, 0x118012, 0x118013
FORW, PRE_FORW, BLOCKING, NO_STATE = 2, 1, 3, 4


def queue(service, instance, kind=1):
    return service << 20 | instance << 4 | kind


def header(selector, slot=0, src=0, card=0):
    """The 60-byte IPC header; magic, length and type are the fuzz target's to fix."""
    h = bytearray(60)
    h[0] = selector
    struct.pack_into(">III", h, 36, slot, card, src)
    struct.pack_into(">I", h, 56, queue(226, 0))
    return bytes(h)


def registration(slot, lc_type=1, pipes=(0, 0)):
    return (header(REGISTER, slot, queue(227, slot), 0x7F000100 + slot) +
            struct.pack(">III", lc_type, *pipes))


def swp(seq=1, stream=5, epoch=1):
    return struct.pack(">IIIII", SWP_MAGIC, seq, stream, epoch, 0) + bytes(44)


def record(ring, pri_port, sec_port, pri_state, sec_state, pri_flush=0, sec_flush=0,
           no_syslog=0):
    return struct.pack(">HBBBxHHxxII", ring, no_syslog, pri_flush, sec_flush, pri_port,
                       sec_port, pri_state, sec_state)


def report(slot, records, count=None, seq=1):
    n = len(records) if count is None else count
    return (header(REPORT, slot, queue(227, slot), 0x7F000100 + slot) + swp(seq) +
            struct.pack(">II", slot, n) + b"".join(records))


def event(event_id, slot):
    return header(EVENT, 0, queue(30, 0)) + struct.pack(">III", 0, event_id, slot)


SEEDS = {
    "register_slot1": registration(1),
    "register_slot3": registration(3, lc_type=7, pipes=(1, 2)),
    "register_bad_slot": registration(12),
    "register_short": registration(1)[:60],
    "report_records": report(1, [
        record(1, 130, 194, FORW, BLOCKING, pri_flush=1),
        record(2, 258, 1, PRE_FORW, NO_STATE, sec_flush=1, no_syslog=1),
        record(1, 999, 0, FORW, NO_STATE),
    ]),
    "report_flush_only": report(3, [record(2, 0, 1, NO_STATE, NO_STATE, sec_flush=1)]),
    "report_count_past_end": report(1, [record(1, 130, 0, BLOCKING, NO_STATE)] * 2, count=1000),
    "report_bad_rings": report(1, [record(0, 130, 194, FORW, FORW),
                                   record(300, 130, 194, FORW, FORW)]),
    "report_bad_slot": report(12, [record(1, 130, 194, FORW, BLOCKING)]),
    "report_headers_only": report(1, [record(1, 130, 194, FORW, BLOCKING)])[:124],
    "card_up_slot3": event(CARD_UP, 3),
    "card_down_slot1": event(CARD_DOWN, 1),
    "card_shutdown_slot3": event(CARD_SHUTDOWN, 3),
    "card_down_bad_slot": event(CARD_DOWN, 15),
}


def main():
    write_seeds(corpus_dir("agent_msgs_fuzz"), SEEDS)


if __name__ == "__main__":
    main()
