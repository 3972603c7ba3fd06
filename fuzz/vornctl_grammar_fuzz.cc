// vornctl's command grammar on arbitrary text. The input is replayed as a file of commands
// (vornctl -f): every line is parsed in the context the lines before it lead to (a
// "protocol vorn N" line enters that ring's context), and the actions are built; then the
// first line is sent, which fails at once, as no manager runs in the run directory vornctl
// is given. Every line is also asked, as the interactive shell asks, for what may follow
// it ('?': the line up to its first '?', and the whole line) and for the words that
// complete it (tab), at the top and in a ring's context.
//
// The output of vornctl is dropped after every input.
//
// Seeds: fuzz/corpus/vornctl_grammar_fuzz/, written by fuzz/gen_line_corpora.py.

#include <sstream>
#include <string>
#include <string_view>

#include "cli/commands.h"
#include "fuzz_support.h"
#include "platform/ipc.h"

namespace {

namespace cli = vorn::cli;

void askAbout(const cli::Cli& vornctl, std::string_view line) {
    for (std::string_view before : {line.substr(0, line.find('?')), line}) {
        vornctl.helpText(before);
        vornctl.completions(before);
        vornctl.grammar().help(cli::Mode::Ring, before);
        vornctl.grammar().complete(cli::Mode::Ring, before);
    }
}

}  // namespace

void vorn::fuzz::setUp() {
    initRunDir();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::ostringstream out, err;
    // Without a manager no line takes effect, so the context stays at the top: one vornctl
    // serves every input.
    static cli::Cli vornctl(vorn::host::options().rundir + "/no-chassis", out, err, 100);
    out.str("");
    err.str("");
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::istringstream in(text);
    vornctl.replay(in, "fuzz");
    std::string_view rest = text;
    while (!rest.empty()) {
        size_t end = rest.find('\n');
        askAbout(vornctl, rest.substr(0, end));
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return 0;
}
