// L2PM's configuration download: after the manager registers, L2PM replays the interfaces
// it knows in download notifications, and the manager runs each record through the same
// handlers as IFM's notifications, so that a manager started late builds the same port,
// VLAN and LAG state as one that saw every notification.
//
// The download's layout is in wire/l2pm.h. A record's length follows from its interface:
// a management port's or a VLAN's is 144 bytes, a physical port's or a LAG's 144 or, with
// its VLAN bitmap, 1680; any other interface's is 0 (see below).
//
// A record of any other interface is counted but not stepped over, so it is classified
// again for every remaining count: it ends the useful part of the download. The walk never
// reads outside the message and never takes more steps than the message could hold
// 144-byte records; a record that runs past the message ends the walk.

#include <array>
#include <span>

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/msg.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/l2pm.h"

namespace {

using vorn::be::Reader;
using vorn::be::Writer;

// The download classifies interfaces as the IFM handlers do.
using vorn::ifmrec::classify;
using vorn::ifmrec::IfKind;

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
    std::array<uint8_t, VORN_IFM_IF_LEN> addIf{};
    Writer w(addIf.data(), addIf.size());
    w.u32(0, ifIndex);
    std::array<uint8_t, 6> mac{};
    r.bytes(VORN_L2PM_DNLD_MAC_OFF, mac.data(), mac.size());
    w.bytes(VORN_IFM_IF_MAC_OFF, mac.data(), mac.size());
    vornCreatePort(addIf.data(), addIf.size());

    if (r.u32(VORN_L2PM_DNLD_OPER_OFF) == VORN_L2PM_DNLD_OPER_UP)
        vornProcessOperUp(addIf.data(), sizeof(uint32_t));

    if (uint32_t lagIf = r.u32(VORN_L2PM_DNLD_LAG_OFF); lagIf != 0) {
        std::array<uint8_t, VORN_IFM_LAG_PORT_LEN> lag{};
        Writer lw(lag.data(), lag.size());
        lw.u32(0, lagIf);
        lw.u32(VORN_IFM_LAG_MEMBER_OFF, ifIndex);
        vornProcessAddLagPort(lag.data(), lag.size());
    }

    if (r.u8(VORN_L2PM_DNLD_HAS_VLANS_OFF) == 0) return;
    std::span<const uint8_t> vlans = r.view(VORN_L2PM_DNLD_VLANS_OFF, VORN_VLAN_BMAP_BYTES);
    uint16_t tagged = r.u8(VORN_L2PM_DNLD_TAGGED_OFF);
    for (uint16_t v = GET_FIRST_BIT_BITMAP(vlans, VORN_VLAN_BMAP_BITS); v != vorn::bmp::kNoBit;
         v = GET_NEXT_BIT_BITMAP(vlans, VORN_VLAN_BMAP_BITS, v)) {
        std::array<uint8_t, VORN_IFM_VLAN_PORT_LEN> vp{};
        Writer vw(vp.data(), vp.size());
        vw.u32(0, ifmCreateIfIndex(vorn::ifm::kTypeVlan, 0, 0, v));
        vw.u32(VORN_IFM_VP_PORT_OFF, ifIndex);
        vw.u16(VORN_IFM_VP_TAGGED_OFF, tagged);
        vornProcessAddVlanPort(vp.data(), vp.size());
    }
}

}  // namespace

int vornProcessL2PmDnld(uint8_t* msg) {
    if (msg == nullptr) return 0;
    Reader rd = vornMsgReader(msg);
    int32_t numRecords = rd.i32(VORN_L2PM_DNLD_COUNT_OFF);
    if (numRecords <= 0) return 0;
    // Records are at least 144 bytes long: no more steps than that many fit the message.
    size_t maxSteps = rd.size() > VORN_L2PM_DNLD_RECORDS_OFF
                          ? (rd.size() - VORN_L2PM_DNLD_RECORDS_OFF) / VORN_L2PM_DNLD_SHORT_LEN
                          : 0;
    size_t off = VORN_L2PM_DNLD_RECORDS_OFF;
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
        size_t recLen = VORN_L2PM_DNLD_SHORT_LEN;
        if (kind == IfKind::PortOrLag && rd.u8(off + VORN_L2PM_DNLD_HAS_VLANS_OFF) != 0)
            recLen = VORN_L2PM_DNLD_LONG_LEN;
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
