#include "sim/control.h"

#include "sim/log.h"
#include "wire/simctl.h"

namespace vorn::sim {
namespace {
constexpr int kBatch = 8;
}  // namespace

ControlServer::ControlServer(const CommandTable& table)
    : table_(table), endpoint_(simctl::kService, simctl::kInstance), buf_(ipc::kMaxMsgLen) {}

void ControlServer::wait(Poller& poller) {
    poller.onReadable(endpoint_.requestFd(), [this] { serve(); });
}

void ControlServer::serve() {
    for (int i = 0; i < kBatch; ++i) {
        int n = endpoint_.receive(buf_);
        if (n < 0) return;
        handle(buf_.data(), static_cast<size_t>(n));
    }
}

void ControlServer::handle(const uint8_t* msg, size_t len) {
    MsgHeader h = readHeader(msg, len);
    std::string from = queueName(h.srcQueue);
    if (h.mtype != simctl::kMtRequest) {
        ++counters_.unexpected;
        say("control: message type %u from %s: not a control request, dropped", h.mtype,
            from.c_str());
        return;
    }
    std::string command, why;
    if (!simctl::decodeRequest(msg, len, &command, &why)) {
        ++counters_.malformed;
        say("control: bad request from %s: %s", from.c_str(), why.c_str());
        answer(msg, false, why);
        return;
    }
    // The answer is built before anything else is read into the receive buffer; the
    // request's header stays where it is until then.
    CommandResult r = table_.run(command);
    ++counters_.commands;
    if (!r.ok) ++counters_.refused;
    say("control: '%s' from %s: %s", command.c_str(), from.c_str(), r.ok ? "done" : "refused");
    answer(msg, r.ok, r.text);
}

void ControlServer::answer(const uint8_t* request, bool ok, const std::string& text) {
    uint32_t status = ok ? simctl::kStatusOk : simctl::kStatusRefused;
    for (std::vector<uint8_t>& part : simctl::encodeAnswer(request, status, text)) {
        if (!endpoint_.reply(part.data(), part.size())) {
            say("control: the answer could not be sent (the client is gone?)");
            return;
        }
    }
}

}  // namespace vorn::sim
