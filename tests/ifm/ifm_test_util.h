// Builders of IFM notifications and their records for the IFM tests. Every message is a
// vector of exactly its own length, so that a read past its end shows under AddressSanitizer.
#pragma once

#include "support/mgr_fixture.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <utility>
#include <vector>

#include "l2pm/l2pm_test_util.h"

namespace vorn::test::ifmt {

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;

inline uint32_t ma() {
    return ifmCreateIfIndex(ifm::kTypeManagement, 0, 0, 0);
}

// Record data, field by field (big-endian).
class Data {
public:
    Data& u32(uint32_t v) { return put(v, 4); }
    Data& u16(uint16_t v) { return put(v, 2); }
    Data& zeros(size_t n) {
        b_.insert(b_.end(), n, 0);
        return *this;
    }
    Data& mac(const Mac& m) {
        b_.insert(b_.end(), m.begin(), m.end());
        return *this;
    }
    operator Bytes() const { return b_; }

private:
    Data& put(uint32_t v, int n) {
        for (int i = n - 1; i >= 0; --i) b_.push_back(static_cast<uint8_t>(v >> (8 * i)));
        return *this;
    }
    Bytes b_;
};

// Data holding one 32-bit word, e.g. the ifIndex of an oper-state record.
inline Bytes word(uint32_t v) {
    return Data().u32(v);
}

// One record: its header (type, and the length it states, by default the true one) and data.
inline Bytes rec(uint16_t type, const Bytes& data = {}, std::optional<uint16_t> length = {}) {
    Bytes r = Data().u16(type).u16(length.value_or(static_cast<uint16_t>(4 + data.size())));
    r.insert(r.end(), data.begin(), data.end());
    return r;
}

inline Bytes ifRec(uint16_t type, uint32_t ifIndex) {
    return rec(type, Data().u32(ifIndex));
}
// Interface add or delete: ifIndex, attribute word, MAC address at data offset 16.
inline Bytes addIfRec(uint16_t type, uint32_t ifIndex, uint32_t attr, const Mac& m) {
    return rec(type, Data().u32(ifIndex).u32(attr).zeros(8).mac(m));
}
inline Bytes vlanPortRec(uint16_t type, uint32_t vlanIf, uint32_t portIf, uint16_t tagged) {
    return rec(type, Data().u32(vlanIf).u32(portIf).u16(tagged));
}
inline Bytes vlanListRec(uint32_t portIf, uint16_t tagged, std::initializer_list<uint32_t> vlans) {
    Data d;
    d.u32(portIf).u16(tagged).zeros(6).u32(static_cast<uint32_t>(vlans.size()));
    for (uint32_t v : vlans) d.u32(v);
    return rec(IFM_TYP_ADD_VLANBMP_PORT, d);
}
inline Bytes lagRec(uint16_t type, uint32_t lagIf, uint32_t memberIf) {
    return rec(type, Data().u32(lagIf).u32(memberIf));
}

// A notification: headers (length word and type), NumElem (by default the number of
// records), Count, a reserved word, the records, then `tail` extra bytes.
inline Bytes notif(const std::vector<Bytes>& recs, std::optional<int32_t> numElem = {},
                   uint32_t count = 0, const Bytes& tail = {}) {
    Bytes m(VORN_IFM_RECORDS_OFF, 0);
    for (const Bytes& r : recs) m.insert(m.end(), r.begin(), r.end());
    m.insert(m.end(), tail.begin(), tail.end());
    be::Writer w(m.data(), m.size());
    w.u32(ipc::kOffMagic, ipc::kMagic);
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(m.size()));
    w.u32(ipc::kOffMtype, MT_IFM_NOTIF_MSG);
    w.u32(VORN_IFM_NUM_ELEM_OFF,
          static_cast<uint32_t>(numElem.value_or(static_cast<int32_t>(recs.size()))));
    w.u32(VORN_IFM_COUNT_OFF, count);
    m.shrink_to_fit();
    return m;
}

// The first `n` bytes of a message, with its length word saying so.
inline Bytes cut(const Bytes& m, size_t n) {
    Bytes out(m.begin(), m.begin() + static_cast<std::ptrdiff_t>(std::min(n, m.size())));
    if (out.size() >= ipc::kHdrLen) {
        be::Writer(out.data(), out.size()).u32(ipc::kOffMlen, static_cast<uint32_t>(out.size()));
    }
    return out;
}

// The (ring id, ring action) of each record pending for the agent of `slot`.
inline std::vector<std::pair<int, int>> queuedRingActions(int slot) {
    std::vector<std::pair<int, int>> out;
    if (gapVornAgtBuf[slot] == nullptr) return out;
    be::Reader r(gapVornAgtBuf[slot], VORN_MSG_BUF_SIZE);
    for (uint32_t i = 0, n = r.u32(VORN_RING_CFG_COUNT_OFF); i < n; ++i) {
        size_t off = VORN_RING_CFG_BASE_LEN + size_t{VORN_RING_CFG_REC_LEN} * i;
        out.emplace_back(r.u16(off + 2), static_cast<int>(r.u32(off + 4)));
    }
    return out;
}

}  // namespace vorn::test::ifmt
