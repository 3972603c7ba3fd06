// Diagnostic functions of the debug shell.
#pragma once

#include <cstdint>
#include <span>

int vornHelp();
int vornPrintTcb();
int vornPrintCounters();
int vornPrintErrs();
int vornPrintIpcHdr(const uint8_t* msg);

// The ring, VLAN and port tables. Ids and port numbers out of range print an "Invalid ..."
// line; an id without a record prints nothing. Id 0 of vornPrintRing and vornPrintVlan
// prints every record of the table. printBitmap non-zero adds the bitmaps of the record.
int vornPrintRing(int ringId);
int vornPrintSingleRing(int ringId);
int vornPrintVlan(int vlanId, int printBitmap);
int vornPrintSingleVlan(int vlanId, int printBitmap);
// Physical port `port` of `slot` (port number slot * 64 + port + 129, cut to 16 bits).
int vornPrintPort(int slot, int port, int printBitmap);
int vornPrintLag(int lagId, int printBitmap);
int vornPrintPortByPortnum(int portNum, int printBitmap);
// The line-card type of every slot whose agent reported one.
int vornPrintLcTypeInfo();
// The debug settings that are on for a ring.
int vornPrintDbgDB(int ringId);

// Print `title` and the set bits of a ring (256-bit) or port (898-bit) bitmap as "%d, ",
// then end the line; an empty bitmap prints nothing, not even the title. A span shorter
// than the bitmap is read only as far as it goes. The VLAN bitmap printer,
// vornPrintVlanBmap, is declared in l2pm/l2pm.h.
void vornPrintRingBmap(std::span<const uint8_t> bitmap, const char* title);
void vornPrintPortBmap(std::span<const uint8_t> bitmap, const char* title);
// "title aa:bb:cc:dd:ee:ff" in lower-case hex without leading zeros; bytes missing from a
// span shorter than 6 print as 0.

// Registers every diagnostic function and print flag with the debug shell.
void vornRegisterDiagCommands();
