// The debug shell: a registry of diagnostic functions and globals, the capture of what a
// function prints, and the request-queue service and client of shell lines.

#include "platform/shell.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <mutex>
#include <sstream>

#include "platform/cfgstore.h"
#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/ipc_internal.h"
#include "platform/mem.h"
#include "platform/number.h"

namespace vorn::shell {
namespace {

struct Entry {
    Fn fn;
    std::string help;
};

struct Registry {
    std::mutex mu;
    std::map<std::string, Entry> functions;
    std::map<std::string, uint32_t*> globals;
};

Registry& reg() {
    static Registry r;
    return r;
}

// The platform's own commands, present in every process that serves the shell.
void registerBuiltins(Registry& r) {
    r.functions["qelMemShow"] = {[](const std::vector<long>&) { qelMemShow(); },
                                 "memory pools: blocks in use, peak, total, failures"};
    r.functions["qelIpcStats"] = {[](const std::vector<long>&) { host::printIpcStats(); },
                                  "datagrams sent, received and dropped, by reason"};
    r.functions["qelCfgCommit"] = {[](const std::vector<long>&) { host::cfgStoreCommit(); },
                                   "write the configuration files the store has changed"};
}

Registry& regWithBuiltins() {
    Registry& r = reg();
    static std::once_flag once;
    std::call_once(once, [&r] {
        std::lock_guard<std::mutex> lock(r.mu);
        registerBuiltins(r);
    });
    return r;
}

// Reads an argument or a global's value: a number, decimal or 0x hex, with an optional '-' in
// front. It must fit a 32-bit word, as the functions take ints and the globals are 32 bits
// (0xffffffff is -1 to them).
bool parseWord(const std::string& tok, long* out, std::string* why) {
    constexpr uint64_t kMaxNegative = 0x80000000u;
    constexpr uint64_t kMaxPositive = 0xFFFFFFFFu;
    bool negative = !tok.empty() && tok[0] == '-';
    uint64_t v = 0;
    switch (number::read(std::string_view(tok).substr(negative ? 1 : 0), 0,
                         negative ? kMaxNegative : kMaxPositive, number::Radix::DecimalOrHex, &v)) {
        case number::Status::Ok:
            *out = negative ? -static_cast<long>(v) : static_cast<long>(v);
            return true;
        case number::Status::NotANumber:
            *why = "expected an integer";
            return false;
        case number::Status::OutOfRange:
            break;
    }
    *why = "out of range -2147483648..4294967295 (a 32-bit word)";
    return false;
}

// Runs fn with the standard output redirected into an anonymous file, and returns what
// it printed. Both printf and puts and direct writes to descriptor 1 are captured.
std::string capture(const std::function<void()>& fn) {
    std::fflush(stdout);
    int mfd = memfd_create("vorn-shell", MFD_CLOEXEC);
    int saved = dup(STDOUT_FILENO);
    if (mfd < 0 || saved < 0 || dup2(mfd, STDOUT_FILENO) < 0) {
        if (mfd >= 0) close(mfd);
        if (saved >= 0) close(saved);
        fn();
        return {};
    }
    fn();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    std::string out;
    std::array<char, 4096> chunk;
    off_t pos = 0;
    for (;;) {
        ssize_t n = pread(mfd, chunk.data(), chunk.size(), pos);
        if (n <= 0) break;
        out.append(chunk.data(), static_cast<size_t>(n));
        pos += n;
    }
    close(mfd);
    return out;
}

}  // namespace

void registerFunction(const std::string& name, Fn fn, const std::string& help) {
    Registry& r = regWithBuiltins();
    std::lock_guard<std::mutex> lock(r.mu);
    r.functions[name] = {std::move(fn), help};
}

namespace {
long arg(const std::vector<long>& a, size_t i) {
    return i < a.size() ? a[i] : 0;
}
int i32(long v) {
    return static_cast<int>(v);
}
}  // namespace

void registerFunction(const std::string& name, int (*fn)(), const std::string& help) {
    registerFunction(
        name, [fn](const std::vector<long>&) { fn(); }, help);
}
void registerFunction(const std::string& name, int (*fn)(int), const std::string& help) {
    registerFunction(
        name, [fn](const std::vector<long>& a) { fn(i32(arg(a, 0))); }, help);
}
void registerFunction(const std::string& name, int (*fn)(int, int), const std::string& help) {
    registerFunction(
        name, [fn](const std::vector<long>& a) { fn(i32(arg(a, 0)), i32(arg(a, 1))); }, help);
}
void registerFunction(const std::string& name, int (*fn)(int, int, int), const std::string& help) {
    registerFunction(
        name,
        [fn](const std::vector<long>& a) { fn(i32(arg(a, 0)), i32(arg(a, 1)), i32(arg(a, 2))); },
        help);
}
void registerFunction(const std::string& name, void (*fn)(), const std::string& help) {
    registerFunction(
        name, [fn](const std::vector<long>&) { fn(); }, help);
}

void registerGlobal(const std::string& name, uint32_t* var) {
    Registry& r = regWithBuiltins();
    std::lock_guard<std::mutex> lock(r.mu);
    r.globals[name] = var;
}

std::string runLine(const std::string& line) {
    std::istringstream in(line);
    std::vector<std::string> toks;
    for (std::string t; in >> t;) toks.push_back(t);
    if (toks.empty()) return "";
    // "NAME=VALUE" is accepted as well as "NAME = VALUE".
    if (toks.size() == 1 && toks[0].find('=') != std::string::npos) {
        std::string t = toks[0];
        size_t eq = t.find('=');
        toks = {t.substr(0, eq), "=", t.substr(eq + 1)};
        if (toks[2].empty()) toks.pop_back();
    }
    const std::string& name = toks[0];

    Registry& r = regWithBuiltins();
    Fn fn;
    uint32_t* global = nullptr;
    {
        std::lock_guard<std::mutex> lock(r.mu);
        if (auto g = r.globals.find(name); g != r.globals.end()) global = g->second;
        if (auto f = r.functions.find(name); f != r.functions.end()) fn = f->second.fn;
    }
    if (global != nullptr && (toks.size() == 1 || toks[1] == "=")) {
        if (toks.size() >= 2) {
            long v = 0;
            std::string why;
            if (toks.size() != 3) return "bad value for " + name + ": expected NAME = NUMBER\n";
            if (!parseWord(toks[2], &v, &why))
                return "bad value '" + toks[2] + "' for " + name + ": " + why + "\n";
            *global = static_cast<uint32_t>(v);
        }
        return name + " = " + std::to_string(*global) + "\n";
    }
    if (!fn) return "unknown command: " + name + "\n";
    std::vector<long> args;
    for (size_t i = 1; i < toks.size(); ++i) {
        long v = 0;
        std::string why;
        if (!parseWord(toks[i], &v, &why))
            return "bad argument '" + toks[i] + "' to " + name + ": " + why + "\n";
        args.push_back(v);
    }
    return capture([&] { fn(args); });
}

std::vector<std::string> functionNames() {
    Registry& r = regWithBuiltins();
    std::lock_guard<std::mutex> lock(r.mu);
    std::vector<std::string> names;
    for (const auto& [name, e] : r.functions) names.push_back(name);
    return names;
}

void resetForTest() {
    Registry& r = regWithBuiltins();
    std::lock_guard<std::mutex> lock(r.mu);
    r.functions.clear();
    r.globals.clear();
    registerBuiltins(r);
}

bool query(long ipcKey, int service, int instance, const std::string& line, std::string* out,
           int timeoutMs) {
    int fd = Key_getReplySocket(ipcKey);
    if (fd < 0) return false;
    std::array<uint8_t, ipc::kMaxMsgLen> msg{};
    size_t textLen = std::min(line.size(), msg.size() - kOffLine - 1);
    size_t len = kOffLine + textLen + 1;
    be::Writer w(msg.data(), len);
    w.u32(ipc::kOffMlen, static_cast<uint32_t>(len));
    w.u32(ipc::kOffMtype, ipc::kMtShellRequest);
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(ipc::kSvcCli, 0, ipc::kKindReply));
    w.u32(ipc::kOffDstSvce, qel_getQueueId(service, instance, ipc::kKindRequest));
    w.bytes(kOffLine, line.data(), textLen);
    if (host::sendDatagram(fd, host::queuePath(service, instance, ipc::kKindRequest), msg.data(),
                           len, false) != 0)
        return false;
    out->clear();
    for (;;) {
        int n = host::recvValidated(fd, msg.data(), msg.size(), timeoutMs);
        if (n < 0) return false;
        be::Reader rd(msg.data(), static_cast<size_t>(n));
        if (rd.u32(ipc::kOffMtype) != ipc::kMtShellAnswer) continue;
        uint32_t tlen = rd.u32(kOffTextLen);
        auto text = rd.view(kOffText, tlen);
        if (!rd.ok()) return false;
        out->append(reinterpret_cast<const char*>(text.data()), text.size());
        if (rd.u32(kOffMore) == 0) return true;
    }
}

}  // namespace vorn::shell

