// The debug shell: diagnostic functions and globals that an operator reaches by name.
//
// Lines arrive on a process's request queue as mtype 9001 ("vornPrintRing 5",
// "vornDbgPrint = 1", "vornDbgPrint") and are served by the host library on the owner's own
// thread, between two messages; what the function prints is captured and sent back in
// mtype 9002 pieces. See the wire contract, section 11.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace vorn::shell {

// Body of a shell answer (mtype 9002): 60 u32 more-follows, 64 u32 text length, 68 text.
inline constexpr size_t kOffMore = 60;
inline constexpr size_t kOffTextLen = 64;
inline constexpr size_t kOffText = 68;
inline constexpr size_t kOffLine = 60;  // request: NUL-terminated line

using Fn = std::function<void(const std::vector<long>& args)>;

// Registers a function under a name, with a one-line description.
void registerFunction(const std::string& name, Fn fn, const std::string& help = {});
// Adapters for plain functions of up to three integer arguments (missing ones are 0).
void registerFunction(const std::string& name, int (*fn)(), const std::string& help = {});
void registerFunction(const std::string& name, int (*fn)(int), const std::string& help = {});
void registerFunction(const std::string& name, int (*fn)(int, int), const std::string& help = {});
void registerFunction(const std::string& name, int (*fn)(int, int, int),
                      const std::string& help = {});
void registerFunction(const std::string& name, void (*fn)(), const std::string& help = {});
// Registers a 32-bit global that "NAME = VALUE" sets and "NAME" shows.
void registerGlobal(const std::string& name, uint32_t* var);

// Runs one shell line in this process and returns what it printed (also used by the
// request-queue service). Unknown names answer "unknown command: NAME".
std::string runLine(const std::string& line);

// Names of the registered functions, sorted.
std::vector<std::string> functionNames();
// Forgets every registration (tests only).
void resetForTest();

// Client side: sends `line` from the given IPC key to the shell of service.instance and
// collects the answer. Returns false on time-out.
bool query(long ipcKey, int service, int instance, const std::string& line, std::string* out,
           int timeoutMs = 5000);

}  // namespace vorn::shell
