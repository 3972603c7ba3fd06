// The running configuration that the manager's configuration store keeps in the run
// directory: shown with its line ends normalised, and saved as the startup configuration.

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "cli/commands.h"
#include "platform/files.h"
#include "platform/ipc.h"

namespace vorn::cli {
namespace {

size_t countLines(const std::string& text) {
    size_t n = 0;
    for (char c : normaliseLineEnds(text)) n += c == '\n' ? 1 : 0;
    return n;
}

}  // namespace

// A running manager is asked first to write what it holds (its shell runs between two
// messages, so every change it has answered is then in the file). A manager that has not
// changed a file yet has not written it: it holds nothing. Without a manager, a missing file
// is an error.
bool Cli::readStoreFile(const std::string& name, const std::string& noun, std::string* text,
                        std::string* err) {
    if (!client_.dirProblem().empty()) {
        *err = client_.dirProblem();
        return false;
    }
    const bool running = client_.peerRunning(ipc::kSvcManager, 0);
    if (running) client_.shell("qelCfgCommit");
    std::string path = client_.rundir() + "/" + name;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        int e = errno;
        if (e == ENOENT && running) {
            text->clear();
            return true;
        }
        *err = e == ENOENT ? "there is no " + noun + " in " + client_.rundir() +
                                 " (no manager is running there)"
                           : "cannot read " + path + ": " + std::strerror(e);
        return false;
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    *text = ss.str();
    return true;
}

int Cli::showRunningConfig() {
    std::string text, error;
    if (!readStoreFile("running-config", "running configuration", &text, &error)) {
        err_ << "% Error: " << error << "\n";
        return kExitFailed;
    }
    if (json_) return printJson(runningConfigJson(text));
    text = normaliseLineEnds(text);
    if (!text.empty() && text.back() != '\n') text += '\n';
    out_ << text;
    return kExitOk;
}

int Cli::writeMemory() {
    std::string text, error;
    if (!readStoreFile("running-config", "running configuration", &text, &error)) {
        err_ << "% Error: " << error << "; nothing was saved\n";
        return kExitFailed;
    }
    std::string path = client_.rundir() + "/startup-config";
    if (!host::writeFileAtomic(path, text, &error)) {
        err_ << "% Error: " << error << "; the startup configuration was left as it was\n";
        return kExitFailed;
    }
    size_t lines = countLines(text);
    out_ << "Saved the running configuration (" << lines << " line" << (lines == 1 ? "" : "s")
         << ") to " << path << "\n";
    return kExitOk;
}

}  // namespace vorn::cli
