// What the agent makes of the manager's accepted messages: the brackets of a configuration
// download, the interface information, the ring configuration (whose records go to the
// ring node, agent_ring.cc), the IFM notification copies, the line-card types, the debug
// settings and the clearing of counters.
//
// Every walk over records is bounded by the message's length and by its record count, and
// takes no more steps than the message could hold records of the smallest size. A record
// that does not fit ends the walk there; the message is counted malformed and the log says
// where it stopped. What was read before that stays applied.

#include <algorithm>

#include "cli/syntax.h"
#include "platform/ifindex.h"
#include "sim/agent.h"
#include "sim/ifm_notif.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

bool isPortOrLag(uint32_t ifIndex) {
    uint32_t type = ifmIfIndexToIfType(ifIndex);
    return type == ifm::kTypeGigabit || type == ifm::kTypeTenGigabit || type == ifm::kTypeLag;
}

}  // namespace

void Agent::apply(uint32_t mtype, const be::Reader& rd) {
    switch (mtype) {
        case agt::kMtStartCfg:
            life_.download = Download::Running;
            say("%s: configuration download begins (START_CFG)", name().c_str());
            break;
        case agt::kMtEndCfg:
            life_.download = Download::Complete;
            say("%s: configuration download complete (END_CFG): %zu interfaces, %zu rings",
                name().c_str(), life_.interfaces.size(), life_.rings.size());
            break;
        case agt::kMtIfInfo:
            applyInterfaceInfo(rd);
            break;
        case agt::kMtRingCfg:
            applyRingConfig(rd);
            break;
        case agt::kMtLcType:
            applyLineCardTypes(rd);
            break;
        case agt::kMtDbgCfg:
            applyDebugSettings(rd);
            break;
        case agt::kMtClearStats:
            applyClearStats(rd);
            break;
        case MT_IFM_NOTIF_MSG:
            applyIfmCopy(rd);
            break;
        default:
            ++life_.counters.unexpected;
            say("%s: SWP message type 0x%x is not one for an agent: acknowledged, ignored",
                name().c_str(), mtype);
            break;
    }
}

void Agent::applyInterfaceInfo(const be::Reader& rd) {
    namespace ii = agt::ifinfo;
    if (!rd.fits(ii::kOffRecords, 0)) {
        malformed("interface information of %zu bytes, shorter than its head: dropped", rd.size());
        return;
    }
    const uint32_t bytes = rd.u32(ii::kOffByteCount);
    const uint32_t count = rd.u32(ii::kOffCount);
    const size_t held = rd.size() - ii::kOffRecords;
    // The records end where the byte count says, but never past the message.
    const size_t end = ii::kOffRecords + std::min<size_t>(bytes, held);
    size_t off = ii::kOffRecords;
    uint32_t taken = 0, withVlans = 0, down = 0;
    for (const uint32_t steps = std::min(count, ii::kMaxRecords); taken < steps; ++taken) {
        if (off + ii::kRecLen > end) break;
        be::Reader rec(rd.view(off, ii::kRecLen));
        const bool vlans = rec.u8(ii::kOffVlansPresent) == 1;
        const size_t len = vlans ? ii::kRecWithVlansLen : ii::kRecLen;
        if (off + len > end) break;
        const uint32_t ifIndex = rec.u32(ii::kOffIfIndex);
        const bool up = rec.u8(ii::kOffOperState) == 1;
        Interface& entry = life_.interfaces[ifIndex];
        entry.lagIf = rec.u32(ii::kOffLagIf);
        entry.vlansPresent = vlans;
        if (isPortOrLag(ifIndex)) {
            setLink(ifIndex, up, "interface information");
            down += up ? 0 : 1;
        } else {
            entry.operUp = up;
        }
        withVlans += vlans ? 1 : 0;
        off += len;
    }
    say("%s: interface information: %u records (%u with VLANs), %u links down", name().c_str(),
        taken, withVlans, down);
    if (taken < count || bytes != held)
        malformed(
            "interface information claims %u records in %u bytes; %u records lie within "
            "the %zu bytes it holds",
            count, bytes, taken, held);
}

void Agent::applyRingConfig(const be::Reader& rd) {
    namespace rc = agt::rcfg;
    if (!rd.fits(rc::kOffRecords, 0)) {
        malformed("ring configuration of %zu bytes, shorter than its head: dropped", rd.size());
        return;
    }
    const uint32_t count = rd.u32(rc::kOffCount);
    const size_t room = (rd.size() - rc::kOffRecords) / rc::kRecLen;
    const auto n = static_cast<uint32_t>(std::min<size_t>({count, room, rc::kMaxRecords}));
    if (n < count)
        malformed("ring configuration claims %u records; %zu bytes hold %u: only those applied",
                  count, rd.size(), n);
    for (uint32_t i = 0; i < n; ++i)
        applyRingRecord(be::Reader(rd.view(rc::kOffRecords + rc::kRecLen * i, rc::kRecLen)));
}

