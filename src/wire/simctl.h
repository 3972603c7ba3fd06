// The simulator's control protocol (service 50, instance 0), shared by vornsim and vornctl.
//
// Request (mtype 5001) to the request queue 50.0.1, from the client's request queue:
//   16  exchange id, chosen by the client and copied into every part of the answer
//   60  the command, NUL-terminated text ("card up 3"), at most 1024 characters
// Answer (mtype 5002), one or more parts sent back to the request's source address; each
// part carries the request's header with source and target swapped and the reply flag set:
//   60  status: 0 done, 1 refused (the text says why)
//   64  more follows: 1 on every part but the last
//   68  text length n
//   72  n bytes of text (no NUL)
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"

namespace vorn::simctl {

inline constexpr int kService = ipc::kSvcSimControl;
inline constexpr int kInstance = 0;
inline constexpr uint32_t kMtRequest = 5001;
inline constexpr uint32_t kMtAnswer = 5002;

inline constexpr size_t kOffCommand = 60;
inline constexpr size_t kMaxCommandLen = 1024;

inline constexpr size_t kOffStatus = 60;
inline constexpr size_t kOffMore = 64;
inline constexpr size_t kOffTextLen = 68;
inline constexpr size_t kOffText = 72;
inline constexpr size_t kMaxTextPerPart = ipc::kMaxMsgLen - kOffText;

inline constexpr uint32_t kStatusOk = 0;
inline constexpr uint32_t kStatusRefused = 1;

// Builds a request from the client's request queue srcQueueId. False when the command is
// longer than kMaxCommandLen.
inline bool encodeRequest(const std::string& command, uint32_t exchangeId, uint32_t srcQueueId,
                          std::vector<uint8_t>* out) {
    if (command.size() > kMaxCommandLen) return false;
    out->assign(kOffCommand + command.size() + 1, 0);
    be::Writer w(out->data(), out->size());
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(out->size()));
    w.u32(ipc::kOffMtype, kMtRequest);
    w.u32(ipc::kOffXid, exchangeId);
    w.u32(ipc::kOffSrcCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffSrcSvce, srcQueueId);
    w.u32(ipc::kOffDstCard, ipc::kLoopbackAddr);
    w.u32(ipc::kOffDstSvce, ipc::queueId(kService, kInstance, ipc::kKindRequest));
    w.bytes(kOffCommand, command.data(), command.size());
    return true;
}

// Reads the command of a request of len bytes. False, with the reason in *why, when the
// text is not NUL-terminated inside the message, is too long, or holds control characters
// (which would garble the simulator's log).
inline bool decodeRequest(const uint8_t* msg, size_t len, std::string* command, std::string* why) {
    be::Reader rd(msg, len);
    auto body = rd.view(kOffCommand, len > kOffCommand ? len - kOffCommand : 0);
    auto nul = std::find(body.begin(), body.end(), uint8_t{0});
    if (body.empty() || nul == body.end()) {
        *why = "the command is not NUL-terminated text";
        return false;
    }
    auto n = static_cast<size_t>(nul - body.begin());
    if (n > kMaxCommandLen) {
        *why = "the command is longer than " + std::to_string(kMaxCommandLen) + " characters";
        return false;
    }
    bool printable =
        std::all_of(body.begin(), nul, [](uint8_t c) { return c >= 0x20 || c == '\t'; });
    if (!printable) {
        *why = "the command holds control characters";
        return false;
    }
    command->assign(reinterpret_cast<const char*>(body.data()), n);
    return true;
}

// Builds the parts of the answer to a request (its first 60 bytes are used).
inline std::vector<std::vector<uint8_t>> encodeAnswer(const uint8_t* request, uint32_t status,
                                                      const std::string& text) {
    std::vector<std::vector<uint8_t>> parts;
    be::Reader in(request, ipc::kHdrLen);
    size_t pos = 0;
    do {
        size_t n = std::min(kMaxTextPerPart, text.size() - pos);
        std::vector<uint8_t> msg(kOffText + n, 0);
        be::Writer w(msg.data(), msg.size());
        w.bytes(0, request, ipc::kHdrLen);
        w.u32(ipc::kOffMlen, static_cast<uint32_t>(msg.size()));
        w.u32(ipc::kOffMtype, kMtAnswer);
        w.u32(ipc::kOffSrcSlot, in.u32(ipc::kOffDstSlot));
        w.u32(ipc::kOffSrcCard, in.u32(ipc::kOffDstCard));
        w.u32(ipc::kOffSrcSvce, in.u32(ipc::kOffDstSvce));
        w.u32(ipc::kOffDstSlot, in.u32(ipc::kOffSrcSlot));
        w.u32(ipc::kOffDstCard, in.u32(ipc::kOffSrcCard));
        w.u32(ipc::kOffDstSvce, in.u32(ipc::kOffSrcSvce));
        w.u32(kOffStatus, status);
        w.u32(kOffMore, pos + n < text.size() ? 1 : 0);
        w.u32(kOffTextLen, static_cast<uint32_t>(n));
        w.bytes(kOffText, text.data() + pos, n);
        parts.push_back(std::move(msg));
        pos += n;
    } while (pos < text.size());
    return parts;
}

struct AnswerPart {
    uint32_t exchangeId = 0;
    uint32_t status = 0;
    bool more = false;
    std::string text;
};

// Reads one part of an answer of len bytes. False when it is not an answer or its text
// length runs past the message.
inline bool decodeAnswerPart(const uint8_t* msg, size_t len, AnswerPart* out) {
    be::Reader rd(msg, len);
    if (rd.u32(ipc::kOffMtype) != kMtAnswer) return false;
    uint32_t n = rd.u32(kOffTextLen);
    auto text = rd.view(kOffText, n);
    if (!rd.ok()) return false;
    out->exchangeId = rd.u32(ipc::kOffXid);
    out->status = rd.u32(kOffStatus);
    out->more = rd.u32(kOffMore) != 0;
    out->text.assign(reinterpret_cast<const char*>(text.data()), text.size());
    return true;
}

}  // namespace vorn::simctl
