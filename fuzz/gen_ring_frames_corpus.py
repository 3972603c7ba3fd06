#!/usr/bin/env python3
"""Writes the seed corpus of ring_frames_fuzz. A seed is 3 bytes of set-up (flags: bit 0
master, bit 1 primary up, bit 2 secondary up; hello- and dead-interval in ms), then steps of
26 bytes: op, argument, 24 payload bytes (see fuzz/ring_frames_fuzz.cc for the ops).

Usage: fuzz/gen_ring_frames_corpus.py [DIR]   (default fuzz/corpus/ring_frames_fuzz)
"""
import struct

from seedfiles import corpus_dir, write_seeds

PRI_FRAME, SEC_FRAME, PRI_OWN, SEC_OWN, LINK, TIME, BLOCK_HOLDS, PROBE = range(8)
HEALTH, LINK_DOWN, RING_COMPLETE, FLUSH = 1, 2, 3, 4
INIT, COMPLETE, FAILED = 1, 2, 3
MASTER, PRI_UP, SEC_UP = 1, 2, 4


def frame(kind, sender=3, seq=1, state=0, ring=1, vlan=10):
    body = struct.pack(">HBBHHIIBB", 0x5652, 1, kind, ring, vlan, sender, seq, state, 0)
    return body + bytes(24 - len(body))


def probe(pid, vlan=20, hops=1, sent_ns=0):
    return struct.pack(">HBBHHQQ", 0x5650, 2, hops, vlan, 0, pid, sent_ns)


def step(op, arg=0, payload=bytes(24)):
    return bytes([op, arg]) + payload


def link(side, up):
    return step(LINK, side | (2 if up else 0))


def seed(flags, *steps, hello=50, dead=150):
    return bytes([flags, hello, dead]) + b"".join(steps)


WHOLE = MASTER | PRI_UP | SEC_UP
OWN_HEALTH = step(SEC_OWN, 0, frame(HEALTH, seq=1, state=INIT))

SEEDS = {
    "master_completes": seed(WHOLE, step(TIME, 50), OWN_HEALTH, step(BLOCK_HOLDS),
                             step(TIME, 50), OWN_HEALTH),
    "master_dead_timer": seed(WHOLE, OWN_HEALTH, step(BLOCK_HOLDS), step(TIME, 200),
                              OWN_HEALTH, step(TIME, 10), step(BLOCK_HOLDS)),
    "master_link_down_frame": seed(WHOLE, OWN_HEALTH, step(BLOCK_HOLDS),
                                   step(PRI_FRAME, 0, frame(LINK_DOWN, sender=4)),
                                   step(TIME, 50), OWN_HEALTH, step(BLOCK_HOLDS)),
    "master_own_links": seed(WHOLE, OWN_HEALTH, link(1, False), link(1, True), link(0, False),
                             step(TIME, 255), link(0, True), OWN_HEALTH, step(BLOCK_HOLDS)),
    "master_one_link": seed(MASTER | PRI_UP, step(TIME, 100), link(1, True), OWN_HEALTH,
                            step(TIME, 1), step(BLOCK_HOLDS)),
    "transit_whole": seed(PRI_UP | SEC_UP,
                          step(SEC_FRAME, 0, frame(HEALTH, sender=1, state=COMPLETE)),
                          step(PRI_FRAME, 0, frame(FLUSH, sender=1, seq=2)),
                          step(SEC_FRAME, 0, frame(RING_COMPLETE, sender=1, seq=3))),
    "transit_cut_restored": seed(PRI_UP | SEC_UP, link(0, False), step(PRI_OWN, 0,
                                 frame(LINK_DOWN)), link(0, True),
                                 step(SEC_FRAME, 0, frame(HEALTH, sender=1, state=FAILED)),
                                 step(TIME, 255), step(TIME, 255)),
    "probes": seed(PRI_UP, step(PROBE, 24, probe(1)), step(PROBE, 24, probe(1)),
                   step(PROBE, 24, probe(2, hops=255)), step(PROBE, 23, probe(3)),
                   step(PROBE, 24, struct.pack(">HB", 0x5650, 1) + bytes(21))),
}

if __name__ == "__main__":
    write_seeds(corpus_dir("ring_frames_fuzz"), SEEDS)
