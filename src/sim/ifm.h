// The simulated interface manager (service 138, instance 0): it answers the manager's
// control-VLAN question, refusing the VLANs it was told to refuse, and keeps the manager's
// ring-interface notices. (IFM's notifications to the manager travel on L2PM's queue; see
// l2pm.h.)
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/endpoint.h"
#include "sim/loop.h"
#include "wire/ifm.h"

namespace vorn::sim {

class Ifm : public Source {
public:
    // How many ring-interface notices are kept, newest last.
    static constexpr size_t kKeptNotices = 16;

    struct Counters {
        uint64_t questions = 0;   // control-VLAN questions answered
        uint64_t refusals = 0;    // ... of which with a refusal code
        uint64_t notices = 0;     // ring-interface notices taken
        uint64_t malformed = 0;   // too short to read, dropped
        uint64_t unexpected = 0;  // other types, dropped
    };
    // One ring-interface notice.
    struct Notice {
        uint32_t action = 0;  // 1 configured, 2 removed
        uint32_t primary = 0;
        uint32_t secondary = 0;
        uint32_t flags = 0;  // bit 31: secondary of a ring; bit 30: primary is the ICL
    };

    Ifm() : endpoint_(ipc::kSvcIfm, 0), buf_(ipc::kMaxMsgLen) {}

    bool open(std::string* err) { return endpoint_.open(err); }
    void close() { endpoint_.close(); }
    bool present() const { return endpoint_.isOpen(); }

    // From now on the question about `vlan` becoming a control VLAN is answered `code`
    // (VORN_IFM_CTRL_VLAN_REFUSED unless told otherwise); acceptVlan() answers 0 again.
    void refuseVlan(uint32_t vlan, uint32_t code = VORN_IFM_CTRL_VLAN_REFUSED) {
        refused_[vlan] = code;
    }
    void acceptVlan(uint32_t vlan) { refused_.erase(vlan); }
    // VLAN -> the code its question is answered with.
    const std::map<uint32_t, uint32_t>& refusedVlans() const { return refused_; }
    // The VLANs granted as control VLANs and not given up since.
    const std::set<uint32_t>& controlVlans() const { return controlVlans_; }
    const std::deque<Notice>& notices() const { return notices_; }

    const Counters& counters() const { return counters_; }
    std::string statusLine() const;
    // The model for the operator: refusals, control VLANs, the last notices. With vlan
    // non-zero, what concerns that VLAN only.
    std::string describe(uint32_t vlan = 0) const;

    void wait(Poller& poller) override;

private:
    void serve();
    void handle(uint8_t* msg, size_t len);
    void answerQuestion(uint8_t* msg, size_t len, const std::string& from);
    void takeNotice(const uint8_t* msg, size_t len, const std::string& from);

    Endpoint endpoint_;
    std::vector<uint8_t> buf_;
    Counters counters_;
    std::map<uint32_t, uint32_t> refused_;
    std::set<uint32_t> controlVlans_;
    std::deque<Notice> notices_;
};

// The same facts as Ifm::describe, as JSON (ifm_show.cc).
nlohmann::ordered_json ifmJson(const Ifm& ifm, uint32_t vlan = 0);

}  // namespace vorn::sim
