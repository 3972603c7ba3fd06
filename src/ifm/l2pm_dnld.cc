// L2PM's configuration download: after the manager registers, L2PM replays the interfaces
// it knows in download notifications, and the manager runs each record through the same
// handlers as IFM's notifications, so that a manager started late builds the same port,
// VLAN and LAG state as one that saw every notification.
//
// Download notification (MT_L2PM_NOTIF over SWP), big-endian:
//   0..247  IPC header (60), SWP header (64), reserved (zero)
//   248  u32 notification kind: 2 (download)
//   252  i32 number of records; 0 or less means none
//   256  records, back to back
// Every record starts with the interface's ifIndex (u32); its length follows from the
// interface:
//   management port (type 1), VLAN (type 24)      144 bytes, only the ifIndex is read
//   physical port or LAG (type 22)                144 bytes, or 1680 with a VLAN bitmap
//   anything else                                 0: the walk stays on it (see below)
// Port or LAG record:
//   0    u32 ifIndex
//   4    u32 ifIndex of the LAG this port is a member of, 0 when none
//   22   u32 oper status, 16 = up
//   26   6   MAC address
//   33   u8  non-zero: tagged member of the VLANs of the bitmap
//   50   u8  non-zero: the VLAN bitmap at 144 is present and the record is 1680 bytes
//   144  512 VLAN membership, bit n in byte n / 8 under 0x80 >> (n % 8)
//   656  1024 rest of the long record, not read
// Other bytes are not read (a sender leaves them zero).
//
// A record of any other interface is counted but not stepped over, so it is classified
// again for every remaining count: it ends the useful part of the download. The walk never
// reads outside the message and never takes more steps than the message could hold
// 144-byte records; a record that runs past the message ends the walk.

#include <array>
#include <span>

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/msg.h"
#include "task/msgtypes.h"
#include "task/swpq.h"
#include "task/trace.h"

namespace {

using vorn::be::Reader;
using vorn::be::Writer;

constexpr size_t kOffNumRecords = 252;
constexpr size_t kOffRecords = 256;
constexpr size_t kShortRecLen = 144;
constexpr size_t kLongRecLen = 1680;
// Port or LAG record fields.
constexpr size_t kOffLagIf = 4;
constexpr size_t kOffOperStatus = 22;
constexpr size_t kOffMac = 26;
constexpr size_t kOffTagged = 33;
constexpr size_t kOffVlansPresent = 50;
constexpr size_t kOffVlans = 144;
constexpr uint32_t kOperUp = 16;
static_assert(kOffNumRecords + 4 == kOffRecords && VORN_L2PM_NOTIF_KIND_OFF + 4 == kOffNumRecords);
static_assert(kOffVlans == kShortRecLen && kOffVlans + VORN_VLAN_BMAP_BYTES + 1024 == kLongRecLen);

// The handlers' records (IFM's record data): interface add with the MAC address at 16,
// VLAN port add, LAG member add.
constexpr size_t kAddIfMacOff = 16;
constexpr size_t kAddIfLen = kAddIfMacOff + 6;
constexpr size_t kVlanPortLen = 10;
constexpr size_t kLagPortLen = 8;

enum class IfKind { Management, Vlan, PortOrLag, Other };

// The classification of the IFM handlers: management port, VLAN, physical port, LAG.
IfKind classify(uint32_t ifIndex) {
    uint32_t type = ifmIfIndexToIfType(ifIndex);
    if (type == vorn::ifm::kTypeManagement) return IfKind::Management;
    if (type == vorn::ifm::kTypeVlan) return IfKind::Vlan;
    if (ifmIfIndexToPlFlag(ifIndex) != 0 || type == vorn::ifm::kTypeLag) return IfKind::PortOrLag;
    return IfKind::Other;
}

// A VLAN as IFM's interface add creates it, from a record holding only the ifIndex (so
// its attribute word is 0).
void replayVlan(uint32_t ifIndex) {
    std::array<uint8_t, 4> rec{};
    Writer(rec.data(), rec.size()).u32(0, ifIndex);
    vornCreateVlan(rec.data(), rec.size());
}

// One port or LAG record (`r` spans exactly the record): create, oper up, LAG membership,
// then every VLAN of the bitmap in ascending order. The oper-up handler thus runs before
// the port has any VLAN, and the VLAN-port handler sets each VLAN's state as it is added.
void replayPort(const Reader& r, uint32_t ifIndex) {
    std::array<uint8_t, kAddIfLen> addIf{};
    Writer w(addIf.data(), addIf.size());
    w.u32(0, ifIndex);
    std::array<uint8_t, 6> mac{};
    r.bytes(kOffMac, mac.data(), mac.size());
    w.bytes(kAddIfMacOff, mac.data(), mac.size());
    vornCreatePort(addIf.data(), addIf.size());

    if (r.u32(kOffOperStatus) == kOperUp) vornProcessOperUp(addIf.data(), sizeof(uint32_t));

    if (uint32_t lagIf = r.u32(kOffLagIf); lagIf != 0) {
        std::array<uint8_t, kLagPortLen> lag{};
        Writer lw(lag.data(), lag.size());
        lw.u32(0, lagIf);
        lw.u32(4, ifIndex);
        vornProcessAddLagPort(lag.data(), lag.size());
    }

    if (r.u8(kOffVlansPresent) == 0) return;
    std::span<const uint8_t> vlans = r.view(kOffVlans, VORN_VLAN_BMAP_BYTES);
    uint16_t tagged = r.u8(kOffTagged);
    for (uint16_t v = GET_FIRST_BIT_BITMAP(vlans, VORN_VLAN_BMAP_BITS); v != vorn::bmp::kNoBit;
         v = GET_NEXT_BIT_BITMAP(vlans, VORN_VLAN_BMAP_BITS, v)) {
        std::array<uint8_t, kVlanPortLen> vp{};
        Writer vw(vp.data(), vp.size());
        vw.u32(0, ifmCreateIfIndex(vorn::ifm::kTypeVlan, 0, 0, v));
        vw.u32(4, ifIndex);
        vw.u16(8, tagged);
        vornProcessAddVlanPort(vp.data(), vp.size());
    }
}

}  // namespace

