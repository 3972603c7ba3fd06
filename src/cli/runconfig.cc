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

// Reads DIR/running-config into *text. A running manager is asked first to write what it
// holds (its shell runs between two messages, so every change it has answered is then in
// the file). A manager that has not been configured yet has not written the file: its
// running configuration is empty. Without a manager, a missing file is an error.
bool readRunningConfig(Client& client, std::string* text, std::string* err) {
    if (client.peerRunning(ipc::kSvcManager, 0)) client.shell("qelCfgCommit");
    std::string path = client.rundir() + "/running-config";
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        int e = errno;
        if (e == ENOENT && client.peerRunning(ipc::kSvcManager, 0)) {
            text->clear();
            return true;
        }
        *err = e == ENOENT ? "there is no running configuration in " + client.rundir() +
                                 " (no manager is running there)"
                           : "cannot read " + path + ": " + std::strerror(e);
        return false;
    }
    std::ostringstream ss;
    ss << in.rdbuf();
    *text = ss.str();
    return true;
}

}  // namespace

int Cli::showRunningConfig() {
    if (!client_.dirProblem().empty()) {
        err_ << "% Error: " << client_.dirProblem() << "\n";
        return kExitFailed;
    }
    std::string text, error;
    if (!readRunningConfig(client_, &text, &error)) {
        err_ << "% Error: " << error << "\n";
        return kExitFailed;
    }
    text = normaliseLineEnds(text);
    if (!text.empty() && text.back() != '\n') text += '\n';
    out_ << text;
    return kExitOk;
}

int Cli::writeMemory() {
    if (!client_.dirProblem().empty()) {
        err_ << "% Error: " << client_.dirProblem() << "\n";
        return kExitFailed;
    }
    std::string text, error;
    if (!readRunningConfig(client_, &text, &error)) {
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
