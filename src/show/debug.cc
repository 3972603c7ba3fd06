// Ring debugging: the settings in the ring record, their configuration entries under the
// debug header (DIR/debug-config), and the debug-download records for the agent of the
// ring's designated line card, which does the debugging.

#include <array>
#include <cstdio>
#include <string>

#include "agent/agent.h"
#include "agent/pending.h"
#include "platform/cfgstore.h"
#include "platform/codec.h"
#include "ringdb/records.h"
#include "show/show.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/show.h"

namespace {

namespace dbg = vorn::agt::dbg;
namespace rq = vorn::dbgreq;

constexpr int kUndebugAllIndex = 7;

VornDbgRequest readRequest(const uint8_t* request) {
    vorn::be::Reader rd(request, vorn::nm::kLen);
    VornDbgRequest r;
    r.ringId = rd.u32(rq::kOffRingId);
    r.off = rd.u8(rq::kOffOff);
    r.type = rd.u32(rq::kOffType);
    r.mode = rd.u32(rq::kOffMode);
    r.count = rd.u32(rq::kOffCount);
    return r;
}

QelCfgRecord vornDebugConfigCreateKey(uint32_t ringId, uint32_t type, uint32_t mode,
                                      std::string text) {
    QelCfgRecord rec;
    rec.section = QelCfgSection::kDebug;
    rec.ringId = static_cast<uint16_t>(ringId);
    rec.debugType = type;
    rec.debugMode = mode;
    rec.text = std::move(text);
    return rec;
}

QelCfgRecord headerRecord() {
    QelCfgRecord rec;
    rec.section = QelCfgSection::kDebugHeader;
    rec.text = rq::kHeader;
    return rec;
}

bool anyRingDebugging() {
    for (uint32_t id = VORN_MIN_RING_ID; id <= VORN_MAX_RING_ID; ++id) {
        const VornRingEntry* ring = gVornRing[id];
        if (ring == nullptr) continue;
        for (const VornDbgEntry& e : ring->dbgCfg)
            if (e.isSet == 1) return true;
    }
    return false;
}

}  // namespace

int vornDebugIndex(uint32_t type, uint32_t mode) {
    // A detail or packet request with another mode counts as event debugging: kept as the
    // agents and the configuration have always had it.
    auto byMode = [mode](int both) {
        return mode == rq::kModeBoth ? both
               : mode == rq::kModeRx ? both + 1
               : mode == rq::kModeTx ? both + 2
                                     : 0;
    };
    switch (type) {
        case rq::kTypeEvent:
            return 0;
        case rq::kTypeDetail:
            return byMode(1);
        case rq::kTypePacket:
            return byMode(4);
        default:
            return -1;
    }
}

void vornDebugHeaderInsert() {
    if (qelCfgInsert(vornTcb.pKey, headerRecord()) != 0)
        std::printf("%s: qelCfgInsert error\r\n", "vornDebugHeaderInsert");
}

void vornDebugHeaderRemove() {
    qelCfgRemoveExact(vornTcb.pKey, headerRecord());
}

int vornProcessDbgMsg(uint8_t* request) {
    if (request == nullptr) return -1;
    const VornDbgRequest r = readRequest(request);
    VORN_DBG(" the val of vornDbgCfg.vornDbgType = %d\r\n", static_cast<int>(r.type));
    VORN_DBG(" the val of vornDbgCfg.vornDbgMode = %d\r\n", static_cast<int>(r.mode));
    VORN_DBG(" the val of vornDbgCfg.count = %d\r\n", static_cast<int>(r.count));
    VornRingEntry* ring = r.ringId <= VORN_MAX_RING_ID ? vornGetRing(r.ringId) : nullptr;
    if (ring == nullptr) {
        VORN_ERR("%s() Invalid Ring Id: %d\r\n", "vornProcessDbgMsg", static_cast<int>(r.ringId));
        return -1;
    }
    const bool on = r.off != 1;
    const int index = vornDebugIndex(r.type, r.mode);
    if (index < 0) {
        VORN_PUTS(vornDbgPrint, "Default case\r");
        return -1;
    }
    if (on) vornDebugHeaderInsert();
    ring->dbgCfg[static_cast<size_t>(index)] = on ? VornDbgEntry{1, r.count} : VornDbgEntry{0, 0};
    vornDebugAddRemoveConfig(index, r, *ring);
    if (ring->u2DesgLineCard < VORN_NO_LINE_CARD)
        vornFillAndSendDbgBuf(ring->u2DesgLineCard, r, index);
    return 0;
}

void vornDebugAddRemoveConfig(int index, const VornDbgRequest& request, const VornRingEntry& ring) {
    static const char* const kFn = "vornDebugAddRemoveConfig";
    if (index < 0 || index >= VORN_NUM_DBG_TYPES) return;
    const auto i = static_cast<size_t>(index);
    char text[96];
    std::snprintf(text, sizeof(text), rq::kSettingsByIndex[i].text, ring.u2RingId);
    std::string line = text;
    if (ring.dbgCfg[i].count != 0) {
        std::snprintf(text, sizeof(text), rq::kCountSuffix,
                      static_cast<long>(ring.dbgCfg[i].count));
        line += text;
    }
    QelCfgRecord rec =
        vornDebugConfigCreateKey(ring.u2RingId, request.type, request.mode, std::move(line));
    // Both failures are printed whatever the print flags.
    if (request.off != 1) {
        if (qelCfgInsert(vornTcb.pKey, rec) != 0) std::printf("%s: qelCfgInsert error\r\n", kFn);
    } else if (qelCfgRemoveExact(vornTcb.pKey, rec) != 0) {
        std::printf("%s: qelCfgRemoveExact error\r\n", kFn);
    }
    if (!anyRingDebugging()) vornDebugHeaderRemove();
    if (qelCfgSync(vornTcb.pKey) != 0) VORN_PUTS(vornDbgPrint, "qelCfgSync ERROR\r");
}

int vornFillAndSendDbgBuf(int slot, const VornDbgRequest& request, int index) {
    size_t rec = 0;
    uint8_t* buf = vornDbgRecordAppend(slot, static_cast<uint16_t>(request.ringId), &rec);
    if (buf == nullptr) return -1;
    if (index >= 0 && index < kUndebugAllIndex)
        vornDbgEntryFill(buf, rec, index, {request.off, request.type, request.mode, request.count});
    else if (index == kUndebugAllIndex && request.ringId == 0)
        vorn::be::Writer(buf, VORN_MSG_BUF_SIZE).u32(dbg::kOffUndebugAll, 1);
    return 0;
}

int vornUndebugAll(uint8_t* /*msg*/) {
    std::array<bool, VORN_MAX_SLOTS> marked{};
    for (uint32_t id = VORN_MIN_RING_ID; id <= VORN_MAX_RING_ID; ++id) {
        VornRingEntry* ring = gVornRing[id];
        // Rings that no agent runs keep their settings.
        if (ring == nullptr || ring->u2DesgLineCard >= VORN_NO_LINE_CARD) continue;
        for (const VornDbgEntry& e : ring->dbgCfg)
            if (e.isSet == 1) marked[ring->u2DesgLineCard] = true;
        ring->dbgCfg.fill(VornDbgEntry{0, 0});
    }
    // The configuration entries and the header stay as they are.
    for (int slot = 0; slot < VORN_MAX_SLOTS; ++slot)
        if (marked[static_cast<size_t>(slot)])
            vornFillAndSendDbgBuf(slot, VornDbgRequest{}, kUndebugAllIndex);
    return 0;
}
