// Interface-information download to the agents: the records of every VLAN and port the
// manager knows, batched per line card in a pending buffer that leaves as one 0x6403
// message, and the dump of such a buffer.
//
// Message 0x6403 (MT_VORN_IF_INFO), big-endian:
//   0..123   IPC and SWP headers (zero when built; the SWP send fills them)
//   124  u32 byte count of the records that follow (IfInfoLen)
//   128  u32 number of records
//   132  records, packed back to back; the message is 132 + IfInfoLen bytes long
// Record (20 bytes, or 532 when byte 19 is 1):
//   0   u32 ifIndex of the port or VLAN
//   4   u32 VLAN: IFM's attribute word; port: 0
//   8   u32 ifIndex of the port's LAG, 0 when none (always 0 for a VLAN)
//   12  6   MAC address of the port (zero for a VLAN)
//   18  u8  oper state of the port, 1 = up (0 for a VLAN)
//   19  u8  1 when a 512-byte VLAN bitmap follows
//   20  512 VLANs the port is a member of, bit n in byte n / 8 under 0x80 >> (n % 8)
// A full download sends the VLANs 1..4095 first, then the ports 1..897, each ascending;
// a port with no VLAN gets a 20-byte record, one with any VLAN a 532-byte record.

#include <algorithm>
#include <array>
#include <cstring>

#include "agent/agent.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

namespace ifi = vorn::ifinfo;
using vorn::be::Reader;
using vorn::be::Writer;

constexpr size_t kNameLen = 64;

// A fresh zeroed message buffer from the variable pool, or null (logged for the slot).
uint8_t* takeZeroedBuffer(const char* fn, int slot) {
    auto* buf = static_cast<uint8_t*>(vornVarPoolMalloc(VORN_MSG_BUF_SIZE));
    if (buf == nullptr) {
        VORN_ERR("%s(): Buffer alloc failed. LineCard = %ld\r\n", fn, static_cast<long>(slot));
        return nullptr;
    }
    std::memset(buf, 0, VORN_MSG_BUF_SIZE);
    return buf;
}

// The byte count of a pending buffer, never more than its record area.
uint32_t pendingBytes(const uint8_t* buf) {
    uint32_t len = Reader(buf, VORN_MSG_BUF_SIZE).u32(ifi::kOffByteCount);
    return std::min<uint32_t>(len, VORN_MSG_BUF_SIZE - ifi::kOffRecords);
}

}  // namespace

int vornFillAndSendIfInfo(int slot, const uint8_t* record, const uint8_t* vlanBitmap,
                          uint32_t recordLength) {
    if (slot < 0 || slot >= VORN_MAX_SLOTS || record == nullptr) {
        VORN_ERR("%s(): Invalid LineCard %ld or no record\r\n", __func__, static_cast<long>(slot));
        return -1;
    }
    Reader rec(record, ifi::kRecLen);
    bool withVlans = rec.u8(ifi::kOffVlansPresent) == 1;
    // What is copied follows byte 19. A length that disagrees with it is logged; the larger
    // of the two (at most a long record) decides whether the buffer has room, so the copy
    // always fits.
    uint32_t copied = withVlans ? ifi::kRecWithVlansLen : ifi::kRecLen;
    if (recordLength != copied) {
        VORN_ERR("%s(): record length %lu, record holds %lu bytes. LineCard = %ld\r\n", __func__,
                 static_cast<unsigned long>(recordLength), static_cast<unsigned long>(copied),
                 static_cast<long>(slot));
    }
    uint32_t needed = std::clamp(recordLength, copied, ifi::kRecWithVlansLen);

    uint8_t*& buf = gapVornIfDnldBuf[slot];
    if (buf == nullptr) {
        buf = takeZeroedBuffer(__func__, slot);
        if (buf == nullptr) return -1;
    }
    uint32_t used = pendingBytes(buf);
    if (ifi::kOffRecords + used + needed > VORN_MSG_BUF_SIZE) {
        // Full: this buffer leaves now and the record starts a fresh one.
        if (vornMsgPrint != 0) vornDumpIfDnldBuf(buf);
        vornSwpSendToAgent(MT_VORN_IF_INFO, buf, ifi::kOffRecords + used, slot);
        buf = takeZeroedBuffer(__func__, slot);
        if (buf == nullptr) return -1;
        used = 0;
    }
    Writer w(buf, VORN_MSG_BUF_SIZE);
    size_t off = ifi::kOffRecords + used;
    w.bytes(off, record, ifi::kRecLen);
    if (withVlans) {
        if (vlanBitmap != nullptr) {
            w.bytes(off + ifi::kOffVlans, vlanBitmap, VORN_VLAN_BMAP_BYTES);
        } else {
            VORN_ERR("%s(): record announces Vlans but none given. LineCard = %ld\r\n", __func__,
                     static_cast<long>(slot));
            w.zero(off + ifi::kOffVlans, VORN_VLAN_BMAP_BYTES);
        }
    }
    w.u32(ifi::kOffByteCount, used + copied);
    w.u32(ifi::kOffCount, w.reader().u32(ifi::kOffCount) + 1);
    return 0;
}

