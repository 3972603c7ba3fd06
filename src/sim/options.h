// The command line of vornsim.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vorn::sim {

// One cable of --link: a physical port of this chassis joined to a port of the chassis whose
// run directory is peerDir.
struct CableSpec {
    uint32_t ifIndex = 0;
    std::string peerDir;
    uint32_t peerIfIndex = 0;
};

struct SimOptions {
    std::string rundir;            // every socket of the chassis lives here
    std::string vorndPath;         // the manager to start; empty: the vornd beside vornsim
    std::string vornctlPath;       // replays the startup configuration; empty: the one beside us
    bool attach = false;           // work with a manager that runs already; start none
    bool evhAbsent = false;        // start without the event handler
    bool evhRefuse = false;        // the event handler refuses subscriptions
    bool l2pmAbsent = false;       // start without L2PM
    bool l2pmRefuse = false;       // L2PM refuses registrations
    std::string cards = "0,1";     // passed on to the manager
    uint32_t cardMask = 0x3;       // bit s: a card in slot s
    uint32_t tenGigMask = 0;       // bit s: the card in slot s carries TenGigabitEthernet ports
    uint32_t portsPerCard = 8;     // ports 0..N-1 on every card
    bool peerPair = false;         // the manager starts with --peer-pair
    std::string pairWith;          // the run directory of the chassis at the other end of the ICL
    std::vector<CableSpec> links;  // --link, in the order given
    bool timestamps = false;       // every line of the narration starts with the time
};

enum class ParseOutcome {
    Run,    // go on with *out
    Help,   // --help or --version: *message goes to the standard output, status 0
    Error,  // *message (what is wrong, then the usage) goes to the standard error, status 2
};

// Parses argv into *out (which holds the defaults).
ParseOutcome parseOptions(int argc, char** argv, SimOptions* out, std::string* message);

// A --link value, "IF=PEER-DIR:PEER-IF": the interface is what comes before the first '=',
// the far end's interface what comes after the last ':' (interface names hold neither), so
// names with blanks ("Gi 0/1") and directories with ':' or '=' read one way. Both interfaces
// must be physical ports. False, with the reason in *why.
bool parseLink(const std::string& value, CableSpec* out, std::string* why);

// "0,1,5" from a mask; "none" for 0.
std::string cardListText(uint32_t mask);

// The vornd (and vornctl) in the directory of the running program.
std::string defaultVorndPath();
std::string defaultVornctlPath();

}  // namespace vorn::sim
