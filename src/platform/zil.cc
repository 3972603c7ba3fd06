// The peer-pair library's host edition. One registration per process; the handle is a
// number that changes with every registration, so a handle kept past its de-registration
// is refused like handle 0.

#include "platform/zil.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/ipc_internal.h"

namespace vorn::host {
namespace {

struct ControlBlock {
    uint32_t handle = 0;
    zil::RegBlock reg{};
    int sock = -1;
    std::string sockPath;
    std::string txPath;
    uint32_t iclIfIndex = 0;
    bool peerUp = false;
    uint32_t peerRole = 0;
    uint32_t dbgBits = 0;
    std::map<uint32_t, std::pair<uint32_t, uint32_t>> lagMap;  // LAG -> (zilId, down)
    std::map<uint8_t, uint32_t> pduCounts;                     // by the PDU's first byte
    uint32_t chkRegTimeOutCalls = 0;
    uint32_t swpErrors = 0;
    std::vector<uint8_t> tx;  // sub-TLVs waiting for the next send
};

struct Library {
    std::mutex mu;
    std::unique_ptr<ControlBlock> cb;
    uint32_t lastHandle = 0;
    // The link socket's path, readable by the clean stop without taking the lock.
    char sockPath[sizeof(sockaddr_un::sun_path)] = {};
};

Library& lib() {
    static Library l;
    return l;
}

// The control block of a registered handle, or null (the caller holds the lock).
ControlBlock* find(uint32_t handle) {
    ControlBlock* cb = lib().cb.get();
    return handle != 0 && cb != nullptr && cb->handle == handle ? cb : nullptr;
}

// Runs fn on the handle's control block under the lock; -1 when the handle is not registered.
template <typename F>
int withBlock(uint32_t handle, F fn) {
    std::lock_guard<std::mutex> lock(lib().mu);
    ControlBlock* cb = find(handle);
    return cb == nullptr ? -1 : fn(*cb);
}

bool isCallbackWord(size_t word) {
    return std::find(zil::kCallbackWords.begin(), zil::kCallbackWords.end(), word) !=
           zil::kCallbackWords.end();
}

// Sends one PDU to DIR/peer.tx, behind the ICL's ifIndex. Dropped when nobody is bound there.
void sendPdu(const ControlBlock& cb, const std::vector<uint8_t>& pdu) {
    sockaddr_un addr;
    socklen_t alen;
    if (!makeAddr(cb.txPath, &addr, &alen)) return;
    std::vector<uint8_t> dgram(4 + pdu.size());
    be::Writer(dgram.data(), dgram.size()).u32(0, cb.iclIfIndex);
    std::copy(pdu.begin(), pdu.end(), dgram.begin() + 4);
    sendto(cb.sock, dgram.data(), dgram.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&addr),
           alen);
}

}  // namespace

void unlinkPeerLinkSocket() {
    // No lock: the clean stop must not wait on a thread that holds it.
    if (lib().sockPath[0] != '\0') unlink(lib().sockPath);
}

}  // namespace vorn::host

using vorn::host::ControlBlock;
using vorn::host::withBlock;

int qelZilRegister(const vorn::zil::RegBlock* block, int, uint32_t* handle, int) {
    using namespace vorn::host;
    if (block == nullptr || handle == nullptr) return -1;
    Library& l = lib();
    std::lock_guard<std::mutex> lock(l.mu);
    if (l.cb != nullptr) return -1;
    auto cb = std::make_unique<ControlBlock>();
    cb->sockPath = options().rundir + "/" + vorn::zil::kIclSocket;
    cb->txPath = options().rundir + "/" + vorn::zil::kTxSocket;
    cb->sock = bindSocket(cb->sockPath);
    if (cb->sock < 0) {
        std::fprintf(stderr, "peer pair: cannot bind %s: %s\n", cb->sockPath.c_str(),
                     std::strerror(errno));
        return -1;
    }
    cb->reg = *block;
    cb->handle = ++l.lastHandle == 0 ? ++l.lastHandle : l.lastHandle;
    std::snprintf(l.sockPath, sizeof(l.sockPath), "%s", cb->sockPath.c_str());
    *handle = cb->handle;
    l.cb = std::move(cb);
    return 0;
}

