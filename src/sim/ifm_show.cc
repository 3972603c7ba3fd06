// The simulated IFM as JSON ("vornctl --json sim show ifm [vlan VLAN]").

#include "cli/syntax.h"
#include "sim/ifm.h"

namespace vorn::sim {

nlohmann::ordered_json ifmJson(const Ifm& ifm, uint32_t vlan) {
    using Json = nlohmann::ordered_json;
    auto answer = [&ifm](uint32_t v) {
        auto r = ifm.refusedVlans().find(v);
        return r == ifm.refusedVlans().end() ? 0u : r->second;
    };
    if (vlan != 0)
        return {{"vlan", vlan},
                {"control_vlan", ifm.controlVlans().count(vlan) != 0},
                {"answer", answer(vlan)}};
    auto name = [](uint32_t ifIndex) {
        return ifIndex == 0 ? Json(nullptr) : Json(cli::longIfName(ifIndex));
    };
    Json refused = Json::array(), notices = Json::array();
    for (const auto& [v, code] : ifm.refusedVlans())
        refused.push_back({{"vlan", v}, {"answer", code}});
    for (const Ifm::Notice& n : ifm.notices())
        notices.push_back({{"action", n.action == 1   ? "configured"
                                      : n.action == 2 ? "removed"
                                                      : "unknown"},
                           {"primary", name(n.primary)},
                           {"secondary", name(n.secondary)},
                           {"flags", n.flags}});
    const Ifm::Counters& c = ifm.counters();
    return {{"present", ifm.present()},
            {"questions", c.questions},
            {"refusals", c.refusals},
            {"notices_taken", c.notices},
            {"control_vlans", ifm.controlVlans()},
            {"refused_vlans", refused},
            {"notices", notices}};
}

}  // namespace vorn::sim
