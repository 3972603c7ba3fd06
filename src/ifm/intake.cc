// IFM notification intake: the copy of every notification to the agents, the walk over its
// records, the counters of the record types, and the hand-over of each record to its
// handler.

#include <array>
#include <cstring>

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "ifm/ifm_internal.h"
#include "platform/ifindex.h"
#include "task/msg.h"
#include "task/pools.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/msgtypes.h"

namespace {

using vorn::ifmrec::Record;

constexpr const char* kFn = "vornProcessIfmNotif";
constexpr size_t kNameLen = 64;
using NameBuf = std::array<char, kNameLen>;

// The short name of the ifIndex at `off` of the record's data, for the trace lines.
const char* nameAt(const Record& rec, size_t off, NameBuf& buf) {
    const uint32_t ifIndex = vorn::be::Reader(rec.data, rec.dataLen).u32(off);
    return ifmIfIndexToName(ifIndex, buf.data(), buf.size());
}

// IFM's end-of-configuration records set the flag that L2PM's own notification also sets;
// they send nothing.
void noteEndOfConfig() {
    if (vornTcb.recvEOConf == 0) vornTcb.recvEOConf = 1;
}

// Counts, traces and hands on one record. The counter goes up before the handler runs,
// whatever the handler then finds.
void processRecord(const Record& rec, NameBuf& ifName, NameBuf& memberName) {
    const uint8_t* d = rec.data;
    const size_t n = rec.dataLen;
    switch (rec.type) {
        case IFM_TYP_ADD_IF:
            VORN_DBG("%s: ADD If %s\r\n", kFn, nameAt(rec, 0, ifName));
            vornProcessAddIf(d, n);
            break;
        case IFM_TYP_DEL_IF:
            VORN_DBG("%s: DEL_IF %s\r\n", kFn, nameAt(rec, 0, ifName));
            vornProcessDelIf(d, n);
            break;
        case IFM_TYP_OSTATE_UP:
            VORN_DBG("%s: OPER_UP - %s\r\n", kFn, nameAt(rec, 0, ifName));
            vornCount(VORN_CNT_OPER_UP);
            vornProcessOperUp(d, n);
            break;
        case IFM_TYP_OSTATE_DN:
            VORN_DBG("%s: OPER_DN - %s\r\n", kFn, nameAt(rec, 0, ifName));
            vornCount(VORN_CNT_OPER_DOWN);
            vornProcessOperDn(d, n);
            break;
        case IFM_TYP_ADMIN_UP:
        case IFM_TYP_ADMIN_DN:
            VORN_DBG("%s: ADMIN_UP \r\n", kFn);
            break;
        case IFM_TYP_MACADDR_CHG:
            VORN_DBG("%s: MAC_CH \r\n", kFn);
            vornCount(VORN_CNT_MAC_CHANGE);
            vornProcessMacAddrChg(d, n);
            break;
        case IFM_TYP_CHG_PORT_MODE:
            VORN_DBG("%s: MODE_CH \r\n", kFn);
            vornCount(VORN_CNT_PORT_MODE);
            vornProcessPortMode(d, n);
            break;
        case IFM_TYP_IF_MODE_CHG:
            vornProcessIfmIfModeChgMsg(d, n);
            break;
        case IFM_TYP_ADD_VLAN_PORT:
            VORN_DBG("%s: ADD_VLAN_PORT \r\n", kFn);
            vornCount(VORN_CNT_ADD_VLAN_PORT);
            vornProcessAddVlanPort(d, n);
            break;
        case IFM_TYP_DEL_VLAN_PORT:
            VORN_DBG("%s: DEL_VLAN_PORT \r\n", kFn);
            vornCount(VORN_CNT_DEL_VLAN_PORT);
            vornProcessDelVlanPort(d, n);
            break;
        case IFM_TYP_ADD_VLANBMP_PORT:
            // The handler counts once per VLAN of the list.
            VORN_DBG("%s: ADD_VLANBMP_PORT \r\n", kFn);
            vornProcessAddVlanBmpPort(d, n);
            break;
        case IFM_TYP_ADD_LAG_PORT:
            VORN_DBG("%s: ADD_LAG_PORT - LAG: %s, Member: %s \r\n", kFn, nameAt(rec, 0, ifName),
                     nameAt(rec, VORN_IFM_LAG_MEMBER_OFF, memberName));
            vornProcessAddLagPort(d, n);
            break;
        case IFM_TYP_DEL_LAG_PORT:
            VORN_DBG("%s: DEL_LAG_PORT - LAG: %s, Member: %s \r\n", kFn, nameAt(rec, 0, ifName),
                     nameAt(rec, VORN_IFM_LAG_MEMBER_OFF, memberName));
            vornProcessDelLagPort(d, n);
            break;
        case IFM_TYP_END_BLK_CFG:
            vornCount(VORN_CNT_L2PM_END_BLK_CFG);
            noteEndOfConfig();
            break;
        case L2PM_TYP_INIT_CFG_COMPLETE:
            vornCount(VORN_CNT_L2PM_CFG_COMPLETE);
            noteEndOfConfig();
            break;
        default:
            VORN_DBG("%s(): Default case. type = %d\r\n", kFn, rec.type);
            break;
    }
}

}  // namespace

int vornProcessIfmNotif(uint8_t* msg) {
    if (msg == nullptr) return 0;
    NameBuf ifName{};
    NameBuf memberName{};
    // Every agent gets every notification, whether or not the manager cares about it.
    vornSendIfmMsgToAgt(msg);

    const vorn::be::Reader r = vornMsgReader(msg);
    const int32_t numElem = r.i32(VORN_IFM_NUM_ELEM_OFF);
    if (!r.ok()) {
        VORN_ERR("%s(): message of %lu bytes holds no NumElem, dropped\r\n", kFn,
                 static_cast<unsigned long>(r.size()));
        return 0;
    }
    if (numElem <= 0) return 0;
    vorn::ifmrec::walkRecords(r, numElem, kFn,
                              [&](const Record& rec) { processRecord(rec, ifName, memberName); });
    return 0;
}

int vornSendIfmMsgToAgt(const uint8_t* msg) {
    if (msg == nullptr) return 0;
    vornDumpIfmMsg(msg);
    const vorn::be::Reader r = vornMsgReader(msg);
    const size_t len = r.size();
    // The SWP layer writes its header into the copy; a message too short to have one is
    // not a notification that passed the sequence check.
    if (len < vorn::ipc::kSwpBodyOff) {
        VORN_ERR("%s(): message of %lu bytes has no SWP header, not copied\r\n", __func__,
                 static_cast<unsigned long>(len));
        return 0;
    }
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot) {
        if (vornTcb.vornaSwpHandle[slot] == 0) continue;
        void* copy = vornVarPoolMalloc(static_cast<uint32_t>(len));
        if (copy == nullptr) {
            VORN_DBG("%s(): Cannot allocate buffer of size %ld to send IFM msg to Agent. \r\n",
                     __func__, static_cast<long>(len));
            continue;
        }
        std::memcpy(copy, r.data(), len);
        // The SWP layer owns the copy from here on.
        vornSwpSendToAgent(MT_IFM_NOTIF_MSG, copy, static_cast<uint32_t>(len), slot);
    }
    return 0;
}
