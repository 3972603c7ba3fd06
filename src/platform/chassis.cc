// Host edition of the chassis and redundancy queries, answered from the host options.
#include "platform/chassis.h"

#include "platform/codec.h"
#include "platform/ipc.h"
#include "platform/number.h"

namespace {

// Chassis information block: 0 u32 bitmap of the slots with a card present (bit s = 1 << s),
// 4 u32 number of slots; the rest is zero.
constexpr size_t kOffCards = 0;
constexpr size_t kOffSlots = 4;
constexpr uint32_t kSlotMask = (1u << vorn::chassis::kSlots) - 1;

}  // namespace

bool vorn::chassis::parseCardList(std::string_view text, uint32_t* mask, std::string* err) {
    if (text.empty()) {
        *err = "no slot given (e.g. 0,1)";
        return false;
    }
    uint32_t m = 0;
    for (;;) {
        size_t comma = text.find(',');
        uint32_t slot = 0;
        if (!number::parse(text.substr(0, comma), 0, kSlots - 1, "slot", &slot, err)) return false;
        m |= 1u << slot;
        if (comma == std::string_view::npos) break;
        text.remove_prefix(comma + 1);
    }
    *mask = m;
    return true;
}

uint32_t qelGetChasInfo(int service, int instance, std::span<uint8_t> info) {
    if (info.size() < vorn::chassis::kInfoLen) return 0xFFFFFFFF;
    vorn::be::Writer w(info.first(vorn::chassis::kInfoLen));
    w.zero(0, vorn::chassis::kInfoLen);
    w.u32(kOffCards, vorn::host::options().cards & kSlotMask);
    w.u32(kOffSlots, static_cast<uint32_t>(vorn::chassis::kSlots));
    return 0;
}

int qelGetMaxActivePortPipe() {
    return vorn::chassis::kMaxActivePortPipe;
}

int qelGetFirstValidPortPipe() {
    return vorn::chassis::kFirstValidPortPipe;
}

int qelHaIsPrimaryRpm() {
    return vorn::host::options().standby ? 0 : 1;
}

int qelIsZilEnabled() {
    return vorn::host::options().peerPair ? 1 : 0;
}
