// The cable commands: cut and restore a port's cable, and show the cables.

#include "sim/args.h"
#include "sim/chassis_sim.h"
#include "sim/log.h"

namespace vorn::sim {

void ChassisSim::linkCabledPorts() {
    for (const Cables::Cable& c : cables_.cables()) {
        if (c.cut) continue;
        say("cable: whole; %s", publish(model_.setLink(c.spec.ifIndex, true)).text.c_str());
    }
}

void ChassisSim::registerCableCommands() {
    commands_.add({"cable", "INTERFACE cut|restore",
                   "cut a port's cable or restore it: the links at both ends go down or come up", 2,
                   3, [this](const CommandTable::Args& args) {
                       uint32_t ifIndex = 0;
                       bool cut = false;
                       std::string err;
                       if (!interfaceThen(args, "cable INTERFACE cut|restore", "cut", "restore",
                                          &ifIndex, &cut, &err))
                           return refused(err);
                       std::string text;
                       bool ok =
                           cut ? cables_.cut(ifIndex, &text) : cables_.restore(ifIndex, &text);
                       if (ok) say("cable: %s", text.c_str());
                       return ok ? done(text) : refused(text);
                   }});
    commands_.add({"show cables", "", "each cable, its far end, cut or whole, frames counted", 0, 0,
                   nullptr, [this](const CommandTable::Args&) {
                       return shown(cables_.describe(), cables_.toJson());
                   }});
}

}  // namespace vorn::sim
