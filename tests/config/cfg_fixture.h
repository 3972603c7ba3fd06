// Configuration requests as the command line sends them: built field by field, sent from a
// CLI endpoint to the manager's request queue, served by the manager's dispatch, and the
// reply read back.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

#include "support/mgr_fixture.h"

namespace vorn::test {

// One 1024-byte configuration request.
class CliReq {
public:
    explicit CliReq(uint32_t type, uint16_t ringId) {
        be::Writer wr = w();
        wr.u32(ipc::kOffMlen, vorn::nm::kLen);                // IPC header: length
        wr.u32(ipc::kOffMtype, MT_NM);                        //   message type 6001
        wr.u32(ipc::kOffDstSvce, qel_getQueueId(226, 0, 1));  //   to the manager
        wr.u32(vorn::nm::kOffType, type);                     // 72: request type
        wr.u16(vorn::nm::kOffRingId, ringId);                 // 90: ring id
    }
    CliReq& no() { return u16(vorn::nm::kOffNoForm, 1); }  // 82: the "no" form
    CliReq& mode(uint8_t m) {                              // 92: 1 master, 2 transit
        w().u8(vorn::nm::kOffMode, m);
        return *this;
    }
    CliReq& hello(uint16_t v) { return u16(vorn::nm::kOffHello, v); }  // 94
    CliReq& dead(uint16_t v) { return u16(vorn::nm::kOffDead, v); }    // 96
    // 100 primary, 104 secondary, 108 the control VLAN's ifIndex.
    CliReq& ifs(uint32_t pri, uint32_t sec, uint16_t ctrlVlan) {
        be::Writer wr = w();
        wr.u32(vorn::nm::kOffPrimary, pri);
        wr.u32(vorn::nm::kOffSecondary, sec);
        wr.u32(vorn::nm::kOffCtrlVlan, vl(ctrlVlan));
        return *this;
    }
    // 112: the member-VLAN bitmap.
    CliReq& vlans(const std::vector<uint16_t>& ids) {
        std::span<uint8_t> bitmap(buf_.data() + vorn::nm::kOffMemberVlans, VORN_VLAN_BMAP_BYTES);
        for (uint16_t v : ids) bmp::set(bitmap, v);
        return *this;
    }
    // 624: the description, NUL-terminated.
    CliReq& desc(const std::string& text) {
        w().bytes(vorn::nm::kOffDescription, text.c_str(), text.size() + 1);
        return *this;
    }
    CliReq& u16(size_t off, uint16_t v) {
        w().u16(off, v);
        return *this;
    }
    CliReq& u32(size_t off, uint32_t v) {
        w().u32(off, v);
        return *this;
    }
    std::array<uint8_t, vorn::nm::kLen>& buf() { return buf_; }

private:
    be::Writer w() { return be::Writer(buf_.data(), buf_.size()); }
    std::array<uint8_t, vorn::nm::kLen> buf_{};
};

class CfgTest : public MgrTest {
protected:
    void SetUp() override {
        MgrTest::SetUp();
        // Ports that ring configuration creates are not taken from L2PM behind its back.
        gHalVornForcePortOwnerShip = 0;
        cli_ = openPeer(40, 1);
    }
    // Sends the request, lets the manager's dispatch serve it and returns the reply
    // (empty when none came within waitMs).
    std::vector<uint8_t> run(CliReq& req) {
        return serve(cli_, req.buf().data(), req.buf().size());
    }
    // The reply status word (offset 64) of a served request; -1 without a reply.
    int64_t status(CliReq&& req) { return status(req); }
    int64_t status(CliReq& req) {
        std::vector<uint8_t> reply = run(req);
        if (reply.size() != vorn::nm::kLen) return -1;
        return be::Reader(reply.data(), reply.size()).u32(vorn::nm::kOffReplyStatus);
    }

    // Requests of the usual kinds, for setting a ring up.
    void create(uint16_t ring) { ASSERT_EQ(status(CliReq(vorn::nm::kTypeProto, ring)), 0); }
    void ctrlVlan(uint16_t ring, uint32_t pri, uint32_t sec, uint16_t vlan) {
        ASSERT_EQ(status(CliReq(vorn::nm::kTypeCtrlVlan, ring).ifs(pri, sec, vlan)), 0);
    }
    void members(uint16_t ring, const std::vector<uint16_t>& ids) {
        ASSERT_EQ(status(CliReq(vorn::nm::kTypeMemberVlan, ring).vlans(ids)), 0);
    }

    // DIR/running-config as the store last wrote it ("" when not written yet).
    std::string runningConfig() const { return runFile("running-config"); }

    // Everything a refused request must leave as it was.
    struct Snapshot {
        std::vector<uint8_t> rings;  // every ring record's bytes, in id order
        std::string config;
        VornVlanBmap ctrl;
        VornVlanBmap mem;
        std::vector<const void*> vlans;
        std::vector<const void*> ports;
        bool operator==(const Snapshot&) const = default;
    };
    Snapshot snapshot() const {
        Snapshot s{{}, runningConfig(), gVornCtrlVlanBmap, gVornMemVlanBmap, {}, {}};
        for (const VornRingEntry* r : gVornRing) {
            if (r == nullptr) continue;
            const auto* p = reinterpret_cast<const uint8_t*>(r);
            s.rings.insert(s.rings.end(), p, p + sizeof(VornRingEntry));
        }
        s.vlans.assign(gVornVlan.begin(), gVornVlan.end());
        s.ports.assign(gVornPort.begin(), gVornPort.end());
        return s;
    }

    QelKey cli_ = -1;
};

}  // namespace vorn::test
