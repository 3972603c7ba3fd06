// The records of the show answers: a ring's detail record with the agent's counters, its
// summary record, and the member-VLAN text that both views carry.

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "platform/bitmap.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "show/show.h"
#include "task/swpq.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/show.h"

namespace {

namespace sh = vorn::show;
namespace st = vorn::agt::stats;

// Space a VLAN needs before it is written after a gap or extends a run: ",4095" and the NUL.
constexpr size_t kVlanRoom = 6;

// Writes a formatted text into a record's field: cut to the width less its NUL. The field
// is zero-filled already.
__attribute__((format(printf, 3, 4))) void putText(std::span<uint8_t> rec, sh::Field f,
                                                   const char* fmt, ...) {
    char text[64];
    va_list ap;
    va_start(ap, fmt);
    int n = std::vsnprintf(text, sizeof(text), fmt, ap);
    va_end(ap);
    if (n <= 0 || f.width == 0 || f.off + f.width > rec.size()) return;
    size_t len = std::min({static_cast<size_t>(n), sizeof(text) - 1, f.width - 1});
    std::memcpy(rec.data() + f.off, text, len);
}

const char* portStateText(uint32_t state) {
    return state < sh::kPortStateTexts.size() ? sh::kPortStateTexts[state] : sh::kPortStateInvalid;
}

const char* operStatusText(int status) {
    return status == VORN_OPER_UP     ? sh::kStatusUp
           : status == VORN_OPER_NONE ? sh::kStatusNone
                                      : sh::kStatusDown;
}

// The platform's member-VLAN question: 1 exactly for the member VLANs of the ring.
int iGetCurrentEntryState(uint32_t vlanId, uint32_t ringId, int /*kind*/) {
    const VornRingEntry* ring = vornGetRing(ringId);
    return ring != nullptr && vorn::bmp::test(ring->memberVlanBmap, vlanId) ? 1 : 0;
}

// Copies a record into buffer[used...]: the new number of bytes used, or -1 (logged) when it
// does not fit.
int vornPrepareBuf(std::span<uint8_t> buffer, int used, std::span<const uint8_t> record,
                   const char* fn) {
    if (used < 0 || static_cast<size_t>(used) > buffer.size() ||
        record.size() > buffer.size() - static_cast<size_t>(used)) {
        VORN_ERR("%s(): a record of %zu bytes does not fit at %d of %zu\r\n", fn, record.size(),
                 used, buffer.size());
        return -1;
    }
    std::memcpy(buffer.data() + used, record.data(), record.size());
    return used + static_cast<int>(record.size());
}

// A ring id of the show requests, read whole: 65541 is not ring 5.
const VornRingEntry* showRing(uint32_t ringId) {
    return ringId <= VORN_MAX_RING_ID ? vornGetRing(ringId) : nullptr;
}

}  // namespace

int vornFillMemberVlan(uint32_t ringId, uint32_t* cursor, uint32_t* continuation,
                       std::span<char> text) {
    std::fill(text.begin(), text.end(), '\0');
    *continuation = 0;
    if (text.size() < kVlanRoom) return 0;
    const size_t usable = text.size() - 1;  // the NUL stays
    size_t len = 0;
    size_t runAt = 0;  // where the "-N" that ends the current run begins
    bool any = false, inRun = false;
    uint32_t prev = 0;
    auto put = [&](size_t at, const char* fmt, uint32_t v) {
        int n = std::snprintf(text.data() + at, text.size() - at, fmt, v);
        return at + static_cast<size_t>(std::max(n, 0));
    };
    for (uint32_t v = *cursor == 0 ? 1 : *cursor; v <= VORN_MAX_VLAN_ID; ++v) {
        if (iGetCurrentEntryState(v, ringId, 1) != 1) continue;
        if (!any) {
            len = put(len, "%d", v);
            any = true;
        } else if (usable - len < kVlanRoom) {
            // The line is full. It ends with ",", inside a run too (the run is closed at the
            // last VLAN written), and the next line resumes at v: the lines read as the
            // list. The flag says the ring's text goes on, at a gap as inside a run, so that
            // the next line is taken as this ring's.
            text[len] = ',';
            *cursor = v;
            *continuation = 1;
            return static_cast<int>(len + 1);
        } else if (v == prev + 1) {
            if (inRun)
                std::fill(text.begin() + static_cast<long>(runAt),
                          text.begin() + static_cast<long>(len), '\0');
            else
                runAt = len;
            len = put(inRun ? runAt : len, "-%d", v);
            inRun = true;
        } else {
            len = put(len, ",%d", v);
            inRun = false;
        }
        prev = v;
    }
    *cursor = 0;
    return static_cast<int>(len);
}

