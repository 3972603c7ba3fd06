// The simulator's control endpoint (50.0): it takes command lines from vornctl (the protocol
// is in control_wire.h), runs them through the command table and answers with their text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/commands.h"
#include "sim/endpoint.h"
#include "sim/loop.h"

namespace vorn::sim {

class ControlServer : public Source {
public:
    struct Counters {
        uint64_t commands = 0;    // command lines answered
        uint64_t refused = 0;     // ... of which refused
        uint64_t malformed = 0;   // requests whose text could not be read (answered as refused)
        uint64_t unexpected = 0;  // other message types, dropped
    };

    explicit ControlServer(const CommandTable& table);

    // Opening the control endpoint also tells whether another simulator owns the run
    // directory: its queues are then alive and the open fails.
    bool open(std::string* err) { return endpoint_.open(err); }
    void close() { endpoint_.close(); }

    const Counters& counters() const { return counters_; }

    void wait(Poller& poller) override;

private:
    void serve();
    void handle(const uint8_t* msg, size_t len);
    void answer(const uint8_t* request, bool ok, const std::string& text);

    const CommandTable& table_;
    Endpoint endpoint_;
    std::vector<uint8_t> buf_;
    Counters counters_;
};

}  // namespace vorn::sim
