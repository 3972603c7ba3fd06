#include "sim/options.h"

#include <unistd.h>

#include <array>

#include "platform/chassis.h"
#include "platform/cmdline.h"
#include "platform/ipc.h"
#include "platform/number.h"

namespace vorn::sim {

std::string cardListText(uint32_t mask) {
    std::string s;
    for (int slot = 0; slot < 12; ++slot)
        if ((mask & (1u << slot)) != 0) s += (s.empty() ? "" : ",") + std::to_string(slot);
    return s.empty() ? "none" : s;
}

namespace {

// `program` in the directory of the running program, or just its name.
std::string besideUs(const std::string& program) {
    std::array<char, 4096> exe{};
    ssize_t n = readlink("/proc/self/exe", exe.data(), exe.size() - 1);
    if (n <= 0) return program;
    std::string path(exe.data(), static_cast<size_t>(n));
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? program : path.substr(0, slash + 1) + program;
}

}  // namespace

std::string defaultVorndPath() {
    return besideUs("vornd");
}

std::string defaultVornctlPath() {
    return besideUs("vornctl");
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
    };
    prog.about =
        "A simulated chassis: event handler (30.0), L2PM (166.0), IFM (138.0) and a\n"
        "control endpoint (50.0) for vornctl, with the manager vornd as a child.\n";
    prog.more = [] { return std::string("Stop it with Ctrl-C, SIGTERM or 'vornctl sim quit'.\n"); };

    cmdline::Outcome parsed = cmdline::parse(prog, argc, argv);
    if (parsed.run && parsed.next < argc)
        parsed =
            cmdline::refuse(prog, "unexpected argument '" + std::string(argv[parsed.next]) + "'");
    if (!parsed.run) {
        *message = parsed.status == cmdline::kExitOk ? parsed.out : parsed.err;
        return parsed.status == cmdline::kExitOk ? ParseOutcome::Help : ParseOutcome::Error;
    }
    if (out->rundir.empty()) out->rundir = host::defaultRunDir();
    return ParseOutcome::Run;
}

}  // namespace vorn::sim
