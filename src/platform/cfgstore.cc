// The configuration store: an ordered map from key to line, and the atomic rewrite of the
// configuration files that changed, before the process next sends anything.

#include "platform/cfgstore.h"

#include "platform/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory_resource>
#include <mutex>
#include <string_view>
#include <tuple>

#include "platform/ipc_internal.h"

namespace {

// Print position of a ring line's command id within its ring: 0, 1, 2, 3, 4, 7, 6, 5.
// Ids the store does not know follow, in ascending order.
uint64_t commandRank(uint32_t commandId) {
    static constexpr uint8_t kRank[8] = {0, 1, 2, 3, 4, 7, 6, 5};
    return commandId < 8 ? kRank[commandId] : uint64_t{8} + commandId;
}

// The key of a line, ordered as the files print it: sections (ring lines, header, debug
// entries), then by ring, then within the section.
struct Key {
    QelCfgSection section;
    uint16_t ringId;
    uint32_t commandId;
    uint16_t lineIndex;
    uint32_t debugType;
    uint32_t debugMode;

    explicit Key(const QelCfgRecord& r)
        : section(r.section),
          ringId(r.ringId),
          commandId(r.commandId),
          lineIndex(r.lineIndex),
          debugType(r.debugType),
          debugMode(r.debugMode) {}

    bool operator<(const Key& o) const {
        auto tie = [](const Key& k) {
            return std::make_tuple(static_cast<uint8_t>(k.section), k.ringId,
                                   commandRank(k.commandId), k.lineIndex, k.debugType, k.debugMode);
        };
        return tie(*this) < tie(o);
    }
};

using Lines = std::pmr::map<Key, std::pmr::string>;

// The lines live as long as the configuration, and are made while a burst of message
// buffers comes and goes; from a pool of their own they lie together instead of scattered
// between those buffers, where each would keep a page of freed memory resident.
struct Store {
    std::mutex mu;
    std::pmr::unsynchronized_pool_resource pool;  // guarded by mu, as the lines are
    Lines running{&pool};                         // the ring lines: DIR/running-config
    Lines debug{&pool};                           // the debug header and entries: DIR/debug-config
    bool runningDirty = false;  // changed since DIR/running-config was last written
    bool debugDirty = false;    // changed since DIR/debug-config was last written
};

Lines& linesOf(Store& s, QelCfgSection section) {
    return section == QelCfgSection::kRing ? s.running : s.debug;
}

Store& store() {
    static Store s;
    return s;
}

// The text of one file: its lines in key order, each followed by "\r\n". Caller holds the
// lock.
std::string render(const Lines& lines) {
    size_t size = 0;
    for (const auto& [key, text] : lines) size += text.size() + 2;
    std::string out;
    out.reserve(size);
    for (const auto& [key, text] : lines) {
        out += text;
        out += "\r\n";
    }
    return out;
}

// Replaces DIR/name whole. Returns false, with the reason on stderr.
//
// The files hold the switch's live configuration, which a switch keeps in memory: a reader,
// and a manager started again, must see the old file or the whole new one, and the rename
// gives that. Nothing asks them to outlive the host, so they are not flushed to disk: a flush
// after every change cost more than the change itself.
bool writeAtomic(const std::string& name, const std::string& content) {
    const std::string& dir = vorn::host::options().rundir;
    if (dir.empty()) {
        std::fprintf(stderr, "cfgstore: no run directory, %s not written\n", name.c_str());
        return false;
    }
    std::string err;
    if (!vorn::host::writeFileAtomic(dir + "/" + name, content, &err,
                                     vorn::host::FileSync::kNone)) {
        std::fprintf(stderr, "cfgstore: %s\n", err.c_str());
        return false;
    }
    return true;
}

// Rewrites the files whose lines changed; a file that cannot be written stays marked, so the
// next commit tries again. Caller holds the lock.
bool commitLocked(Store& s) {
    bool ok = true;
    if (s.runningDirty) {
        s.runningDirty = !writeAtomic(vorn::host::kRunningConfigFile, render(s.running));
        ok = ok && !s.runningDirty;
    }
    if (s.debugDirty) {
        s.debugDirty = !writeAtomic(vorn::host::kDebugConfigFile, render(s.debug));
        ok = ok && !s.debugDirty;
    }
    return ok;
}

// Marks the file of a changed line for the next commit.
void markDirty(Store& s, const QelCfgRecord& record) {
    if (record.section == QelCfgSection::kRing)
        s.runningDirty = true;
    else
        s.debugDirty = true;
}

}  // namespace

int qelCfgInsert(QelKey key, const QelCfgRecord& record) {
    if (key < 0) return -1;
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    Lines& lines = linesOf(s, record.section);
    lines.insert_or_assign(Key(record),
                           std::pmr::string(std::string_view(record.text), lines.get_allocator()));
    markDirty(s, record);
    return 0;
}

int qelCfgRemoveExact(QelKey key, const QelCfgRecord& record) {
    if (key < 0) return -1;
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    if (linesOf(s, record.section).erase(Key(record)) == 0) return -1;
    markDirty(s, record);
    return 0;
}

int qelCfgSync(QelKey key) {
    if (key < 0) return -1;
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.runningDirty = s.debugDirty = true;
    return commitLocked(s) ? 0 : -1;
}

namespace vorn::host {

bool cfgStoreCommit() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    return commitLocked(s);
}

std::string cfgRunningConfigText() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    return render(s.running);
}

std::string cfgDebugConfigText() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    return render(s.debug);
}

size_t cfgLineCount() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    return s.running.size() + s.debug.size();
}

void resetCfgStoreForTest() {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.running.clear();
    s.debug.clear();
    s.runningDirty = s.debugDirty = false;
}

}  // namespace vorn::host
