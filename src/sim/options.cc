#include "sim/options.h"

#include <unistd.h>

#include <array>

#include "platform/ipc.h"
#include "sim/commands.h"

namespace vorn::sim {

bool parseCardList(const std::string& text, uint32_t* mask) {
    if (text.empty())
        return false;
    uint32_t m = 0;
    size_t pos = 0;
    for (;;) {
        size_t comma = text.find(',', pos);
        std::string item = text.substr(pos, comma == std::string::npos ? comma : comma - pos);
        uint32_t slot = 0;
        if (!parseNumber(item, 0, 11, &slot) || item.size() > 2)
            return false;
        m |= 1u << slot;
        if (comma == std::string::npos)
            break;
        pos = comma + 1;
    }
    *mask = m;
    return true;
}

std::string cardListText(uint32_t mask) {
    std::string s;
    for (int slot = 0; slot < 12; ++slot)
        if ((mask & (1u << slot)) != 0)
            s += (s.empty() ? "" : ",") + std::to_string(slot);
    return s.empty() ? "none" : s;
}

namespace {

// `program` in the directory of the running program, or just its name.
std::string besideUs(const std::string& program) {
    std::array<char, 4096> exe{};
    ssize_t n = readlink("/proc/self/exe", exe.data(), exe.size() - 1);
    if (n <= 0)
        return program;
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

std::string usageText(const std::string& prog) {
    return "usage: " + prog +
           " [--rundir DIR] [--vornd PATH] [--vornctl PATH] [--attach] [--no-evh]\n"
           "       [--evh-refuse] [--no-l2pm] [--l2pm-refuse] [--cards LIST]\n"
           "       [--te-cards LIST] [--ports N]\n"
           "A simulated chassis: event handler (30.0), L2PM (166.0), IFM (138.0) and a\n"
           "control endpoint (50.0) for vornctl, with the manager vornd as a child.\n"
           "  --rundir DIR    run directory of the chassis (default " +
           host::defaultRunDir() +
           ")\n"
           "  --vornd PATH    the manager to start (default: the vornd beside vornsim)\n"
           "  --vornctl PATH  the vornctl that replays DIR/startup-config once the manager\n"
           "                  it started answers (default: the vornctl beside vornsim)\n"
           "  --attach        start no manager; work with the one running in DIR\n"
           "  --no-evh        start with the event handler absent\n"
           "  --evh-refuse    the event handler refuses subscriptions\n"
           "  --no-l2pm       start with L2PM absent\n"
           "  --l2pm-refuse   L2PM refuses registrations\n"
           "  --cards LIST    comma list of slots 0..11 with a card (default 0,1)\n"
           "  --te-cards LIST slots whose cards carry TenGigabitEthernet ports (default:\n"
           "                  none; the others carry GigabitEthernet ports)\n"
           "  --ports N       ports per card, 1..64 (default 8: Gi SLOT/0 to SLOT/7)\n"
           "Stop it with Ctrl-C, SIGTERM or 'vornctl sim quit'.\n";
}

ParseOutcome parseOptions(int argc, char** argv, SimOptions* out, std::string* message) {
    std::string prog = argc > 0 ? argv[0] : "vornsim";
    auto error = [&](const std::string& what) {
        *message = prog + ": " + what + "\n" + usageText(prog);
        return ParseOutcome::Error;
    };
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        bool takesValue = a == "--rundir" || a == "--vornd" || a == "--vornctl" ||
                          a == "--cards" || a == "--te-cards" || a == "--ports";
        if (takesValue && i + 1 >= argc)
            return error("option " + a + " needs a value");
        if (a == "--rundir") {
            out->rundir = argv[++i];
        } else if (a == "--vornd") {
            out->vorndPath = argv[++i];
        } else if (a == "--vornctl") {
            out->vornctlPath = argv[++i];
        } else if (a == "--cards") {
            out->cards = argv[++i];
            if (!parseCardList(out->cards, &out->cardMask))
                return error("bad --cards list '" + out->cards + "' (slots 0..11, e.g. 0,1)");
        } else if (a == "--te-cards") {
            std::string list = argv[++i];
            if (!parseCardList(list, &out->tenGigMask))
                return error("bad --te-cards list '" + list + "' (slots 0..11, e.g. 2,3)");
        } else if (a == "--ports") {
            std::string n = argv[++i];
            if (!parseNumber(n, 1, 64, &out->portsPerCard))
                return error("bad --ports '" + n + "' (ports per card, 1..64)");
        } else if (a == "--attach") {
            out->attach = true;
        } else if (a == "--no-evh") {
            out->evhAbsent = true;
        } else if (a == "--evh-refuse") {
            out->evhRefuse = true;
        } else if (a == "--no-l2pm") {
            out->l2pmAbsent = true;
        } else if (a == "--l2pm-refuse") {
            out->l2pmRefuse = true;
        } else if (a == "--help" || a == "-h") {
            *message = usageText(prog);
            return ParseOutcome::Help;
        } else {
            return error("unknown option '" + a + "'");
        }
    }
    if (out->rundir.empty())
        out->rundir = host::defaultRunDir();
    return ParseOutcome::Run;
}

}  // namespace vorn::sim
