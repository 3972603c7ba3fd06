// The configuration commands: the ring itself ("protocol vorn") at the top, and the settings
// of a ring in its context. Each row builds the request it stands for; its parameters have
// been checked against their bounds by then.

#include "cli/commands.h"

namespace vorn::cli {
namespace {

using nm::ConfigRequest;
using nm::Type;

ConfigRequest request(Type type, bool noForm, uint16_t ring) {
    ConfigRequest r;
    r.type = type;
    r.noForm = noForm;
    r.ringId = ring;
    return r;
}

Action send(const ConfigRequest& r) {
    Action a;
    a.kind = Action::Kind::Config;
    a.request = r;
    return a;
}

uint16_t number16(const Match& m, Param p) {
    return static_cast<uint16_t>(m.value(p)->number);
}

// The builder of a row that only names its type and form.
auto plain(Type type, bool noForm) {
    return [type, noForm](const Match&, const Context& ctx) {
        return send(request(type, noForm, ctx.ring));
    };
}

// interface primary IF secondary IF control-vlan VLAN, and its no form.
auto ringInterfaces(bool noForm) {
    return [noForm](const Match& m, const Context& ctx) {
        ConfigRequest r = request(Type::ControlVlan, noForm, ctx.ring);
        r.primary = m.value(Param::Interface, 0)->number;
        r.secondary = m.value(Param::Interface, 1)->number;
        r.controlVlan = number16(m, Param::Vlan);
        return send(r);
    };
}

// member-vlan VLANS; no member-vlan [VLANS] (no list: all of them).
auto memberVlans(bool noForm) {
    return [noForm](const Match& m, const Context& ctx) {
        ConfigRequest r = request(Type::MemberVlan, noForm, ctx.ring);
        if (const Value* v = m.value(Param::VlanList)) r.memberVlans = v->vlans;
        return send(r);
    };
}

auto mode(bool noForm) {
    return [noForm](const Match& m, const Context& ctx) {
        ConfigRequest r = request(Type::Mode, noForm, ctx.ring);
        r.mode = m.has("master") ? nm::kModeMaster : nm::kModeTransit;
        return send(r);
    };
}

auto description(bool noForm) {
    return [noForm](const Match& m, const Context& ctx) {
        ConfigRequest r = request(Type::Description, noForm, ctx.ring);
        if (const Value* v = m.value(Param::Description)) r.description = v->text;
        return send(r);
    };
}

}  // namespace

void Cli::addRingRows() {
    const std::pair<const char*, const char*> words[] = {
        {"protocol", "a VORN ring: create it and enter its context"},
        {"vorn", "the VORN ring protocol"},
        {"no", "remove a setting, or a ring"},
        {"interface", "the control VLAN and the two ring interfaces"},
        {"primary", "the primary ring interface"},
        {"secondary", "the secondary ring interface"},
        {"control-vlan", "the VLAN that carries the ring's own frames"},
        {"member-vlan", "the data VLANs that the ring protects"},
        {"mode", "the ring node's role"},
        {"master", "the node that checks the ring and blocks its secondary interface"},
        {"transit", "a node that passes the master's frames on"},
        {"timer", "the ring's timers"},
        {"hello-interval", "how often the master sends hellos (default 500 ms)"},
        {"dead-interval",
         "how long without a hello before the ring counts as broken "
         "(default 1500 ms)"},
        {"description", "a text that describes the ring"},
        {"disable", "stop the ring ('no disable' starts it)"},
    };
    for (const auto& [word, help] : words) grammar_.describe(word, help);

    grammar_.add(
        Mode::Exec, "protocol vorn RING", "create a ring (if needed) and enter its context",
        [](const Match& m, const Context&) {
            uint16_t ring = number16(m, Param::RingId);
            Action a = send(request(Type::Protocol, false, ring));
            a.next = Context{Mode::Ring, ring};
            return a;
        },
        true);
    grammar_.add(Mode::Exec, "no protocol vorn RING", "remove a ring and all its configuration",
                 [](const Match& m, const Context&) {
                     Action a = send(request(Type::Protocol, true, number16(m, Param::RingId)));
                     a.next = Context{};
                     return a;
                 });
    grammar_.add(Mode::Ring, "interface primary IF secondary IF control-vlan VLAN",
                 "set the control VLAN and the primary and secondary ring interfaces",
                 ringInterfaces(false));
    grammar_.add(Mode::Ring, "no interface primary IF secondary IF control-vlan VLAN",
                 "remove the control VLAN and the ring interfaces (named as configured)",
                 ringInterfaces(true));
    grammar_.add(Mode::Ring, "member-vlan VLANS", "add member VLANs", memberVlans(false));
    grammar_.add(Mode::Ring, "no member-vlan [VLANS]",
                 "remove member VLANs (all of them when no list is given)", memberVlans(true));
    grammar_.add(Mode::Ring, "mode master|transit", "set the ring node's role", mode(false));
    grammar_.add(Mode::Ring, "no mode master|transit", "remove the ring node's role", mode(true));
    grammar_.add(Mode::Ring, "timer hello-interval HELLO", "set the hello interval",
                 [](const Match& m, const Context& ctx) {
                     ConfigRequest r = request(Type::HelloTimer, false, ctx.ring);
                     r.hello = number16(m, Param::Hello);
                     return send(r);
                 });
    grammar_.add(Mode::Ring, "no timer hello-interval", "set the hello interval back to 500 ms",
                 plain(Type::HelloTimer, true));
    grammar_.add(Mode::Ring, "timer dead-interval DEAD", "set the dead interval",
                 [](const Match& m, const Context& ctx) {
                     ConfigRequest r = request(Type::DeadTimer, false, ctx.ring);
                     r.dead = number16(m, Param::Dead);
                     return send(r);
                 });
    grammar_.add(Mode::Ring, "no timer dead-interval", "set the dead interval back to 1500 ms",
                 plain(Type::DeadTimer, true));
    grammar_.add(Mode::Ring, "description TEXT", "describe the ring", description(false));
    grammar_.add(Mode::Ring, "no description [TEXT]", "remove the description", description(true));
    grammar_.add(Mode::Ring, "disable", "stop the ring", plain(Type::Enable, false));
    grammar_.add(Mode::Ring, "no disable", "start the ring", plain(Type::Enable, true));
}

}  // namespace vorn::cli
