// Helpers shared by the IFM intake and its handlers: the bounded walk over a notification's
// records, the classification of an interface, and the start of a ring that became ready.
#pragma once

#include <cstddef>
#include <cstdint>

#include "agent/agent.h"
#include "ifm/ifm.h"
#include "platform/codec.h"
#include "platform/ifindex.h"
#include "ringdb/readiness.h"
#include "ringdb/records.h"
#include "task/trace.h"

namespace vorn::ifmrec {

// One record of a notification as the walk hands it on.
struct Record {
    int number;  // 1 for the first record
    uint16_t type;
    uint16_t length;      // as the record header says, header included
    const uint8_t* data;  // the bytes after the header, inside the record and the message
    size_t dataLen;
};

// Walks the records of a notification from VORN_IFM_RECORDS_OFF, calling onRecord for each,
// until numElem records were seen. Stops early, saying so under the error flag with
// `caller`'s name, at a record whose header or length passes the end of `msg`, or once the
// walk took as many steps as `msg` could hold records of the 4-byte minimum (a record of
// length 0 or 1 to 3 is handed on all the same, and stepped over by its length). Returns
// VORN_IFM_RECORDS_OFF plus the lengths of the records handed on.
template <typename Fn>
uint64_t walkRecords(const be::Reader& msg, int32_t numElem, const char* caller, Fn&& onRecord) {
    uint64_t walked = VORN_IFM_RECORDS_OFF;
    if (numElem <= 0) return walked;
    const size_t maxSteps = msg.size() > VORN_IFM_RECORDS_OFF
                                ? (msg.size() - VORN_IFM_RECORDS_OFF) / VORN_IFM_REC_HDR_LEN
                                : 0;
    size_t off = VORN_IFM_RECORDS_OFF;
    for (int32_t n = 0; n < numElem; ++n) {
        if (static_cast<size_t>(n) >= maxSteps) {
            VORN_ERR(
                "%s(): NumElem %d, but a message of %lu bytes holds at most %lu records: "
                "walk stopped\r\n",
                caller, numElem, static_cast<unsigned long>(msg.size()),
                static_cast<unsigned long>(maxSteps));
            break;
        }
        if (!msg.fits(off, VORN_IFM_REC_HDR_LEN)) {
            VORN_ERR(
                "%s(): NumElem %d, but the message of %lu bytes ends after %d records: walk "
                "stopped\r\n",
                caller, numElem, static_cast<unsigned long>(msg.size()), n);
            break;
        }
        const uint16_t type = msg.u16(off);
        const uint16_t length = msg.u16(off + 2);
        if (!msg.fits(off, length)) {
            VORN_ERR(
                "%s(): record %d (type %d, length %d) at offset %lu passes the end of the "
                "message (%lu bytes): walk stopped\r\n",
                caller, n + 1, type, length, static_cast<unsigned long>(off),
                static_cast<unsigned long>(msg.size()));
            break;
        }
        const size_t dataLen = length > VORN_IFM_REC_HDR_LEN ? length - VORN_IFM_REC_HDR_LEN : 0;
        onRecord(Record{n + 1, type, length, msg.data() + off + VORN_IFM_REC_HDR_LEN, dataLen});
        walked += length;
        off += length;
    }
    return walked;
}

// What an interface is to the handlers.
enum class IfKind { Management, Vlan, PortOrLag, Other };

inline IfKind classify(uint32_t ifIndex) {
    const uint32_t type = ifmIfIndexToIfType(ifIndex);
    if (type == ifm::kTypeManagement) return IfKind::Management;
    if (type == ifm::kTypeVlan) return IfKind::Vlan;
    if (ifmIfIndexToPlFlag(ifIndex) != 0 || type == ifm::kTypeLag) return IfKind::PortOrLag;
    return IfKind::Other;
}

// A reader over a handler's record; the null record reads as empty.
inline be::Reader dataReader(const uint8_t* rec, size_t len) {
    return be::Reader(rec, rec != nullptr ? len : 0);
}

// Says that a record is too short for the fields `fn` reads. Returns -1.
inline int tooShort(const char* fn, size_t len) {
    VORN_ERR("%s(): IFM record of %lu bytes too short, dropped\r\n", fn,
             static_cast<unsigned long>(len));
    return -1;
}

}  // namespace vorn::ifmrec