void Agent::applyIfmCopy(const be::Reader& rd) {
    if (!rd.fits(VORN_IFM_RECORDS_OFF, 0)) {
        malformed("IFM notification copy of %zu bytes, shorter than its head: dropped", rd.size());
        return;
    }
    const int32_t numElem = rd.i32(VORN_IFM_NUM_ELEM_OFF);
    if (numElem <= 0) return;
    // A record is at least its 4-byte head: no walk takes more steps than that allows.
    constexpr size_t kRecHead = 4;
    const size_t maxSteps = (rd.size() - VORN_IFM_RECORDS_OFF) / kRecHead;
    const auto want = static_cast<uint32_t>(numElem);
    size_t off = VORN_IFM_RECORDS_OFF;
    uint32_t i = 0;
    for (; i < want && i < maxSteps; ++i) {
        if (!rd.fits(off, kRecHead)) break;
        const uint16_t type = rd.u16(off);
        const uint16_t len = rd.u16(off + 2);
        if (len < kRecHead || !rd.fits(off, len)) {
            malformed(
                "IFM notification copy: record %u (type %u) of %u bytes at offset %zu "
                "does not fit the %zu-byte message: the rest dropped",
                i, type, len, off, rd.size());
            return;
        }
        if (type == IFM_TYP_OSTATE_UP || type == IFM_TYP_OSTATE_DN) {
            if (len < VORN_IFM_OPER_REC_LEN) {
                malformed("IFM notification copy: oper record %u of %u bytes: skipped", i, len);
            } else {
                const uint32_t ifIndex = rd.u32(off + 4);
                const bool up = type == IFM_TYP_OSTATE_UP;
                say("%s: IFM copy: %s oper %s", name().c_str(), cli::shortIfName(ifIndex).c_str(),
                    up ? "up" : "down");
                setLink(ifIndex, up, "IFM");
            }
        }
        off += len;
    }
    if (i < want)
        malformed("IFM notification copy claims %u records; %u lie within the %zu-byte message",
                  want, i, rd.size());
}

void Agent::applyLineCardTypes(const be::Reader& rd) {
    namespace lt = agt::lctype;
    if (!rd.fits(lt::kOffTypes, 4 * agt::kSlots)) {
        malformed("line-card types of %zu bytes (expected %u): dropped", rd.size(), lt::kLen);
        return;
    }
    for (int s = 0; s < agt::kSlots; ++s)
        life_.lcTypes[static_cast<size_t>(s)] = rd.u32(lt::kOffTypes + 4 * static_cast<size_t>(s));
    say("%s: line-card types taken", name().c_str());
}

void Agent::applyClearStats(const be::Reader& rd) {
    // The ring id, 0 for every ring (as in the operator's clear request).
    if (!rd.fits(agt::clear::kOffRingId, 2)) {
        malformed("clear-counters message of %zu bytes: no ring id; dropped", rd.size());
        return;
    }
    const uint16_t ringId = rd.u16(agt::clear::kOffRingId);
    size_t cleared = 0;
    for (auto& [id, ring] : life_.rings) {
        if (ringId != 0 && id != ringId) continue;
        ring.stats = {};
        ++cleared;
    }
    say("%s: counters cleared (%s): %zu ring(s)", name().c_str(),
        ringId == 0 ? "all rings" : ("ring " + std::to_string(ringId)).c_str(), cleared);
}

void Agent::applyDebugSettings(const be::Reader& rd) {
    namespace dg = agt::dbg;
    if (!rd.fits(dg::kOffRecords, 0)) {
        malformed("debug settings of %zu bytes, shorter than their head: dropped", rd.size());
        return;
    }
    const bool undebugAll = rd.u32(dg::kOffUndebugAll) == 1;
    const uint32_t count = rd.u32(dg::kOffCount);
    const size_t room = (rd.size() - dg::kOffRecords) / dg::kRecLen;
    const auto n = static_cast<uint32_t>(std::min<size_t>({count, room, dg::kMaxRecords}));
    if (n < count)
        malformed("debug settings claim %u records; %zu bytes hold %u: only those applied", count,
                  rd.size(), n);
    uint32_t changed = 0;
    for (uint32_t i = 0; i < n; ++i) {
        be::Reader rec(rd.view(dg::kOffRecords + dg::kRecLen * i, dg::kRecLen));
        const uint16_t ringId = rec.u16(dg::kOffRingId);
        if (ringId == 0) {
            // The undebug-all record: every ring's debugging goes off.
            if (undebugAll) {
                changed += static_cast<uint32_t>(life_.debug.size());
                life_.debug.clear();
                say("%s: undebug all: every ring's debugging is off", name().c_str());
            }
            continue;
        }
        RingDebug& ring = life_.debug[ringId];
        for (size_t e = 0; e < ring.size(); ++e) {
            const size_t at = dg::kOffEntries + dg::kEntryLen * e;
            if (rec.u8(at + dg::kOffSet) != 1) continue;
            ring[e] =
                rec.u8(at + dg::kOffOff) == 1
                    ? DebugSetting{}
                    : DebugSetting{true, rec.u32(at + dg::kOffType), rec.u32(at + dg::kOffMode),
                                   rec.u32(at + dg::kOffCountLimit)};
            ++changed;
        }
        if (std::none_of(ring.begin(), ring.end(), [](const DebugSetting& d) { return d.on; }))
            life_.debug.erase(ringId);
    }
    say("%s: debug settings: %u record(s), %u setting(s) changed; %zu ring(s) debugged",
        name().c_str(), n, changed, life_.debug.size());
}

void Agent::setLink(uint32_t ifIndex, bool up, const char* source) {
    const bool before = linkUp(ifIndex);
    life_.interfaces[ifIndex].operUp = up;
    if (before != up) onLinkChange(ifIndex, up, source);
}

}  // namespace vorn::sim
