// Trace, error and dump output of the manager, gated by the print flags.
//
// Every trace line is printed with a printf-style format exactly as the manager defines it
// (lines end in "\r\n"), and only while its flag is set. The flags are plain 32-bit globals
// that the debug shell and the debug configuration set.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>

extern uint32_t vornDbgPrint;      // general traces
extern uint32_t vornErrPrint;      // error traces
extern uint32_t vornMsgPrint;      // dumps of agent-bound buffers
extern uint32_t vornAgtMsgPrint;   // dumps of messages from agents
extern uint32_t vornL2pmMsgPrint;  // dumps of L2PM-bound buffers
extern uint32_t vornDebug;
extern uint32_t vornL2Debug;
extern uint32_t vornZilDbgPrint;  // peer-pair traces

// Prints under a flag. The format is checked against the arguments at compile time.
#define VORN_TRACE(flag, ...)         \
    do {                              \
        if ((flag) != 0) {            \
            std::printf(__VA_ARGS__); \
        }                             \
    } while (0)
#define VORN_DBG(...) VORN_TRACE(vornDbgPrint, __VA_ARGS__)
#define VORN_ERR(...) VORN_TRACE(vornErrPrint, __VA_ARGS__)

// puts() under a flag, for the lines the manager prints whole (they end in "\r").
#define VORN_PUTS(flag, text) \
    do {                      \
        if ((flag) != 0) {    \
            std::puts(text);  \
        }                     \
    } while (0)

// "%s %x:%x:%x:%x:%x:%x \r\n" with the title and the six bytes of a MAC address (a shorter
// span reads as zero bytes).
void vornPrintMacAddr(std::span<const uint8_t> mac, const char* title);
