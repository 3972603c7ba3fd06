// The show, debug and clear requests as vornctl builds them, and the manager's show records
// and debug-config lines read back.

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <sstream>

#include "cli/rings.h"
#include "platform/codec.h"
#include "platform/ipc.h"

namespace vorn::cli {
namespace {

namespace sh = show;

bool startsWith(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

uint32_t number(const std::string& text) {
    uint32_t v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return 0;
        v = v * 10 + static_cast<uint32_t>(c - '0');
        if (v > 0xFFFF) return 0;
    }
    return v;
}

}  // namespace

Request requestFrame(uint32_t xid, uint32_t srcQueueId) {
    Request msg{};
    be::Writer w(msg.data(), msg.size());
    // The words the host library leaves to the sender; magic, flags and pid are written by
    // the send itself.
    w.u32(ipc::kOffMlen, nm::kLen);
    w.u32(ipc::kOffMtype, nm::kMtNm);
    w.u32(ipc::kOffXid, xid);
    w.u32(ipc::kOffSenderTask, static_cast<uint32_t>(getpid()));
    w.u32(ipc::kOffSrcCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffSrcSvce, srcQueueId);
    w.u32(ipc::kOffDstCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffDstSvce, ipc::queueId(ipc::kSvcManager, 0, ipc::kKindRequest));
    return msg;
}

Request encodeShow(uint32_t code, const Paging& paging, uint32_t xid, uint32_t srcQueueId) {
    Request msg = requestFrame(xid, srcQueueId);
    be::Writer w(msg.data(), msg.size());
    w.u32(sh::kOffCode, code);
    w.u32(sh::kOffAnswerSize, sh::kMaxAnswerData);
    w.u32(sh::kOffParamCount, 1);
    w.u32(sh::kOffParam + sh::kPagRingId, paging.ringId);
    w.u32(sh::kOffParam + sh::kPagCursor, paging.cursor);
    w.u32(sh::kOffParam + sh::kPagSingle, paging.single);
    w.u32(sh::kOffParam + sh::kPagContinuation, paging.continuation);
    return msg;
}

Request encodeDebug(uint32_t ring, bool off, int index, uint32_t count, uint32_t xid,
                    uint32_t srcQueueId) {
    Request msg = requestFrame(xid, srcQueueId);
    const dbgreq::Setting& s = dbgreq::kSettingsByIndex[index];
    be::Writer w(msg.data(), msg.size());
    w.u32(dbgreq::kOffRingId, ring);
    w.u8(dbgreq::kOffOff, off ? 1 : 0);
    w.u32(dbgreq::kOffType, s.type);
    w.u32(dbgreq::kOffMode, s.mode);
    w.u32(dbgreq::kOffCount, count);
    return msg;
}

Request encodeClear(uint16_t ring, uint32_t xid, uint32_t srcQueueId) {
    Request msg = requestFrame(xid, srcQueueId);
    be::Writer w(msg.data(), msg.size());
    w.u32(nm::kOffType, nm::kTypeClearStat);
    w.u16(clearreq::kOffRingId, ring);
    return msg;
}

bool decodeShowAnswer(const uint8_t* msg, size_t len, uint32_t xid, ShowPage* out) {
    be::Reader rd(msg, len);
    if (rd.u32(ipc::kOffMtype) != sh::kMtAnswer ||
        (rd.u32(ipc::kOffFlags) & ipc::kFlagReply) == 0 || rd.u32(ipc::kOffXid) != xid)
        return false;
    const uint32_t n = rd.u32(sh::kOffDataLen);
    auto data = rd.view(sh::kOffData, n);
    if (!rd.ok() || n > sh::kMaxAnswerData) return false;
    out->status = rd.i32(sh::kOffStatus);
    out->more = rd.u32(sh::kOffMore) != 0;
    out->paging.ringId = rd.u32(sh::kOffPaging + sh::kPagRingId);
    out->paging.cursor = rd.u32(sh::kOffPaging + sh::kPagCursor);
    out->paging.single = rd.u32(sh::kOffPaging + sh::kPagSingle);
    out->paging.continuation = rd.u32(sh::kOffPaging + sh::kPagContinuation);
    out->data.assign(data.begin(), data.end());
    return true;
}

std::string fieldText(std::span<const uint8_t> rec, show::Field f) {
    if (f.off >= rec.size()) return "";
    auto field = rec.subspan(f.off, std::min(f.width, rec.size() - f.off));
    std::string s(field.begin(), field.end());
    if (size_t nul = s.find('\0'); nul != std::string::npos) s.resize(nul);
    while (!s.empty() && s.back() == ' ') s.pop_back();
    while (!s.empty() && s.front() == ' ') s.erase(0, 1);
    return s;
}

bool decodeDetail(std::span<const uint8_t> data, RingDetail* out) {
    namespace d = sh::detail;
    if (data.size() < d::kLen) return false;
    RingDetail r;
    r.id = number(fieldText(data, d::kRingId));
    r.mode = fieldText(data, d::kMode);
    r.status = fieldText(data, d::kStatus);
    r.primary = fieldText(data, d::kPrimary);
    r.priState = fieldText(data, d::kPriState);
    r.secondary = fieldText(data, d::kSecondary);
    r.secState = fieldText(data, d::kSecState);
    r.controlVlan = number(fieldText(data, d::kCtrlVlan));
    r.hello = number(fieldText(data, d::kHello));
    r.dead = number(fieldText(data, d::kDead));
    r.mac = fieldText(data, d::kMac);
    be::Reader rd(data.data(), data.size());
    for (size_t i = 0; i < d::kCounterOrder.size(); ++i)
        r.counters[d::kCounterOrder[i]] = rd.u32(d::kOffCounters + 4 * i);
    *out = std::move(r);
    return true;
}

bool decodeSummaryPage(std::span<const uint8_t> data, std::vector<RingSummary>* rings) {
    namespace s = sh::summary;
    if (data.size() % s::kLen != 0) return false;
    for (size_t off = 0; off < data.size(); off += s::kLen) {
        auto rec = data.subspan(off, s::kLen);
        std::string id = fieldText(rec, s::kRingId);
        std::string vlans = fieldText(rec, s::kMemberVlans);
        if (id.empty()) {
            if (rings->empty()) return false;  // a continuation of nothing
            rings->back().memberVlanLines.push_back(vlans);
            continue;
        }
        RingSummary r;
        r.id = number(id);
        r.status = fieldText(rec, s::kStatus);
        r.mode = fieldText(rec, s::kMode);
        r.controlVlan = number(fieldText(rec, s::kCtrlVlan));
        if (!vlans.empty()) r.memberVlanLines.push_back(vlans);
        rings->push_back(std::move(r));
    }
    return true;
}

std::string memberLineText(std::span<const uint8_t> data) {
    return fieldText(data, {0, sh::memberline::kLen});
}

std::vector<DebugSetting> parseDebugConfig(const std::string& text) {
    std::vector<DebugSetting> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        unsigned ring = 0;
        if (std::sscanf(line.c_str(), " VORN ring %u ", &ring) != 1) continue;
        for (int i = 0; i < dbgreq::kSettings; ++i) {
            char head[96];
            std::snprintf(head, sizeof(head), dbgreq::kSettingsByIndex[i].text,
                          static_cast<int>(ring));
            if (!startsWith(line, head)) continue;
            std::string rest = line.substr(std::strlen(head));
            unsigned long count = 0;
            if (!rest.empty() && std::sscanf(rest.c_str(), " (count %lu)", &count) != 1) continue;
            out.push_back({ring, i, static_cast<uint32_t>(count)});
            break;
        }
    }
    return out;
}

std::string settingText(const DebugSetting& s) {
    static constexpr const char* kWords[dbgreq::kSettings] = {
        "event debugging",         "detail debugging for Rx and Tx", "detail debugging for Rx",
        "detail debugging for Tx", "packet debugging for Rx and Tx", "packet debugging for Rx",
        "packet debugging for Tx",
    };
    std::string t = kWords[s.index];
    if (s.count != 0) t += " (count " + std::to_string(s.count) + ")";
    return t;
}

}  // namespace vorn::cli
