// Common set-up of the fuzz targets: a private run directory, the manager's pools and
// tables, two rings to work on, and a message buffer built from the fuzzer's input.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/ipc.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#define VORN_FUZZ_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define VORN_FUZZ_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#endif
#endif
#ifndef VORN_FUZZ_POISON
#define VORN_FUZZ_POISON(p, n) ((void)(p), (void)(n))
#define VORN_FUZZ_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace vorn::fuzz {

using MsgBuf = std::array<uint8_t, 8192>;

// The target's own set-up, run once before the first input (from LLVMFuzzerInitialize, which
// fuzz_support.cc defines). Every target defines it.
void setUp();
// The buffer every input's message is built in: 8192 bytes, as aligned as the main loop's
// receive buffer, and unpoisoned (poisonPast marks what lies past the message).
MsgBuf& messageBuffer();
// Makes a private run directory (/dev/shm/vorn-fuzz-XXXXXX, or in /tmp when /dev/shm cannot
// be used) the process's run directory, once.
void initRunDir();
// Prepares the manager's state once per process (run directory, pools, tables).
void initManager();
// Opens the manager's own queues (226.0) and its SWP pipe into the task block.
void openManagerQueues();
// Sends the manager's trace lines and print output to /dev/null, unless VORN_FUZZ_TRACE is
// set (for reading what a reproducer does).
void quietStdout();
// Copies the input into the 8192-byte receive buffer and makes its header one the host
// library would have passed on: magic, length word equal to the datagram's length, and the
// given message type. Returns false for an input shorter than the header.
bool makeMessage(const uint8_t* data, size_t size, uint32_t mtype, MsgBuf* msg);
// A message whose length is chosen apart from the input's size: the input's first two bytes
// are the length (big-endian; taken into 60..8192), the bytes after them the message from
// offset 0, cut at the length or zero-filled up to it. The header gets the magic, the
// length word (the datagram's size) and the message type. Returns the length, or 0 for an
// input shorter than two bytes.
size_t makeSizedMessage(const uint8_t* data, size_t size, uint32_t mtype, MsgBuf* msg);
// Poisons the bytes of the buffer past len (a read there is reported) / unpoisons all.
void poisonPast(MsgBuf* msg, size_t len);
void unpoison(MsgBuf* msg);
// Sends the message of len bytes in *msg from the request queue of command-line client
// 40.instance (its key) to the manager's request queue, and reads it there into *msg, the
// bytes past it poisoned, as the host library passes it on to the manager. Returns what
// qelIpcRecv returned: the length, or -1 for a message the library served or dropped.
int passToManager(QelKey client, int instance, MsgBuf* msg, size_t len);
// Reads and drops every datagram waiting on a queue descriptor.
void drain(int qfd);

// Two rings over ports and VLANs that IFM reported, as records made directly:
//   ring 1: master, control VLAN 10, member VLANs 20 and 21, primary Gi 0/1 (port 130),
//           secondary Gi 1/1 (port 194), run by the card in slot 1
//   ring 2: transit, control VLAN 11, member VLAN 30, primary Gi 2/1 (port 258),
//           secondary Po 1 (port 1) with the member Gi 3/1 (port 322), run by slot 3
// Gi 3/1 belongs to no ring itself. `caller` names the target in the LAG trace.
void makeTwoRings(const char* caller);

}  // namespace vorn::fuzz