int vornGetRingStatistics(const VornRingEntry* ring, VornRingStats& statistics) {
    statistics.fill(0);
    if (ring == nullptr || ring->u2DesgLineCard >= VORN_NO_LINE_CARD) return 0;
    vorn::be::Writer(statistics.data(), statistics.size()).u32(st::kOffRingId, ring->u2RingId);
    VornRingStats asked = statistics;
    if (vornAgtSendAndWait(vorn::agt::kMtStatsReq, ring->u2DesgLineCard, st::kLen, asked.data()) !=
        0)
        return -1;  // no answer: the counters stay zero
    statistics = asked;
    return 0;
}

int vornFillRingInfo(uint32_t ringId, const VornRingStats& statistics, std::span<uint8_t> buffer,
                     int used) {
    namespace d = sh::detail;
    const VornRingEntry* ring = showRing(ringId);
    if (ring == nullptr) {
        VORN_ERR("%s() Invalid Ring Id: %d\r\n", "vornFillRingInfo", static_cast<int>(ringId));
        return -1;
    }
    std::array<uint8_t, d::kLen> rec{};
    putText(rec, d::kRingId, "%3d", ring->u2RingId);
    putText(rec, d::kMode, "%s",
            ring->u1Mode == VORN_MODE_MASTER    ? sh::kModeMaster
            : ring->u1Mode == VORN_MODE_TRANSIT ? sh::kModeTransit
                                                : sh::kModeNone);
    putText(rec, d::kStatus, "%s", operStatusText(vornGetOperStatus(ring->u2RingId)));
    char name[48];
    putText(rec, d::kPrimary, "%s", ifmIfIndexToLName(ring->u4PriIfIndex, name, sizeof(name)));
    putText(rec, d::kPriState, "%s", portStateText(ring->u4PriPortState));
    putText(rec, d::kSecondary, "%s", ifmIfIndexToLName(ring->u4SecIfIndex, name, sizeof(name)));
    putText(rec, d::kSecState, "%s", portStateText(ring->u4SecPortState));
    if (ring->u2CtrlVlanId != 0) putText(rec, d::kCtrlVlan, "%-3d", ring->u2CtrlVlanId);
    putText(rec, d::kHello, "%hu", ring->u2HelloTime);
    putText(rec, d::kDead, "%hu", ring->u2DeadTime);
    if (const VornPortEntry* port = vornGetPort(ring->u2PriPortNum)) {
        const auto& m = port->macAddr;
        putText(rec, d::kMac, "%02x:%02x:%02x:%02x:%02x:%02x", m[0], m[1], m[2], m[3], m[4], m[5]);
    }
    vorn::be::Reader answer(statistics.data(), statistics.size());
    vorn::be::Writer w(rec.data(), rec.size());
    for (size_t i = 0; i < d::kCounterOrder.size(); ++i)
        w.u32(d::kOffCounters + 4 * i, answer.u32(st::kOffCounters + 4 * d::kCounterOrder[i]));
    return vornPrepareBuf(buffer, used, rec, "vornFillRingInfo");
}

int vornFillRingInfoSummary(uint32_t ringId, uint32_t* continuation, uint32_t* cursor,
                            std::span<uint8_t> buffer, int used) {
    namespace s = sh::summary;
    const VornRingEntry* ring = showRing(ringId);
    if (ring == nullptr) {
        VORN_ERR("%s() Invalid Ring Id: %d\r\n", "vornFillRingInfoSummary",
                 static_cast<int>(ringId));
        return -1;
    }
    std::array<uint8_t, s::kLen> rec{};
    if (*continuation == 0) {
        *cursor = 0;  // a ring's text starts at its first VLAN
        putText(rec, s::kRingId, "%d", ring->u2RingId);
        putText(rec, s::kStatus, "%s", operStatusText(vornGetOperStatus(ring->u2RingId)));
        if (ring->u1Mode == VORN_MODE_MASTER || ring->u1Mode == VORN_MODE_TRANSIT)
            putText(rec, s::kMode, "%s",
                    ring->u1Mode == VORN_MODE_MASTER ? sh::kModeMaster : sh::kModeTransit);
        if (ring->u2CtrlVlanId != 0) putText(rec, s::kCtrlVlan, "%d", ring->u2CtrlVlanId);
    }
    auto text =
        std::span(reinterpret_cast<char*>(rec.data()) + s::kMemberVlans.off, s::kMemberVlans.width);
    vornFillMemberVlan(ringId, cursor, continuation, text);
    return vornPrepareBuf(buffer, used, rec, "vornFillRingInfoSummary");
}