int vornProcessL2PmDnld(uint8_t* msg) {
    if (msg == nullptr) return 0;
    Reader rd = vornMsgReader(msg);
    int32_t numRecords = rd.i32(kOffNumRecords);
    if (numRecords <= 0) return 0;
    // Records are at least 144 bytes long: no more steps than that many fit the message.
    size_t maxSteps = rd.size() > kOffRecords ? (rd.size() - kOffRecords) / kShortRecLen : 0;
    size_t off = kOffRecords;
    size_t steps = 0;
    for (int32_t count = 0; count < numRecords; ++count, ++steps) {
        if (steps == maxSteps) {
            VORN_ERR(
                "%s(): %ld records claimed, a message of %zu bytes holds at most %zu; "
                "download stopped\r\n",
                __func__, static_cast<long>(numRecords), rd.size(), maxSteps);
            break;
        }
        if (!rd.fits(off, sizeof(uint32_t))) {
            VORN_ERR(
                "%s(): %ld records claimed, record %ld would start at offset %zu past the "
                "message of %zu bytes; download stopped\r\n",
                __func__, static_cast<long>(numRecords), static_cast<long>(count), off, rd.size());
            break;
        }
        uint32_t ifIndex = rd.u32(off);
        IfKind kind = classify(ifIndex);
        if (kind == IfKind::Other) continue;  // counted, not stepped over
        size_t recLen = kShortRecLen;
        if (kind == IfKind::PortOrLag && rd.u8(off + kOffVlansPresent) != 0) recLen = kLongRecLen;
        if (!rd.fits(off, recLen)) {
            VORN_ERR(
                "%s(): record %ld (ifIndex 0x%x, %zu bytes) at offset %zu runs past the "
                "message of %zu bytes; download stopped\r\n",
                __func__, static_cast<long>(count), ifIndex, recLen, off, rd.size());
            break;
        }
        if (kind == IfKind::Vlan) replayVlan(ifIndex);
        if (kind == IfKind::PortOrLag) replayPort(Reader(rd.view(off, recLen)), ifIndex);
        off += recLen;
    }
    return 0;
}