int qelZilDeReg(uint32_t handle) {
    using namespace vorn::host;
    Library& l = lib();
    std::lock_guard<std::mutex> lock(l.mu);
    ControlBlock* cb = find(handle);
    if (cb == nullptr) return -1;
    close(cb->sock);
    unlink(cb->sockPath.c_str());
    l.sockPath[0] = '\0';
    l.cb.reset();
    return 0;
}

int qelZilGetIclSockFd(uint32_t handle) {
    return withBlock(handle, [](ControlBlock& cb) { return cb.sock; });
}

int qelZilIclSockOpen(uint32_t handle) {
    int open = withBlock(handle, [](ControlBlock& cb) { return cb.sock >= 0 ? 1 : 0; });
    return open == 1 ? 1 : 0;
}

uint32_t qelZilGetIclIfIndex(uint32_t handle) {
    uint32_t ifIndex = 0;
    withBlock(handle, [&ifIndex](ControlBlock& cb) {
        ifIndex = cb.iclIfIndex;
        return 0;
    });
    return ifIndex;
}

int qelZilSetIclIfIndex(uint32_t handle, int action, uint32_t ifIndex) {
    if (action != vorn::zil::kActionSet && action != vorn::zil::kActionClear) return -1;
    return withBlock(handle, [&](ControlBlock& cb) {
        cb.iclIfIndex = action == vorn::zil::kActionSet ? ifIndex : 0;
        return 0;
    });
}

int qelZilProcCtrlPdu(uint32_t handle, uint8_t* pdu) {
    if (pdu == nullptr) return -1;
    vorn::zil::InfoPduFn fn = nullptr;
    int rc = withBlock(handle, [&](ControlBlock& cb) {
        cb.pduCounts[pdu[0]]++;
        fn = reinterpret_cast<vorn::zil::InfoPduFn>(cb.reg[vorn::zil::kWordInfoPdu]);
        return 0;
    });
    if (rc != 0) return -1;
    // The callback runs without the library's lock: it may call the library.
    return fn != nullptr ? fn(pdu) : 0;
}

int qelZilProcPeerUp(uint32_t handle, const uint8_t* event) {
    if (event == nullptr) return -1;
    return withBlock(handle, [event](ControlBlock& cb) {
        cb.peerUp = true;
        cb.peerRole =
            vorn::be::Reader(event, vorn::zil::kOffPeerRole + 4).u32(vorn::zil::kOffPeerRole);
        return 0;
    });
}

int qelZilProcPeerDown(uint32_t handle) {
    return withBlock(handle, [](ControlBlock& cb) {
        cb.peerUp = false;
        return 0;
    });
}

int qelZilProcZilLagMap(uint32_t handle, int action, uint32_t lag, uint32_t zilId, uint32_t down) {
    if (action != vorn::zil::kActionSet && action != vorn::zil::kActionClear) return -1;
    return withBlock(handle, [&](ControlBlock& cb) {
        if (action == vorn::zil::kActionSet)
            cb.lagMap[lag] = {zilId, down};
        else
            cb.lagMap.erase(lag);
        return 0;
    });
}

int qelZilSetDbgBits(uint32_t handle, uint32_t bits, int) {
    return withBlock(handle, [bits](ControlBlock& cb) {
        cb.dbgBits = bits;
        return 0;
    });
}

