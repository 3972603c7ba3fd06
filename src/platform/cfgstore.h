// Host edition of the platform's configuration store.
//
// The store lives in the manager's process and keeps its configuration as text lines, one
// line per key: an insertion with the key of an existing line takes that line's place, and
// a removal finds its line by the key alone (the text it carries is not compared). The files
// of the run directory that a change touches are rewritten before the process next sends a
// message (a reply, a shell answer, anything) and at its clean exit, so whoever learns of a
// change from the manager finds it in the files; each is written atomically (a temporary
// file, then a rename), so that a reader sees either the old or the new file whole. Several
// changes made for one request cost one rewrite:
//
//   DIR/running-config  the ring lines: rings in ascending id, within a ring the command
//                       ids 0, 1, 2, 3 (by line index), 4, 7, 6, 5;
//   DIR/debug-config    the debug header, then the per-ring debug entries in ascending
//                       ring id, within a ring by debug type and then debug mode.
//
// Each line is written as its stored text followed by "\r\n". The store is safe to call
// from any thread of the process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/ipc.h"

// Which part of the configuration a line belongs to.
enum class QelCfgSection : uint8_t {
    kRing = 0,         // a ring's configuration line (running-config)
    kDebugHeader = 1,  // the header above the debug entries (debug-config); one at most
    kDebug = 2,        // one ring's debug setting (debug-config)
};

// One configuration line with its key. The key is every field but `text`; fields that a
// section does not use stay 0.
struct QelCfgRecord {
    QelCfgSection section = QelCfgSection::kRing;
    uint16_t ringId = 0;     // kRing, kDebug: the ring
    uint32_t commandId = 0;  // kRing: the attribute (0 ring, 1 description ... 7 hello)
    uint16_t lineIndex = 0;  // kRing: the line of an attribute written over several lines
    uint32_t debugType = 0;  // kDebug: the debug type
    uint32_t debugMode = 0;  // kDebug: the debug mode
    std::string text;        // written as it is, followed by "\r\n"
};

// Stores the line (replacing the line of the same key). Returns 0; -1 for a negative
// (failed) task key, which changes nothing.
int qelCfgInsert(QelKey key, const QelCfgRecord& record);
// Removes the line with the record's key. Returns 0; -1 for a negative task key or when no
// line has that key (nothing changes then).
int qelCfgRemoveExact(QelKey key, const QelCfgRecord& record);
// Rewrites both files from the lines held. Returns 0, or -1 for a negative task key or
// when a file could not be written.
int qelCfgSync(QelKey key);

namespace vorn::host {

// File names inside the run directory.
inline constexpr const char* kRunningConfigFile = "running-config";
inline constexpr const char* kDebugConfigFile = "debug-config";

// Writes the files changed since they were last written. Returns false when one could not be
// written (reported on stderr); it stays marked and the next commit tries again.
bool cfgStoreCommit();
// The texts of the two files as the store would write them now.
std::string cfgRunningConfigText();
std::string cfgDebugConfigText();
// Number of lines held, over all sections.
size_t cfgLineCount();
// Forgets every line (tests only); the files are left as they are.
void resetCfgStoreForTest();

}  // namespace vorn::host
