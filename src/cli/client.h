// vornctl's side of the wire: its own endpoint (service 40), the debug-shell query to the
// manager, and the control request to the simulator.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "cli/request.h"
#include "cli/rings.h"
#include "platform/ipc.h"

namespace vorn::cli {

// What a peer said, or why it could not be asked.
struct Answer {
    bool ok = false;        // the peer answered and did what was asked
    bool answered = false;  // false: no peer, time-out or local failure (see text)
    std::string text;       // the peer's text, or the reason
};

// The manager's answer to a configuration request.
struct ConfigAnswer {
    bool answered = false;  // false: no manager, time-out or local failure (see error)
    nm::Reply reply;
    std::string error;
};

class Client {
public:
    // Uses rundir; nothing is opened yet, and the directory is never created.
    explicit Client(std::string rundir, int timeoutMs = 5000);
    // Closes the endpoint and removes its sockets.
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    const std::string& rundir() const { return rundir_; }
    // Why an existing run directory cannot be used (e.g. others may write to it); empty
    // when it can, or when it does not exist at all.
    const std::string& dirProblem() const { return dirProblem_; }
    // True when the request queue of service.instance is bound and read in the run directory.
    bool peerRunning(int service, int instance) const;

    // Runs one debug-shell line ("qelIpcStats", "vornDbgPrint = 1") in the manager.
    Answer shell(const std::string& line);
    // Sends one control command ("card up 3") to the simulator.
    Answer sim(const std::string& command);
    // Sends one configuration request to the manager (226.0.1) and waits for its answer.
    ConfigAnswer configure(const nm::ConfigRequest& req);
    // Sends a debug or clear request made by `make` (from the exchange id and the client's
    // queue id) and waits for its reply.
    ConfigAnswer request(const std::function<Request(uint32_t xid, uint32_t srcQueue)>& make);
    // Asks the manager for one page of a show; false, with the reason in *err, when it did
    // not answer.
    bool showPage(uint32_t code, const Paging& paging, ShowPage* page, std::string* err);
    // Sends a message of the header alone (undebug all: MT 2003) to the manager; no answer.
    bool notify(uint32_t mtype, std::string* err);

private:
    // Opens the endpoint 40.<pid % 65536> (or the next free instance) on first use.
    bool connect(std::string* err);
    // Reads the request queue until `take` accepts a message (true) or the time-out passes
    // (false). Messages `take` does not accept, such as answers to an earlier abandoned
    // exchange, are passed over.
    bool awaitAnswer(const std::function<bool(const uint8_t* msg, size_t len)>& take);
    // Sends a 1024-byte request from the request queue and waits for the message `take`
    // accepts; the reason in *err when there is none.
    bool exchange(Request msg, const std::function<bool(const uint8_t*, size_t)>& take,
                  std::string* err);
    uint32_t ownQueue() const;

    std::string rundir_;
    int timeoutMs_;
    bool dirUsable_ = false;
    std::string dirError_;
    std::string dirProblem_;
    QelKey key_ = -1;
    int instance_ = -1;
    uint32_t nextExchange_;
};

// "\r\n" and a lone "\r" become "\n".
std::string normaliseLineEnds(const std::string& text);

}  // namespace vorn::cli
