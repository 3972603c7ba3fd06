// The show request: a page of detail, member-VLAN or summary records in the show buffer,
// answered with the paging state that the command line returns with its next request.
//
// The summary walks ring ids from the state's ring id to 255; a page ends before a record
// when fewer than 80 bytes of answer space remain, or after a ring whose member-VLAN text did
// not fit its line (the next page goes on with that ring's continuation line). A detail
// answer is one ring's record; its member VLANs come one 81-byte line per answer.

#include <algorithm>
#include <array>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "ringdb/ringdb.h"
#include "show/show.h"
#include "task/msg.h"
#include "task/tcb.h"
#include "task/trace.h"
#include "wire/show.h"

namespace {

namespace sh = vorn::show;
using vorn::be::Reader;
using vorn::be::Writer;

// The show buffer of the manager: the display data of the answer being built.
std::array<uint8_t, VORN_CLI_SHOW_BUF_SIZE> vornCliShowBuf;

struct Paging {
    uint32_t ringId = 0;
    uint32_t cursor = 0;
    uint32_t single = 0;
    uint32_t continuation = 0;
};

// The request's first input parameter, the paging state; false when the request has none.
bool qelGetNthInputParam(const Reader& request, Paging* out) {
    if (request.u32(sh::kOffParamCount) < 1 || !request.fits(sh::kOffParam, sh::kPagingLen))
        return false;
    out->ringId = request.u32(sh::kOffParam + sh::kPagRingId);
    out->cursor = request.u32(sh::kOffParam + sh::kPagCursor);
    out->single = request.u32(sh::kOffParam + sh::kPagSingle);
    out->continuation = request.u32(sh::kOffParam + sh::kPagContinuation);
    return true;
}

// Sends the answer to the request's source: the status, the more-follows flag, the paging
// state and `length` bytes of the show buffer.
void qelSendDisplayBufferStruct(const uint8_t* request, uint32_t status, uint32_t more,
                                const Paging& paging, size_t length) {
    std::array<uint8_t, sh::kMaxAnswerLen> answer{};
    length = std::min(length, vornCliShowBuf.size());
    std::copy_n(request, vorn::ipc::kHdrLen, answer.begin());
    Writer w(answer.data(), answer.size());
    const auto total = static_cast<uint32_t>(sh::kOffData + length);
    w.u32(vorn::ipc::kOffMlen, total);
    w.u32(vorn::ipc::kOffMtype, sh::kMtAnswer);
    w.u32(sh::kOffStatus, status);
    w.u32(sh::kOffMore, more);
    w.u32(sh::kOffPaging + sh::kPagRingId, paging.ringId);
    w.u32(sh::kOffPaging + sh::kPagCursor, paging.cursor);
    w.u32(sh::kOffPaging + sh::kPagSingle, paging.single);
    w.u32(sh::kOffPaging + sh::kPagContinuation, paging.continuation);
    w.u32(sh::kOffDataLen, static_cast<uint32_t>(length));
    w.bytes(sh::kOffData, vornCliShowBuf.data(), length);
    if (qelIpcReply(Key_getReqQueue(vornTcb.ipcKey), answer.data(), static_cast<int>(total)) != 0)
        VORN_ERR("%s: the show answer could not be sent\r\n", "vornProcessShowSummary");
}

void answerNoRing(const uint8_t* request, const Paging& paging) {
    Writer(vornCliShowBuf.data(), vornCliShowBuf.size()).u32(0, sh::kResultNoRing);
    qelSendDisplayBufferStruct(request, sh::kStatusFailed, 0, paging, 4);
}

// The summary pages (code 100036).
void showSummary(const uint8_t* request, Paging paging, size_t space) {
    int used = 0;
    if (paging.ringId > VORN_MAX_RING_ID) {
        qelSendDisplayBufferStruct(request, 0, 0, paging, 0);
        return;
    }
    std::span<uint8_t> buf(vornCliShowBuf.data(), space);
    for (uint32_t id = std::max<uint32_t>(paging.ringId, 1); id <= VORN_MAX_RING_ID; ++id) {
        if (vornGetRing(id) == nullptr) {
            // A ring removed between two pages takes its unfinished text with it.
            paging.continuation = paging.cursor = 0;
            if (paging.single == 1) break;
            continue;
        }
        if (space - static_cast<size_t>(used) < sh::summary::kPageEnd) {
            paging.ringId = id;
            paging.single = 0;
            qelSendDisplayBufferStruct(request, 0, 1, paging, static_cast<size_t>(used));
            return;
        }
        used = vornFillRingInfoSummary(id, &paging.continuation, &paging.cursor, buf, used);
        if (paging.continuation != 0) {
            paging.ringId = id;
            qelSendDisplayBufferStruct(request, 0, 1, paging, static_cast<size_t>(used));
            return;
        }
        if (paging.single == 1) break;
    }
    qelSendDisplayBufferStruct(request, 0, 0, paging, static_cast<size_t>(used));
}

}  // namespace

int vornProcessShowSummary(uint8_t* request) {
    if (request == nullptr) return -1;
    const Reader rd = vornMsgReader(request);
    Paging paging;
    if (!qelGetNthInputParam(rd, &paging)) {
        VORN_ERR("%s: show request without its paging state\r\n", "vornProcessShowSummary");
        qelSendDisplayBufferStruct(request, sh::kStatusFailed, 0, paging, 0);
        return -1;
    }
    vornCliShowBuf.fill(0);
    // The answer never holds more than the show buffer, whatever the client takes.
    const size_t space = std::min<size_t>(rd.u32(sh::kOffAnswerSize), vornCliShowBuf.size());
    const uint32_t code = rd.u32(sh::kOffCode);
    if (code == sh::kCodeDetail || code == sh::kCodeMemberVlans) {
        const VornRingEntry* ring =
            paging.ringId <= VORN_MAX_RING_ID ? vornGetRing(paging.ringId) : nullptr;
        if (ring == nullptr) {
            answerNoRing(request, paging);
            return -1;
        }
        std::span<uint8_t> buf(vornCliShowBuf.data(), space);
        if (code == sh::kCodeDetail) {
            if (space < sh::detail::kNeeds) {
                qelSendDisplayBufferStruct(request, 0, 0, paging, 0);
                return 0;
            }
            VornRingStats stats{};
            vornGetRingStatistics(ring, stats);
            int used = vornFillRingInfo(paging.ringId, stats, buf, 0);
            qelSendDisplayBufferStruct(request, 0, 0, paging,
                                       static_cast<size_t>(std::max(used, 0)));
            return 0;
        }
        size_t used = 0;
        if (space > sh::memberline::kNeedsMoreThan) {
            auto line =
                std::span(reinterpret_cast<char*>(vornCliShowBuf.data()), sh::memberline::kLen);
            vornFillMemberVlan(paging.ringId, &paging.cursor, &paging.continuation, line);
            used = sh::memberline::kLen;
        }
        qelSendDisplayBufferStruct(request, 0, paging.continuation != 0 ? 1 : 0, paging, used);
        return 0;
    }
    if (code == sh::kCodeSummary) {
        showSummary(request, paging, space);
        return 0;
    }
    qelSendDisplayBufferStruct(request, 0, 0, paging, 0);
    return 0;
}
