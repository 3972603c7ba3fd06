#include "sim/endpoint.h"

#include <cerrno>
#include <cstring>

#include "platform/ipc.h"

namespace vorn::sim {

bool Endpoint::open(std::string* err) {
    if (isOpen()) return true;
    QelKey key = qelIpcTmrOpen(service_, instance_);
    if (key < 0) {
        if (err != nullptr) {
            *err = "cannot open the queues of " + name() + " in " + host::options().rundir;
            *err += errno == EADDRINUSE ? ": another live process holds them"
                                        : std::string(": ") + std::strerror(errno);
        }
        return false;
    }
    key_ = key;
    return true;
}

void Endpoint::close() {
    if (!isOpen()) return;
    qelIpcClose(key_);
    key_ = -1;
}

int Endpoint::requestFd() const {
    return isOpen() ? Key_getReqQueue(key_) : -1;
}
int Endpoint::timerFd() const {
    return isOpen() ? Key_getTmrQueue(key_) : -1;
}

uint32_t Endpoint::requestQueueId() const {
    return qel_getQueueId(service_, instance_, ipc::kKindRequest);
}

std::string Endpoint::name() const {
    return std::to_string(service_) + "." + std::to_string(instance_);
}

int Endpoint::receiveFrom(int fd, std::vector<uint8_t>& buf) {
    if (fd < 0) return -1;
    if (buf.size() < ipc::kMaxMsgLen) buf.resize(ipc::kMaxMsgLen);
    return qelIpcRecv(fd, buf.data(), static_cast<int>(buf.size()), 0, 0, 0);
}

bool Endpoint::reply(uint8_t* msg, size_t len) const {
    int fd = requestFd();
    return fd >= 0 && qelIpcReply(fd, msg, static_cast<int>(len)) == 0;
}

bool Endpoint::send(uint8_t* msg, size_t len) const {
    int fd = requestFd();
    return fd >= 0 && qelIpcSend(fd, msg, static_cast<int>(len)) == 0;
}

void writeOrigin(be::Writer& w, uint32_t mtype, uint32_t len, int srcService, int srcInstance,
                 uint32_t targetQueueId) {
    uint32_t tmp = 0;
    int targetService = ipc::queueService(targetQueueId);
    int targetInstance = ipc::queueInstance(targetQueueId);
    w.u32(ipc::kOffMlen, len);
    w.u32(ipc::kOffMtype, mtype);
    w.u32(ipc::kOffW20, 0);
    w.u32(ipc::kOffSrcSlot, 0);
    w.u32(ipc::kOffSrcCard, qel_tmeGetPeerIpAddrByName(srcService, srcInstance, &tmp));
    w.u32(ipc::kOffSrcSvce, qel_getQueueId(srcService, srcInstance, ipc::kKindRequest));
    w.u32(ipc::kOffDstSlot, 0);
    w.u32(ipc::kOffDstCard, qel_tmeGetPeerIpAddrByName(targetService, targetInstance, &tmp));
    w.u32(ipc::kOffDstSvce, targetQueueId);
}

MsgHeader readHeader(const uint8_t* msg, size_t len) {
    be::Reader rd(msg, len);
    return MsgHeader{rd.u32(ipc::kOffMlen), rd.u32(ipc::kOffMtype), rd.u32(ipc::kOffSrcSvce)};
}

}  // namespace vorn::sim
