// Files of the run directory: the directory's own policy, the one atomic writer every program
// uses, and the flags every file opened there is opened with.
#pragma once

#include <fcntl.h>

#include <string>
#include <string_view>

namespace vorn::host {

// Flags added to every open() of a file in the run directory: a symbolic link planted in the
// directory is never followed, and no descriptor leaks into a child.
inline constexpr int kRunDirOpenFlags = O_NOFOLLOW | O_CLOEXEC;

// Checks a run directory, creating it (mode 0700) when it does not exist. Refused, with a
// sentence in *err: a path that is a symbolic link or not a directory, a directory owned by
// another user, or one that the group or others may write.
bool checkRunDir(const std::string& dir, std::string* err);

// How far a replaced file must get before writeFileAtomic returns.
enum class FileSync {
    kToDisk,  // on disk: the new file survives a power loss
    kNone,    // in the page cache: it survives the process, as live state needs
};

// Replaces `path` with `content` so that a reader sees either the old file or the whole new
// one: a temporary file (mode 0600) beside it, written (and with kToDisk flushed to disk),
// renamed over it (and with kToDisk the directory flushed). Returns false with the reason in
// *err; the old file is then untouched and no temporary file is left.
bool writeFileAtomic(const std::string& path, std::string_view content, std::string* err,
                     FileSync sync = FileSync::kToDisk);

// `program` in the directory of the running program (the programs are built side by side),
// or just its name when that directory cannot be known.
std::string besideUs(const std::string& program);

}  // namespace vorn::host
