// What vornctl shows of the rings: the manager's show records read back into plain values,
// the debug settings of DIR/debug-config, and both rendered as the operator's text or as a
// JSON document. The requests themselves (show, debug, clear) are built here too.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "wire/show.h"

namespace vorn::cli {

using Json = nlohmann::ordered_json;

// The paging state a show request carries and its answer returns.
struct Paging {
    uint32_t ringId = 0;
    uint32_t cursor = 0;
    uint32_t single = 0;
    uint32_t continuation = 0;
};

// One answer to a show request.
struct ShowPage {
    int32_t status = 0;
    bool more = false;
    Paging paging;
    std::vector<uint8_t> data;
};

// A ring's detail record with its member VLANs.
struct RingDetail {
    uint32_t id = 0;
    std::string mode;    // "Master", "Transit", "None"
    std::string status;  // "UP", "DOWN", "-"
    std::string primary, priState, secondary, secState;
    uint32_t controlVlan = 0;  // 0: none
    uint32_t hello = 0, dead = 0;
    std::string mac;                                         // empty: unknown
    std::array<uint32_t, agt::stats::kCounters> counters{};  // by agt::stats::Counter
    std::vector<std::string> memberVlanLines;
};

// A ring's summary lines: the record and its continuation lines.
struct RingSummary {
    uint32_t id = 0;
    std::string status;  // "UP", "DOWN", "-"
    std::string mode;    // "Master", "Transit", or empty
    uint32_t controlVlan = 0;
    std::vector<std::string> memberVlanLines;
};

// One debug setting, as a line of DIR/debug-config says it.
struct DebugSetting {
    uint32_t ring = 0;
    int index = 0;  // 0..6: dbgreq::kSettingsByIndex
    uint32_t count = 0;
};

// ---- Requests ---------------------------------------------------------------------------------
using Request = std::array<uint8_t, nm::kLen>;
// A request with the header of a message from the client's queue srcQueueId to the manager.
Request requestFrame(uint32_t xid, uint32_t srcQueueId);
Request encodeShow(uint32_t code, const Paging& paging, uint32_t xid, uint32_t srcQueueId);
Request encodeDebug(uint32_t ring, bool off, int index, uint32_t count, uint32_t xid,
                    uint32_t srcQueueId);
Request encodeClear(uint16_t ring, uint32_t xid, uint32_t srcQueueId);
// Reads the answer to show exchange xid; false when the message is not that answer or its
// data runs past it.
bool decodeShowAnswer(const uint8_t* msg, size_t len, uint32_t xid, ShowPage* out);

// ---- Records ----------------------------------------------------------------------------------
// A field's text up to its NUL, without trailing blanks.
std::string fieldText(std::span<const uint8_t> rec, show::Field f);
// Reads a detail record (the member VLANs are added by the caller).
bool decodeDetail(std::span<const uint8_t> data, RingDetail* out);
// Adds the summary records of one page to `rings`: a record that continues the last ring's
// member-VLAN text (empty ring id) goes to that ring. False when the data is not whole records.
bool decodeSummaryPage(std::span<const uint8_t> data, std::vector<RingSummary>* rings);
// The text of one member-VLAN line.
std::string memberLineText(std::span<const uint8_t> data);

// ---- Debug settings ---------------------------------------------------------------------------
// The settings that the lines of DIR/debug-config name; other lines (the header) are passed
// over.
std::vector<DebugSetting> parseDebugConfig(const std::string& text);
// "detail debugging for Rx and Tx (count 10)"
std::string settingText(const DebugSetting& s);

// ---- Rendering --------------------------------------------------------------------------------
std::string renderDetail(const RingDetail& r);
std::string renderSummary(const std::vector<RingSummary>& rings);
std::string renderDebugging(const std::vector<DebugSetting>& settings);
Json detailJson(const std::vector<RingDetail>& rings);
Json summaryJson(const std::vector<RingSummary>& rings);
Json debuggingJson(const std::vector<DebugSetting>& settings);
// The running configuration by ring: {"rings": [{"id": 5, "config": ["mode master", ...]}]}.
Json runningConfigJson(const std::string& text);

}  // namespace vorn::cli