int vornDnldIfInfoToAgt(int slot) {
    std::array<uint8_t, ifi::kRecLen> rec{};
    for (uint16_t vlanId = 1; vlanId <= VORN_MAX_VLAN_ID; ++vlanId) {
        const VornVlanEntry* vlan = gVornVlan[vlanId];
        if (vlan == nullptr) continue;
        rec.fill(0);
        Writer w(rec.data(), rec.size());
        w.u32(ifi::kOffIfIndex, vlan->u4IfIndex);
        w.u32(ifi::kOffAttr, vlan->u4IfmAttr);
        // A lost record is logged where it is lost; the download goes on.
        vornFillAndSendIfInfo(slot, rec.data(), nullptr, ifi::kRecLen);
    }
    for (uint16_t portNum = 1; portNum <= VORN_MAX_PORT_NUM; ++portNum) {
        const VornPortEntry* port = gVornPort[portNum];
        if (port == nullptr) continue;
        rec.fill(0);
        Writer w(rec.data(), rec.size());
        w.u32(ifi::kOffIfIndex, port->u4IfIndex);
        const VornPortEntry* lagPort = vornGetPort(port->u2LagParent);
        w.u32(ifi::kOffLagIf, lagPort != nullptr ? lagPort->u4IfIndex : 0);
        w.bytes(ifi::kOffMac, port->macAddr.data(), port->macAddr.size());
        w.u8(ifi::kOffOperState, static_cast<uint8_t>(port->u2OperState));
        bool withVlans = !BITMAP_IS_EMPTY(port->vlanBmap);
        w.u8(ifi::kOffVlansPresent, withVlans ? 1 : 0);
        vornFillAndSendIfInfo(slot, rec.data(), withVlans ? port->vlanBmap.data() : nullptr,
                              withVlans ? ifi::kRecWithVlansLen : ifi::kRecLen);
    }
    return 0;
}

// Interface-information buffers are dumped under message printing.
#define VORN_DUMP(...) VORN_TRACE(vornMsgPrint, __VA_ARGS__)

void vornDumpIfDnldBuf(const uint8_t* buf) {
    if (buf == nullptr || vornMsgPrint == 0) return;
    Reader rd(buf, VORN_MSG_BUF_SIZE);
    uint32_t count = rd.u32(ifi::kOffCount);
    uint32_t bytes = rd.u32(ifi::kOffByteCount);
    VORN_DUMP("Num Elements : %ld, IfInfoLen = %ld\r\n", static_cast<long>(count),
              static_cast<long>(bytes));
    // The records shown lie within the byte count and the buffer, and are no more than
    // the record area could hold of the short kind.
    size_t end = ifi::kOffRecords + std::min<size_t>(bytes, VORN_MSG_BUF_SIZE - ifi::kOffRecords);
    uint32_t shown = std::min(count, ifi::kMaxRecords);
    size_t off = ifi::kOffRecords;
    uint32_t i = 0;
    for (; i < shown; ++i) {
        size_t len = rd.u8(off + ifi::kOffVlansPresent) == 1 ? ifi::kRecWithVlansLen : ifi::kRecLen;
        if (off + len > end) break;
        VORN_DUMP("Record : %ld\r\n", static_cast<long>(i));
        vornDumpIfInfoNode(buf + off, len);
        off += len;
    }
    if (i < count) {
        VORN_ERR("%s(): %lu records claimed, %lu lie within %lu bytes\r\n", __func__,
                 static_cast<unsigned long>(count), static_cast<unsigned long>(i),
                 static_cast<unsigned long>(bytes));
    }
}

void vornDumpIfInfoNode(const uint8_t* node, size_t len) {
    if (node == nullptr || vornMsgPrint == 0) return;
    Reader rd(node, len);
    std::array<char, kNameLen> name{};
    ifmIfIndexToName(rd.u32(ifi::kOffIfIndex), name.data(), name.size());
    VORN_DUMP("\t IfName              : %s\r\n", name.data());
    if (uint32_t lagIf = rd.u32(ifi::kOffLagIf); lagIf != 0) {
        ifmIfIndexToName(lagIf, name.data(), name.size());
        VORN_DUMP("\t Lag If              : %s\r\n", name.data());
    }
    std::array<uint8_t, 6> mac{};
    rd.bytes(ifi::kOffMac, mac.data(), mac.size());
    VORN_DUMP("\t Mac Addr            : %x:%x:%x:%x:%x:%x \r\n", mac[0], mac[1], mac[2], mac[3],
              mac[4], mac[5]);
    VORN_DUMP("\t Oper Status         : %d\r\n", rd.u8(ifi::kOffOperState));
    if (rd.u8(ifi::kOffVlansPresent) == 1) {
        vornPrintVlanBmap(rd.view(ifi::kOffVlans, VORN_VLAN_BMAP_BYTES),
                          "\t Vlans               : ");
    }
}
