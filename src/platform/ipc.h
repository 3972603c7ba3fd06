// Host edition of the platform's task and IPC services.
//
// Every queue is a UNIX-domain datagram socket bound at DIR/<service>.<instance>.<kind>
// in the run directory; one datagram is one message: the 60-byte IPC header, then the
// body. Sends route by the header's target.svce; replies go back to the address the
// request came from. All multi-byte fields are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// A platform key: a task key, an IPC key or an event-log key. Keys never collide
// with socket descriptors, so calls that take "a descriptor or a key" can tell them apart.
using QelKey = long;

// ---- IPC header -------------------------------------------------------------------------

namespace vorn::ipc {

inline constexpr size_t kHdrLen = 60;
inline constexpr size_t kSwpHdrLen = 64;
inline constexpr size_t kSwpBodyOff = kHdrLen + kSwpHdrLen;  // 124
inline constexpr size_t kMaxMsgLen = 8192;
inline constexpr uint32_t kMagic = 0x51454C31;  // "QEL1"

// Byte offsets of the header words.
inline constexpr size_t kOffMagic = 0;
inline constexpr size_t kOffFlags = 4;
inline constexpr size_t kOffMlen = 8;
inline constexpr size_t kOffMtype = 12;
inline constexpr size_t kOffXid = 16;
inline constexpr size_t kOffW20 = 20;
inline constexpr size_t kOffPid = 24;
inline constexpr size_t kOffW28 = 28;
inline constexpr size_t kOffSenderTask = 32;
inline constexpr size_t kOffSrcSlot = 36;
inline constexpr size_t kOffSrcCard = 40;
inline constexpr size_t kOffSrcSvce = 44;
inline constexpr size_t kOffDstSlot = 48;
inline constexpr size_t kOffDstCard = 52;
inline constexpr size_t kOffDstSvce = 56;
static_assert(kOffDstSvce + 4 == kHdrLen);

inline constexpr uint32_t kFlagReply = 0x1;

// Queue kinds.
inline constexpr int kKindRequest = 1;
inline constexpr int kKindTimer = 2;
inline constexpr int kKindSwpSource = 3;  // names the request queue
inline constexpr int kKindReply = 4;      // send-and-wait reply socket

// Services.
inline constexpr int kSvcEventHandler = 30;
inline constexpr int kSvcCli = 40;
inline constexpr int kSvcSimControl = 50;
inline constexpr int kSvcIfm = 138;
inline constexpr int kSvcL2pm = 166;
inline constexpr int kSvcManager = 226;
inline constexpr int kSvcAgent = 227;

// Platform-level message types handled inside the host library.
inline constexpr uint32_t kMtShellRequest = 9001;
inline constexpr uint32_t kMtShellAnswer = 9002;

// Queue id: (service << 20) | (instance << 4) | kind.
constexpr uint32_t queueId(int service, int instance, int kind) {
    return (static_cast<uint32_t>(service) << 20) | (static_cast<uint32_t>(instance) << 4) |
           static_cast<uint32_t>(kind);
}
constexpr int queueService(uint32_t id) {
    return static_cast<int>(id >> 20);
}
constexpr int queueInstance(uint32_t id) {
    return static_cast<int>((id >> 4) & 0xFFFF);
}
constexpr int queueKind(uint32_t id) {
    return static_cast<int>(id & 0xF);
}

inline constexpr uint32_t kLoopbackAddr = 0x7F000001;
inline constexpr uint32_t kCardAddrBase = 0x7F000100;

}  // namespace vorn::ipc

// ---- Task services ----------------------------------------------------------------------

// Parses the host options (--rundir, --cards, --standby, --peer-pair), prepares the run
// directory and sets up the clean exit on SIGTERM and SIGINT (every bound socket unlinked,
// status 0). Returns 0 to go on. Returns 1, having printed why, when the program is not to
// start: after --help or --version (printed on stdout), or for a bad command line or an
// unusable run directory (a message and the usage on stderr); vorn::host::startExitStatus()
// then gives the status to end with. It never ends the process itself.
int QEL_NbsdpInit(int argc, char** argv, char** env);

using QelTaskEntry = void (*)(intptr_t, intptr_t);
// Starts entry(arg1, arg2) on a new thread named `name`; returns the task id or -1.
long taskSpawn(const char* name, int priority, int options, int stackSize, QelTaskEntry entry,
               intptr_t arg1, intptr_t arg2, intptr_t arg3 = 0);
// Starts the debug shell service: shell requests on this process's request queues are
// answered from then on. Returns 0.
int qelDdbInit(char** argv);
// Registers the calling task with the platform; returns the task key or -1. The task's
// service and instance come from the name it was spawned with ("vorn": 226, 0).
QelKey qelTaskStartup(intptr_t arg1, intptr_t arg2, int flags);
int qelTaskReady(QelKey taskKey);
int qelTaskGetServiceByKey(QelKey taskKey);
int qelTaskGetInstanceByKey(QelKey taskKey);
long taskIdSelf();
int taskDelay(int ticks);
int sysClkRateGet();

// ---- IPC --------------------------------------------------------------------------------

