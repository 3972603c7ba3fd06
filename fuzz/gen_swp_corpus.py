#!/usr/bin/env python3
"""Writes the seed corpus of swp_fuzz. A seed is the number of messages enqueued first, then
steps of 19 bytes: op, u16 message length, u32 sequence number, stream id, epoch, SWP flags.
The op's low bits choose the step (0 acknowledgement, 1 resend request, 2 data message to
the receiver, 3 the queue's data through the receiver, 4 the receiver's answers back to the
sender, 5 enqueue one more, 6 the timer work); bit 7 puts in the queue's stream id, bit 6
its epoch, bit 5 makes the sequence number 1 + the field modulo 32.

Usage: fuzz/gen_swp_corpus.py [DIR]   (default fuzz/corpus/swp_fuzz)
"""
import struct

from seedfiles import corpus_dir, write_seeds

ACK, RESEND, DATA, DELIVER_DATA, DELIVER_CTL, ENQUEUE, TIMER = range(7)
LIVE = 0x80 | 0x40
SMALL_SEQ = 0x20
CTRL_LEN = 124


def step(op, seq=1, stream=0, epoch=0, flags=0, length=CTRL_LEN):
    return struct.pack(">BHIIII", op, length, seq, stream, epoch, flags)


def live(op, seq, length=CTRL_LEN):
    """A step on the queue's own stream and epoch, sequence number seq (1..32)."""
    return step(op | LIVE | SMALL_SEQ, seq - 1, length=length)


def seed(first, *steps):
    return bytes([first]) + b"".join(steps)


LOOP = (step(DELIVER_DATA), step(DELIVER_CTL))

SEEDS = {
    "live_loop": seed(12, *(LOOP * 4)),
    "ack_in_order": seed(5, *(live(ACK, n) for n in range(1, 6))),
    "ack_out_of_order": seed(10, live(ACK, 1), step(DELIVER_DATA), live(ACK, 5), live(ACK, 3),
                             live(ACK, 4), live(ACK, 2), *LOOP),
    "ack_repeated": seed(3, live(ACK, 1), live(ACK, 1), live(ACK, 2)),
    "ack_wrong_epoch": seed(3, step(ACK | 0x80 | SMALL_SEQ, 0, epoch=0x1234)),
    "ack_unknown_stream": seed(3, step(ACK | 0x40 | SMALL_SEQ, 0, stream=77)),
    "ack_short": seed(3, live(ACK, 1, length=100)),
    "ack_long": seed(3, live(ACK, 1, length=8192)),
    "resend_twice": seed(8, live(ACK, 1), live(RESEND, 2), live(RESEND, 2), *LOOP),
    "resend_not_in_flight": seed(4, live(ACK, 1), live(RESEND, 30)),
    "receiver_gap": seed(0, step(DATA, 1, 9, 5), step(DATA, 3, 9, 5), step(DATA, 2, 9, 5),
                         step(DATA, 2, 9, 5), step(DATA, 0xFFFFFFFF, 9, 5), step(DELIVER_CTL)),
    "receiver_new_epoch": seed(0, step(DATA, 4, 9, 5), step(DATA, 1, 9, 6),
                               step(DATA, 2, 9, 6, 1)),
    "receiver_not_swp": seed(0, step(DATA, 1, 9, 5, length=80)),
    "receiver_and_queue": seed(6, step(DELIVER_DATA), step(DATA, 2, 1, 0), *LOOP),
    "timer": seed(3, step(TIMER), step(DELIVER_DATA), step(TIMER), step(DELIVER_CTL)),
    "enqueue_many": seed(23, *(step(ENQUEUE) for _ in range(10)), *(LOOP * 6)),
}


def main():
    write_seeds(corpus_dir("swp_fuzz"), SEEDS)


if __name__ == "__main__":
    main()
