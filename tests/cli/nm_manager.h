// A stand-in for the manager's side of the configuration requests: the endpoint 226.0,
// served on a thread of its own, which keeps every MT_NM request it receives and answers it
// in place with the status a test chooses (or not at all).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"

namespace vorn::test {

class NmManager {
public:
    using Request = std::vector<uint8_t>;
    // The status to answer a request with; a negative one leaves the request unanswered.
    using Answer = std::function<int64_t(const Request&)>;

    explicit NmManager(Answer answer = [](const Request&) { return 0; })
        : answer_(std::move(answer)), key_(qelIpcTmrOpen(ipc::kSvcManager, 0)) {
        thread_ = std::thread([this] { serve(); });
    }
    ~NmManager() {
        stop_ = true;
        thread_.join();
        qelIpcClose(key_);
    }
    NmManager(const NmManager&) = delete;
    NmManager& operator=(const NmManager&) = delete;

    bool ok() const { return key_ >= 0; }
    std::vector<Request> requests() const {
        std::lock_guard<std::mutex> lock(mu_);
        return requests_;
    }

private:
    void serve() {
        std::vector<uint8_t> buf(ipc::kMaxMsgLen);
        while (!stop_) {
            int n =
                qelIpcRecvWait(Key_getReqQueue(key_), buf.data(), static_cast<int>(buf.size()), 10);
            if (n <= 0) continue;
            Request req(buf.begin(), buf.begin() + n);
            if (be::Reader(req.data(), req.size()).u32(ipc::kOffMtype) != 6001) continue;
            {
                std::lock_guard<std::mutex> lock(mu_);
                requests_.push_back(req);
            }
            int64_t status = answer_(req);
            if (status < 0) continue;
            be::Writer w(req.data(), req.size());
            w.u32(64, static_cast<uint32_t>(status));
            w.u16(84, static_cast<uint16_t>(status));
            qelIpcReply(Key_getReqQueue(key_), req.data(), static_cast<int>(req.size()));
        }
    }

    Answer answer_;
    QelKey key_;
    std::atomic<bool> stop_{false};
    mutable std::mutex mu_;
    std::vector<Request> requests_;
    std::thread thread_;
};

}  // namespace vorn::test
