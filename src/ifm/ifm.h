// IFM notifications and the ring-interface exchanges with IFM.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ringdb/records.h"
#include "wire/ifm.h"

// Consumes one notification: copies it to every agent, then walks its records and hands
// each to its handler. The walk never leaves the message (its validated length) and never
// takes more steps than the message could hold 4-byte records; where NumElem or a record
// length says otherwise it stops and says so under the error flag.
int vornProcessIfmNotif(uint8_t* msg);

// IFM's interface-added and interface-deleted notifications for a VLAN and for a
// physical port or LAG. `rec` is the record's data: bytes 0-3 the ifIndex, 4-7 the
// attribute word, 16-21 the MAC address; fields beyond `len` read as zero. Each returns 0,
// or -1 when the record is too short to hold an ifIndex or the notification failed.
int vornCreateVlan(const uint8_t* rec, size_t len);
int vornCreatePort(const uint8_t* rec, size_t len);
int vornDestroyVlan(const uint8_t* rec, size_t len);
int vornDestroyPort(const uint8_t* rec, size_t len);

// L2PM's configuration download (an L2PM notification of kind 2): its interface, VLAN and
// LAG records rebuild the records as IFM's would.
int vornProcessL2PmDnld(uint8_t* msg);

// Sends a copy of the notification, exactly as long as it is, to every registered agent,
// after dumping it. Returns 0.
int vornSendIfmMsgToAgt(const uint8_t* msg);
// Prints the notification and its records while vornMsgPrint is set.
void vornDumpIfmMsg(const uint8_t* msg);

// Handlers of IFM's records, also run by L2PM's configuration download. `rec` is the
// record's data (the bytes after the 4-byte record header, big-endian) and `len` its size.
// A record too short for the fields its handler reads is dropped, said under the error
// flag, and -1 is returned (the interface add lets the attribute word and MAC address
// read as zero, as vornCreateVlan and vornCreatePort do). Otherwise they return 0; the
// callers ignore the result.
int vornProcessAddIf(const uint8_t* rec, size_t len);
int vornProcessDelIf(const uint8_t* rec, size_t len);
int vornProcessOperUp(const uint8_t* rec, size_t len);
int vornProcessOperDn(const uint8_t* rec, size_t len);
int vornProcessMacAddrChg(const uint8_t* rec, size_t len);
int vornProcessPortMode(const uint8_t* rec, size_t len);
int vornProcessAddVlanPort(const uint8_t* rec, size_t len);
int vornProcessDelVlanPort(const uint8_t* rec, size_t len);
int vornProcessAddVlanBmpPort(const uint8_t* rec, size_t len);
int vornProcessAddLagPort(const uint8_t* rec, size_t len);
int vornProcessDelLagPort(const uint8_t* rec, size_t len);
// The interface-mode-change record feeds the peer-pair LAG associations; returns what the
// peer-pair handler returned, or 0 when none ran.
int vornProcessIfmIfModeChgMsg(const uint8_t* rec, size_t len);

// Stops a running ring whose interface IFM took away. Returns 0.
int vornDisableRingOnIfmChange(VornRingEntry* ring);
// Tells IFM which ports are ring interfaces, and whether the primary is the peer pair's
// inter-chassis link: action 1 add, 2 remove. Returns 0 when the notice was sent or none was
// due, -1 for an unknown port or action or a failed send.
int vornNotifRingIfCfgToIFM(uint32_t priIfIndex, uint32_t secIfIndex, uint32_t action);
// Asks IFM whether a VLAN may serve as a control VLAN (action 1) or releases it (2);
// returns IFM's reply code, or -1 when the exchange failed.
int vornIfmRMirrReqInfo(uint16_t vlanId, uint32_t action);
