// vornsim's control messages: a request (5001) decoded as the control endpoint decodes it,
// and its command line run on the chassis's command table, as the endpoint runs it; the
// answer is then built in its parts, which must carry the whole text. The same bytes are
// first read as an answer part (5002), as vornctl reads the simulator's answers.
//
// Input: bytes 0-1 are the datagram's length (taken into 60..8192), apart from the input's
// size; the bytes after them are the message from offset 0, zero-filled up to the length
// (the command starts at offset 60). The header gets the magic, the length word and the
// message type. Message bytes past the length are poisoned under AddressSanitizer.
//
// Every input gets a chassis of its own: cards 0 and 1 with 8 ports each, started attached
// (its event handler, L2PM, IFM and the agents of both cards open in this process; no
// manager, and none can be started: the manager's program is a path that does not exist),
// then VLANs 10 and 20-22 tagged on Gi 0/1 and Gi 1/1, VLAN 30 untagged on Gi 0/2,
// port-channel 1 with Gi 1/2, and Gi 0/1 up. No manager
// ever registers, so nothing the chassis does is sent anywhere.
//
// Seeds: fuzz/corpus/simctl_fuzz/, written by fuzz/gen_line_corpora.py.

#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz_support.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/swp.h"
#include "sim/chassis_sim.h"
#include "wire/simctl.h"

namespace {

namespace simctl = vorn::simctl;

const char* const kSetUp[] = {
    "vlan 10 add Gi 0/1 tagged",
    "vlan 10 add Gi 1/1 tagged",
    "vlan 20-22 add Gi 0/1 tagged",
    "vlan 20-22 add Gi 1/1 tagged",
    "vlan 30 add Gi 0/2 untagged",
    "lag 1 add Gi 1/2",
    "port Gi 0/1 up",
};

vorn::sim::CommandResult runOnChassis(const std::string& command) {
    // The SWP pipes the chassis makes (L2PM's, each agent's) outlive it in the platform's
    // registry; they are dropped with it, since nothing else here uses SWP.
    struct DropPipes {
        ~DropPipes() { vorn::host::resetSwpForTest(); }
    } dropPipes;
    vorn::sim::SimOptions opts;
    opts.rundir = vorn::host::options().rundir;
    opts.attach = true;
    opts.vorndPath = opts.vornctlPath = "/nonexistent/vornd";
    vorn::sim::ChassisSim sim(opts);
    std::string err;
    if (!sim.start(&err)) {
        std::fprintf(stderr, "simctl_fuzz: the chassis does not start: %s\n", err.c_str());
        abort();
    }
    for (const char* line : kSetUp) {
        vorn::sim::CommandResult r = sim.commands().run(line);
        if (!r.ok) {
            std::fprintf(stderr, "simctl_fuzz: '%s' refused: %s\n", line, r.text.c_str());
            abort();
        }
    }
    return sim.commands().run(command);
}

}  // namespace

void vorn::fuzz::setUp() {
    vorn::fuzz::initRunDir();
    vorn::fuzz::quietStdout();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    vorn::fuzz::MsgBuf& buf = vorn::fuzz::messageBuffer();
    const size_t len = vorn::fuzz::makeSizedMessage(data, size, simctl::kMtAnswer, &buf);
    if (len == 0) return 0;
    vorn::fuzz::poisonPast(&buf, len);
    simctl::AnswerPart part;
    simctl::decodeAnswerPart(buf.data(), len, &part);

    vorn::be::Writer(buf.data(), len).u32(vorn::ipc::kOffMtype, simctl::kMtRequest);
    std::string command;
    vorn::sim::CommandResult result;
    if (!simctl::decodeRequest(buf.data(), len, &command, &result.text))
        result.ok = false;
    else
        result = runOnChassis(command);
    // The answer's parts carry the whole text back.
    std::string back;
    for (const auto& m : simctl::encodeAnswer(buf.data(), result.ok ? 0 : 1, result.text)) {
        if (!simctl::decodeAnswerPart(m.data(), m.size(), &part) || m.size() > buf.size()) abort();
        back += part.text;
    }
    if (back != result.text) abort();
    return 0;
}
