// The commands that look at and steer what L2PM and IFM make of the manager's messages:
// the forwarding model, the ports L2PM refuses and the VLANs IFM refuses.

#include <cstdio>

#include "cli/syntax.h"
#include "platform/number.h"
#include "sim/args.h"
#include "sim/chassis_sim.h"
#include "sim/l2pm_show.h"
#include "sim/log.h"

namespace vorn::sim {
namespace {

constexpr uint32_t kMaxInstance = 0xFFFF;

}  // namespace

void ChassisSim::registerModelCommands() {
    commands_.add({"show l2pm", "",
                   "what the manager told L2PM: ownership, forwarding, STG, flushes", 0, 0, nullptr,
                   [this](const CommandTable::Args&) {
                       return shown(describeL2pm(l2pm_.model()), l2pmJson(l2pm_.model()));
                   }});
    commands_.add({"show l2pm port", "INTERFACE", "the forwarding state of one port", 1, 2, nullptr,
                   [this](const CommandTable::Args& args) {
                       uint32_t ifIndex = 0;
                       std::string err;
                       if (!interfaceRest(args, 0, &ifIndex, &err)) return notShown(err);
                       return shown(describeL2pmPort(l2pm_.model(), ifIndex),
                                    l2pmPortJson(l2pm_.model(), ifIndex));
                   }});
    commands_.add({"show l2pm vlan", "VLAN", "the state of one VLAN on every port", 1, 1, nullptr,
                   [this](const CommandTable::Args& args) {
                       uint32_t vlan = 0;
                       std::string err;
                       if (!number::parse(args[0], 1, kMaxVlan, "VLAN", &vlan, &err))
                           return notShown(err);
                       return shown(describeL2pmVlan(l2pm_.model(), vlan),
                                    l2pmVlanJson(l2pm_.model(), vlan));
                   }});
    commands_.add(
        {"show l2pm instance", "INSTANCE", "the ports and VLANs of one STG instance", 1, 1, nullptr,
         [this](const CommandTable::Args& args) {
             uint32_t instance = 0;
             std::string err;
             if (!number::parse(args[0], 0, kMaxInstance, "STG instance", &instance, &err))
                 return notShown(err);
             auto i = static_cast<uint16_t>(instance);
             return shown(describeL2pmInstance(l2pm_.model(), i),
                          l2pmInstanceJson(l2pm_.model(), i));
         }});
    for (bool refuse : {true, false}) {
        commands_.add({refuse ? "l2pm refuse-port" : "no l2pm refuse-port", "INTERFACE",
                       refuse ? "L2PM refuses to hand the port over to the manager"
                              : "L2PM hands the port over again",
                       1, 2, [this, refuse](const CommandTable::Args& args) {
                           uint32_t ifIndex = 0;
                           std::string err;
                           if (!interfaceRest(args, 0, &ifIndex, &err)) return refused(err);
                           l2pm_.model().setRefused(ifIndex, refuse);
                           std::string name = cli::longIfName(ifIndex);
                           say("l2pm: ownership of %s is now %s", name.c_str(),
                               refuse ? "refused" : "granted");
                           return done("L2PM now " + std::string(refuse ? "refuses" : "grants") +
                                       " the ownership of " + name);
                       }});
    }
    commands_.add(
        {"show ifm", "", "IFM's control VLANs, refusals and ring-interface notices", 0, 0, nullptr,
         [this](const CommandTable::Args&) { return shown(ifm_.describe(), ifmJson(ifm_)); }});
    commands_.add({"show ifm vlan", "VLAN", "what IFM answers about one VLAN", 1, 1, nullptr,
                   [this](const CommandTable::Args& args) {
                       uint32_t vlan = 0;
                       std::string err;
                       if (!number::parse(args[0], 1, kMaxVlan, "VLAN", &vlan, &err))
                           return notShown(err);
                       return shown(ifm_.describe(vlan), ifmJson(ifm_, vlan));
                   }});
    commands_.add({"ifm refuse-vlan", "VLAN [code CODE]",
                   "IFM refuses VLAN as a control VLAN (with CODE, default 0x8a000141)", 1, 3,
                   [this](const CommandTable::Args& args) {
                       uint32_t vlan = 0, code = VORN_IFM_CTRL_VLAN_REFUSED;
                       std::string err;
                       if (!number::parse(args[0], 1, kMaxVlan, "VLAN", &vlan, &err))
                           return refused(err);
                       if (args.size() == 2 || (args.size() == 3 && args[1] != "code"))
                           return refused("usage: ifm refuse-vlan VLAN [code CODE]");
                       if (args.size() == 3 && !number::parse(args[2], 0, 0xFFFFFFFF, "code", &code,
                                                              &err, number::Radix::DecimalOrHex))
                           return refused(err);
                       ifm_.refuseVlan(vlan, code);
                       say("ifm: VLAN %u as a control VLAN is now answered 0x%08x", vlan, code);
                       char hex[16];
                       std::snprintf(hex, sizeof(hex), "0x%08x", code);
                       return done("IFM now answers " + std::string(hex) + " when VLAN " +
                                   std::to_string(vlan) + " is to become a control VLAN");
                   }});
    commands_.add({"no ifm refuse-vlan", "VLAN", "IFM accepts VLAN as a control VLAN again", 1, 1,
                   [this](const CommandTable::Args& args) {
                       uint32_t vlan = 0;
                       std::string err;
                       if (!number::parse(args[0], 1, kMaxVlan, "VLAN", &vlan, &err))
                           return refused(err);
                       ifm_.acceptVlan(vlan);
                       say("ifm: VLAN %u as a control VLAN is now answered 0", vlan);
                       return done("IFM now accepts VLAN " + std::to_string(vlan) +
                                   " as a control VLAN");
                   }});
}

}  // namespace vorn::sim