// Opens the request (kind 1), timer (kind 2) and reply (kind 4) sockets of a service
// instance. Returns the IPC key, or -1 (an endpoint of that name is alive in another
// process, or a socket could not be made).
QelKey qelIpcTmrOpen(int service, int instance);
// Closes the endpoint of an IPC key and unlinks its sockets.
int qelIpcClose(QelKey ipcKey);
int Key_getReqQueue(QelKey ipcKey);
int Key_getTmrQueue(QelKey ipcKey);
int Key_getReplySocket(QelKey ipcKey);
// The socket descriptor behind a queue descriptor, for select.
int Key_getSocketFd(int qfd);

// Reads one datagram, without waiting, from a queue. Returns its length, or -1 when nothing
// valid was waiting (malformed datagrams are dropped and counted; debug-shell requests are
// served here and not passed on).
int qelIpcRecv(int qfd, void* buf, int len, int, int, int);
// Host extension: like qelIpcRecv, but waits up to timeoutMs (negative: for ever).
int qelIpcRecvWait(int qfd, void* buf, int len, int timeoutMs);
// Originates a message: writes magic, flags 0, pid, and sends len bytes from the queue of
// the descriptor or key to the request queue named by target.svce. Returns 0 or -1.
int qelIpcSend(long qfdOrKey, void* buf, int len);
// Send-and-wait: see the wire contract. The reply is copied into buf (at most len bytes).
int qelIpcSendWait(QelKey ipcKey, void* buf, int len, int wait, int mtype, int);
// Replies to the last message read from the descriptor or key: sets the reply flag and
// sends len bytes to that message's source address. Returns 0 or -1.
int qelIpcReply(long qfdOrKey, void* buf, int len);

uint32_t qel_getQueueId(int service, int instance, int kind);
uint32_t qel_tmeGetPeerIpAddrByName(int service, int instance, uint32_t* out);
uint32_t qel_sysGetIpAddr();

// ---- Host extensions --------------------------------------------------------------------

namespace vorn::host {

struct Options {
    std::string rundir;     // every socket and file of the chassis lives here
    uint32_t cards = 0x3;   // bit s set: a card is present in slot s
    bool standby = false;   // qelHaIsPrimaryRpm() returns 0
    bool peerPair = false;  // qelIsZilEnabled() returns 1
};

// The options in force (after QEL_NbsdpInit, or as set by setRunDir).
const Options& options();
Options& mutableOptions();
// After QEL_NbsdpInit returned non-zero: the exit status the program should end with, 0 after
// --help or --version, 2 for a bad command line or an unusable run directory.
int startExitStatus();
// The default run directory: /tmp/vorn-<uid>.
std::string defaultRunDir();
// Uses `dir` as the run directory (created with mode 0700 when absent). Returns false with a
// message in *err when it cannot be used (e.g. writable by other users).
bool setRunDir(const std::string& dir, std::string* err);
// DIR/<service>.<instance>.<kind>
std::string queuePath(int service, int instance, int kind);
std::string queuePath(uint32_t queueId);
// Takes the run directory's lock of a service instance (DIR/<service>.<instance>.lock) for
// the life of the process. Returns false, with the holder's pid in *err, when another process
// holds it. The clean exit removes the lock file.
bool lockService(int service, int instance, std::string* err);
// The IPC key this process opened for a service instance, or -1.
QelKey findIpcKey(int service, int instance);
// True when a process is bound at the socket path and reading from it.
bool endpointAlive(const std::string& path);

// Platform statistics (section "debug shell and platform statistics").
struct IpcStats {
    uint64_t sent = 0;
    uint64_t sendFailed = 0;
    uint64_t received = 0;
    uint64_t droppedShort = 0;       // shorter than the header
    uint64_t droppedMagic = 0;       // wrong magic
    uint64_t droppedLength = 0;      // length word differs from the datagram
    uint64_t droppedStaleReply = 0;  // send-and-wait: reply of another exchange
    uint64_t shellRequests = 0;
    uint64_t deferred = 0;  // sends that waited for room in a full peer queue
};
IpcStats ipcStats();

// Deferred sends, for a process whose one thread serves many endpoints (vornsim). A send to a
// full peer queue normally waits up to 200 ms; while it waits the process reads nothing, and
// when the peer is itself waiting to send to this process, both only go on once their waits
// expire and their messages are lost. With deferral on, such a send returns at once and the
// datagram waits in the process, behind any others for the same queue (order is kept), until
// flushDeferredSends finds room for it. A send-and-wait's request is never deferred.
void setDeferFullSends(bool on);
// Sends what waits, oldest first, as far as the peers' queues take it; drops what is for a
// peer that went away. Returns the number of datagrams still waiting.
size_t flushDeferredSends();
void printIpcStats();  // the qelIpcStats shell command

// Closes every endpoint, forgets every key and resets the statistics (tests only).
void resetIpcForTest();

// The clean stop on SIGTERM and SIGINT (set up by QEL_NbsdpInit). The signal only makes
// stopEventFd() readable (-1 before the set-up); the program's own thread, between two
// messages, then calls stopNow(): the configuration store's files are written, every bound
// socket and the service lock are removed, the standard streams flushed, and the process
// ends with status 0. taskDelay does it by itself when a stop arrives while it waits.
int stopEventFd();
bool stopRequested();
[[noreturn]] void stopNow();

}  // namespace vorn::host
