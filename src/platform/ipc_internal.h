// Internals of the host IPC shared by the other host services (SWP, event handler, shell).
// Not for the manager's code, which speaks only the platform calls of ipc.h.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vorn::host {

// Fills a Unix socket address for path; false when the path is too long for one.
bool makeAddr(const std::string& path, sockaddr_un* addr, socklen_t* len);
// Binds a datagram socket at path (close-on-exec, 4 MiB buffers). A stale socket file (nobody
// reading) is replaced; a live one is left alone and the bind fails with EADDRINUSE.
int bindSocket(const std::string& path);
// Stamps the host header words of an outgoing message (magic, flags, pid, word 28) and
// sends len bytes from socket fd to the socket at `path`. A full peer queue is waited on
// for a short while. Returns 0, or -1 with errno set (ENOENT or ECONNREFUSED: no peer).
int sendDatagram(int fd, const std::string& path, void* buf, size_t len, bool reply);
// Sends an originating message from fd to the request queue named by target.svce. With
// mayDefer false it is sent at once even in a process that defers full sends.
int routeSend(int fd, void* buf, size_t len, bool mayDefer = true);
// Sends from fd to the source address of the last datagram read on fd, as a reply
// (flag bit 0 set) when `reply` is true.
int sendToLastSource(int fd, void* buf, size_t len, bool reply);
// Resolves "a descriptor or a key" to a socket descriptor: an IPC key gives its request
// queue. Returns -1 when it is neither.
int resolveSocket(long qfdOrKey);
// Reads one datagram from fd (waiting up to timeoutMs; 0: not at all; negative: for ever),
// validates the header and remembers its source address. Returns the length, or -1 (nothing
// valid arrived; invalid datagrams are counted and dropped).
int recvValidated(int fd, void* buf, size_t len, int timeoutMs);
// Milliseconds until deadline, rounded up; 0 once it has passed.
int msLeft(std::chrono::steady_clock::time_point deadline);
// Sleeps ms milliseconds while serving debug-shell lines that arrive on this process's request
// queues; any other message stays queued for its owner. A stop event ends the wait early.
void serveShellFor(int ms);
// Counts a stale send-and-wait reply.
void countStaleReply();
// Unlinks the socket of every open endpoint.
void unlinkAllSockets();
// Unlinks the peer-pair library's link socket, if it is open.
void unlinkPeerLinkSocket();
// Turns SIGTERM and SIGINT into the stop event (stopEventFd in ipc.h).
void installCleanExit();
// Removes the lock file of the service this process runs, if it holds one.
void releaseServiceLock();
// Turns the debug-shell service of the request queues on or off.
void enableShellService(bool on);
bool shellServiceEnabled();
void countShellRequest();
// Called by qelIpcRecv for a debug-shell line that arrived on fd.
void serveShellRequest(int fd, const void* msg, size_t len);

}  // namespace vorn::host