int qelZilTxAppBufAddSubTlv(uint32_t handle, uint16_t type, uint16_t len, const uint8_t* data,
                            int) {
    if (data == nullptr && len != 0) return -1;
    return withBlock(handle, [&](ControlBlock& cb) {
        if (!cb.peerUp) return -1;
        if (cb.tx.size() + vorn::zil::kSubTlvHdrLen + len > vorn::zil::kMaxTxBytes) return -1;
        size_t at = cb.tx.size();
        cb.tx.resize(at + vorn::zil::kSubTlvHdrLen + len);
        vorn::be::Writer w(cb.tx.data(), cb.tx.size());
        w.u16(at, type);
        w.u16(at + 2, len);
        if (len != 0) std::copy(data, data + len, cb.tx.begin() + static_cast<long>(at + 4));
        return 0;
    });
}

int qelZilChkRegTimeOut(uint32_t handle, uint32_t) {
    return withBlock(handle, [](ControlBlock& cb) {
        cb.chkRegTimeOutCalls++;
        if (cb.tx.empty()) return 0;
        std::vector<uint8_t> pdu(vorn::zil::kPduHdrLen + cb.tx.size());
        vorn::be::Writer w(pdu.data(), pdu.size());
        w.u8(0, vorn::zil::kAppPduType);
        w.u16(2, static_cast<uint16_t>(cb.tx.size()));
        std::copy(cb.tx.begin(), cb.tx.end(), pdu.begin() + vorn::zil::kPduHdrLen);
        cb.tx.clear();
        vorn::host::sendPdu(cb, pdu);
        return 0;
    });
}

int qelZilIclSwpErrCB(uint32_t handle, uint32_t, uint32_t, uint32_t) {
    return withBlock(handle, [](ControlBlock& cb) {
        cb.swpErrors++;
        return 0;
    });
}

int qelZilDumpCb(uint32_t handle) {
    std::lock_guard<std::mutex> lock(vorn::host::lib().mu);
    const ControlBlock* cb = vorn::host::find(handle);
    if (cb == nullptr) {
        std::printf("ZIL registered: 0\r\n");
        return -1;
    }
    std::printf("ZIL registered: 1\r\n");
    for (size_t i = 0; i < vorn::zil::kRegWords; ++i) {
        if (vorn::host::isCallbackWord(i) && cb->reg[i] != 0)
            std::printf("ZIL reg word %zu: callback\r\n", i);
        else
            std::printf("ZIL reg word %zu: 0x%08x\r\n", i, static_cast<uint32_t>(cb->reg[i]));
    }
    std::printf("ZIL debug bits: 0x%08x\r\n", cb->dbgBits);
    std::printf("ZIL ICL ifIndex: 0x%08x\r\n", cb->iclIfIndex);
    if (cb->peerUp)
        std::printf("ZIL peer: UP role %u\r\n", cb->peerRole);
    else
        std::printf("ZIL peer: DOWN\r\n");
    for (const auto& [lag, entry] : cb->lagMap)
        std::printf("ZIL LAG %u: zilId %u down %u\r\n", lag, entry.first, entry.second);
    for (const auto& [type, count] : cb->pduCounts)
        std::printf("ZIL PDU type %u: %u\r\n", static_cast<unsigned>(type), count);
    std::printf("ZIL ChkRegTimeOut calls: %u\r\n", cb->chkRegTimeOutCalls);
    return 0;
}

int qelRecvfrom(int fd, void* buf, int len, int flags, uint32_t* ifIndex) {
    if (buf == nullptr || len < 0 || ifIndex == nullptr) return -1;
    std::vector<uint8_t> dgram(static_cast<size_t>(len) + 4);
    int osFlags = (flags & vorn::zil::kRecvDontWait) != 0 ? MSG_DONTWAIT : 0;
    ssize_t n = recv(fd, dgram.data(), dgram.size(), osFlags);
    if (n < 4) return -1;
    *ifIndex = vorn::be::Reader(dgram.data(), 4).u32(0);
    std::copy(dgram.begin() + 4, dgram.begin() + n, static_cast<uint8_t*>(buf));
    return static_cast<int>(n - 4);
}
