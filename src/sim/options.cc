#include "sim/options.h"

#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <span>

#include "cli/syntax.h"
#include "platform/chassis.h"
#include "platform/cmdline.h"
#include "platform/files.h"
#include "platform/ifindex.h"
#include "platform/ipc.h"
#include "platform/number.h"
#include "sim/cables.h"
#include "sim/commands.h"

namespace vorn::sim {

std::string cardListText(uint32_t mask) {
    std::string s;
    for (int slot = 0; slot < 12; ++slot)
        if ((mask & (1u << slot)) != 0) s += (s.empty() ? "" : ",") + std::to_string(slot);
    return s.empty() ? "none" : s;
}

namespace {

// The physical port that makes up all of text ("Gi 0/1", "gi0/1"); false with why.
bool physicalPort(const std::string& text, uint32_t* ifIndex, std::string* why) {
    const std::vector<std::string> words = tokenize(text);
    size_t used = 0;
    if (!cli::parseInterface(std::span<const std::string>(words), 0, ifIndex, &used, why))
        return false;
    if (used != words.size()) {
        *why = "unexpected '" + words[used] + "' after the interface";
        return false;
    }
    if (ifmIfIndexToPlFlag(*ifIndex) == 0) {
        *why = cli::shortIfName(*ifIndex) + " is not a physical port";
        return false;
    }
    return true;
}

// Why the port of the i-th cable is not one of this chassis's or is cabled already, or "".
std::string badCablePort(const SimOptions& o, size_t i) {
    const uint32_t ifIndex = o.links[i].ifIndex;
    const uint32_t slot = ifmIfIndexToSlotId(ifIndex);
    const uint32_t port = ifmIfIndexToPortId(ifIndex);
    const uint32_t type =
        (o.tenGigMask >> slot & 1) != 0 ? ifm::kTypeTenGigabit : ifm::kTypeGigabit;
    const std::string name = cli::shortIfName(ifIndex);
    if ((o.cardMask >> slot & 1) == 0)
        return "--link " + name + ": no card in slot " + std::to_string(slot) + " (--cards " +
               cardListText(o.cardMask) + ")";
    if (port >= o.portsPerCard || ifmIfIndexToIfType(ifIndex) != type)
        return "--link " + name + ": the card in slot " + std::to_string(slot) + " carries " +
               cli::shortIfName(ifmCreateIfIndex(type, slot, 0, 0)) + " to " +
               cli::shortIfName(ifmCreateIfIndex(type, slot, o.portsPerCard - 1, 0));
    for (size_t j = 0; j < i; ++j)
        if (o.links[j].ifIndex == ifIndex) return "--link " + name + " is given twice";
    return "";
}

}  // namespace

bool parseLink(const std::string& value, CableSpec* out, std::string* why) {
    const size_t eq = value.find('=');
    const size_t colon = value.rfind(':');
    const std::string form = "bad --link '" + value + "': ";
    if (eq == std::string::npos || colon == std::string::npos || colon < eq) {
        *why = form + "expected IF=PEER-DIR:PEER-IF (e.g. 'Gi 0/1=/tmp/lab/sw2:Gi 0/2')";
        return false;
    }
    out->peerDir = value.substr(eq + 1, colon - eq - 1);
    if (out->peerDir.empty()) {
        *why = form + "the far end's run directory is missing";
        return false;
    }
    const std::string sock = out->peerDir + "/" + Cables::kSocket;
    if (sock.size() >= sizeof(sockaddr_un::sun_path)) {
        *why = form + "the socket path " + sock + " is too long";
        return false;
    }
    std::string bad;
    if (!physicalPort(value.substr(0, eq), &out->ifIndex, &bad) ||
        !physicalPort(value.substr(colon + 1), &out->peerIfIndex, &bad)) {
        *why = form + bad;
        return false;
    }
    return true;
}

std::string defaultVorndPath() {
    return host::besideUs("vornd");
}

std::string defaultVornctlPath() {
    return host::besideUs("vornctl");
}

ParseOutcome parseOptions(int argc, char** argv, SimOptions* out, std::string* message) {
    // A list of slots into a mask, refused as "bad --cards list '12': slot 12 is out of ...".
    auto cardList = [](const char* option, uint32_t* mask) {
        return [option, mask](const std::string& list) {
            std::string why;
            if (chassis::parseCardList(list, mask, &why)) return std::string();
            return "bad " + std::string(option) + " list '" + list + "': " + why;
        };
    };
    cmdline::Program prog;
    prog.name = "vornsim";
    prog.options = {
        {"rundir", 0, "DIR", "run directory of the chassis (default " + host::defaultRunDir() + ")",
         cmdline::store(&out->rundir)},
        {"vornd", 0, "PATH", "the manager to start (default: the vornd beside vornsim)",
         cmdline::store(&out->vorndPath)},
        {"vornctl", 0, "PATH",
         "the vornctl that replays DIR/startup-config once the manager\n"
         "it started answers (default: the vornctl beside vornsim)",
         cmdline::store(&out->vornctlPath)},
        {"attach", 0, "", "start no manager; work with the one running in DIR",
         cmdline::set(&out->attach)},
        {"no-evh", 0, "", "start with the event handler absent", cmdline::set(&out->evhAbsent)},
        {"evh-refuse", 0, "", "the event handler refuses subscriptions",
         cmdline::set(&out->evhRefuse)},
        {"no-l2pm", 0, "", "start with L2PM absent", cmdline::set(&out->l2pmAbsent)},
        {"l2pm-refuse", 0, "", "L2PM refuses registrations", cmdline::set(&out->l2pmRefuse)},
        {"cards", 0, "LIST", "comma list of slots 0..11 with a card (default 0,1)",
         [out, cardList](const std::string& list) {
             out->cards = list;
             return cardList("--cards", &out->cardMask)(list);
         }},
        {"te-cards", 0, "LIST",
         "slots whose cards carry TenGigabitEthernet ports (default:\n"
         "none; the others carry GigabitEthernet ports)",
         cardList("--te-cards", &out->tenGigMask)},
        {"ports", 0, "N", "ports per card, 1..64 (default 8: Gi SLOT/0 to SLOT/7)",
         [out](const std::string& n) {
             std::string why;
             number::parse(n, 1, 64, "--ports", &out->portsPerCard, &why);
             return why;
         }},
        {"peer-pair", 0, "", "start the manager with --peer-pair (the peer-pair feature on)",
         cmdline::set(&out->peerPair)},
        {"pair-with", 0, "DIR",
         "pair this chassis with the one of run directory DIR: the PDUs\n"
         "the manager sends reach DIR's manager (which may start later)",
         cmdline::store(&out->pairWith)},
        {"timestamps", 0, "",
         "start every line printed with the time of day to the microsecond\n"
         "(HH:MM:SS.uuuuuu), to line up the logs of several chassis",
         cmdline::set(&out->timestamps)},
        {"link", 0, "IF=PEER-DIR:PEER-IF",
         "cable port IF to port PEER-IF of the chassis of run directory\n"
         "PEER-DIR (repeatable; IF ends at the first '=', PEER-IF starts\n"
         "after the last ':'), e.g. --link 'Gi 0/1=/tmp/lab/sw2:Gi 0/2'",
         [out](const std::string& value) {
             CableSpec c;
             std::string why;
             if (parseLink(value, &c, &why)) out->links.push_back(std::move(c));
             return why;
         }},
    };
    prog.about =
        "A simulated chassis: event handler (30.0), L2PM (166.0), IFM (138.0) and a\n"
        "control endpoint (50.0) for vornctl, with the manager vornd as a child.\n";
    prog.more = [] { return std::string("Stop it with Ctrl-C, SIGTERM or 'vornctl sim quit'.\n"); };

    cmdline::Outcome parsed = cmdline::parse(prog, argc, argv);
    if (parsed.run && parsed.next < argc)
        parsed =
            cmdline::refuse(prog, "unexpected argument '" + std::string(argv[parsed.next]) + "'");
    // The cables' ports, once --cards, --te-cards and --ports are known whatever their order.
    for (size_t i = 0; parsed.run && i < out->links.size(); ++i) {
        std::string why = badCablePort(*out, i);
        if (!why.empty()) parsed = cmdline::refuse(prog, why);
    }
    if (!parsed.run) {
        *message = parsed.status == cmdline::kExitOk ? parsed.out : parsed.err;
        return parsed.status == cmdline::kExitOk ? ParseOutcome::Help : ParseOutcome::Error;
    }
    if (out->rundir.empty()) out->rundir = host::defaultRunDir();
    return ParseOutcome::Run;
}

}  // namespace vorn::sim