namespace vorn::host {

void serveShellRequest(int fd, const void* msg, size_t len) {
    countShellRequest();
    be::Reader rd(msg, len);
    auto body = rd.view(shell::kOffLine, len > shell::kOffLine ? len - shell::kOffLine : 0);
    std::string line(reinterpret_cast<const char*>(body.data()), body.size());
    if (size_t nul = line.find('\0'); nul != std::string::npos) line.resize(nul);
    std::string text = shell::runLine(line);

    constexpr size_t kChunk = ipc::kMaxMsgLen - shell::kOffText;
    std::array<uint8_t, ipc::kMaxMsgLen> out{};
    size_t pos = 0;
    do {
        size_t n = std::min(kChunk, text.size() - pos);
        size_t mlen = shell::kOffText + n;
        std::fill(out.begin(), out.begin() + ipc::kHdrLen, 0);
        be::Writer w(out.data(), mlen);
        w.u32(ipc::kOffMlen, static_cast<uint32_t>(mlen));
        w.u32(ipc::kOffMtype, ipc::kMtShellAnswer);
        w.u32(shell::kOffMore, pos + n < text.size() ? 1 : 0);
        w.u32(shell::kOffTextLen, static_cast<uint32_t>(n));
        w.bytes(shell::kOffText, text.data() + pos, n);
        if (sendToLastSource(fd, out.data(), mlen, true) != 0) return;
        pos += n;
    } while (pos < text.size());
}

}  // namespace vorn::host
