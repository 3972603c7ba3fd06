// Host edition of IFM's interface-index library.
#include "platform/ifindex.h"

#include <cinttypes>
#include <cstdio>
#include <new>
#include <set>
#include <vector>

#include "platform/codec.h"
#include "platform/limits.h"

namespace ifm = vorn::ifm;

struct IfmPhysLagIfList {
    std::set<uint32_t> members;
};

namespace {

using vorn::limits::kMaxLag;
using vorn::limits::kMaxPort;
using vorn::limits::kMaxSlot;
using vorn::limits::kMaxVlan;

bool isPortType(uint32_t type) {
    return type == ifm::kTypeManagement || type == ifm::kTypeGigabit ||
           type == ifm::kTypeTenGigabit;
}

// True when every field of the ifIndex lies in its documented range and the unused bits
// are zero; only such ifIndexes have a name.
bool isWellFormed(uint32_t ifIndex) {
    uint32_t type = ifIndex >> 24;
    if (isPortType(type)) {
        return ((ifIndex >> 16) & 0xFF) <= kMaxSlot && ((ifIndex >> 8) & 0xFF) <= kMaxPort &&
               (ifIndex & 0xFF) == 0;
    }
    uint32_t num = ifIndex & 0xFFFF;
    if ((ifIndex & 0x00FF0000) != 0) return false;
    if (type == ifm::kTypeLag) return num >= 1 && num <= kMaxLag;
    if (type == ifm::kTypeVlan) return num >= 1 && num <= kMaxVlan;
    return false;
}

bool isPhysOrLag(uint32_t ifIndex) {
    uint32_t type = ifIndex >> 24;
    bool typeOk =
        type == ifm::kTypeGigabit || type == ifm::kTypeTenGigabit || type == ifm::kTypeLag;
    return typeOk && isWellFormed(ifIndex);
}

struct NameForms {
    uint32_t type;
    const char* shortName;
    const char* longName;
};

constexpr NameForms kNames[] = {
    {ifm::kTypeManagement, "Ma", "ManagementEthernet"},
    {ifm::kTypeGigabit, "Gi", "GigabitEthernet"},
    {ifm::kTypeTenGigabit, "Te", "TenGigabitEthernet"},
    {ifm::kTypeLag, "Po", "Port-channel"},
    {ifm::kTypeVlan, "Vl", "Vlan"},
};

char* formatName(uint32_t ifIndex, char* out, size_t len, bool longForm) {
    if (out == nullptr || len == 0) return out;
    uint32_t type = ifIndex >> 24;
    const NameForms* forms = nullptr;
    for (const NameForms& n : kNames) {
        if (n.type == type) forms = &n;
    }
    if (forms == nullptr || !isWellFormed(ifIndex)) {
        std::snprintf(out, len, "Unknown(0x%08" PRIx32 ")", ifIndex);
        return out;
    }
    const char* prefix = longForm ? forms->longName : forms->shortName;
    if (isPortType(type)) {
        std::snprintf(out, len, "%s %" PRIu32 "/%" PRIu32, prefix, ifmIfIndexToSlotId(ifIndex),
                      ifmIfIndexToPortId(ifIndex));
    } else {
        std::snprintf(out, len, "%s %" PRIu32, prefix, ifmIfIndexToIfNum(ifIndex));
    }
    return out;
}

}  // namespace

uint32_t ifmIfIndexToIfType(uint32_t ifIndex) {
    return ifIndex >> 24;
}

uint32_t ifmIfIndexToSlotId(uint32_t ifIndex) {
    return (ifIndex >> 16) & 0xFF;
}

uint32_t ifmIfIndexToPortId(uint32_t ifIndex) {
    return (ifIndex >> 8) & 0xFF;
}

uint32_t ifmIfIndexToIfNum(uint32_t ifIndex) {
    uint32_t type = ifIndex >> 24;
    return (type == ifm::kTypeLag || type == ifm::kTypeVlan) ? (ifIndex & 0xFFFF) : 0;
}

int ifmIfIndexToPlFlag(uint32_t ifIndex) {
    uint32_t type = ifIndex >> 24;
    return (type == ifm::kTypeGigabit || type == ifm::kTypeTenGigabit) ? 1 : 0;
}

uint32_t ifmIfIndexToVlanId(uint32_t ifIndex) {
    return (ifIndex >> 24) == ifm::kTypeVlan ? (ifIndex & 0xFFFF) : 0;
}

// Fields are masked to their widths, not range-checked, so that a caller can build the
// out-of-range indexes a test needs; an unknown type gives 0.
uint32_t ifmCreateIfIndex(uint32_t type, uint32_t slot, uint32_t port, uint32_t id) {
    if (isPortType(type)) return (type << 24) | ((slot & 0xFF) << 16) | ((port & 0xFF) << 8);
    if (type == ifm::kTypeLag || type == ifm::kTypeVlan) return (type << 24) | (id & 0xFFFF);
    return 0;
}

char* ifmIfIndexToName(uint32_t ifIndex, char* out, size_t len) {
    return formatName(ifIndex, out, len, false);
}

char* ifmIfIndexToLName(uint32_t ifIndex, char* out, size_t len) {
    return formatName(ifIndex, out, len, true);
}

int ifmVlanIfListGetNextIfIndex(std::span<const uint8_t> list, uint32_t* cursor,
                                uint32_t* ifIndex) {
    if (cursor == nullptr || ifIndex == nullptr) return -1;
    vorn::be::Reader r(list);
    uint32_t count = r.u32(0);
    size_t off = 4 + size_t{*cursor} * 4;
    if (!r.ok() || *cursor >= count || !r.fits(off, 4)) return -1;
    *ifIndex = r.u32(off);
    ++*cursor;
    return 0;
}

IfmPhysLagIfList* ifmPhysLagIfListInit() {
    return new (std::nothrow) IfmPhysLagIfList();
}

void ifmPhysLagIfListFree(IfmPhysLagIfList* list) {
    delete list;
}

int ifmPhysLagIfListAddIfIndex(IfmPhysLagIfList* list, uint32_t ifIndex) {
    if (list == nullptr || !isPhysOrLag(ifIndex)) return -1;
    list->members.insert(ifIndex);
    return 0;
}

int ifmPhysLagIfListHasIfIndex(const IfmPhysLagIfList* list, uint32_t ifIndex) {
    return list != nullptr && list->members.count(ifIndex) != 0 ? 1 : 0;
}

int ifmPhysLagIfListCount(const IfmPhysLagIfList* list) {
    return list != nullptr ? static_cast<int>(list->members.size()) : 0;
}

uint32_t ifmPhysLagIfListGetNextIfIndex(const IfmPhysLagIfList* list, uint32_t prev) {
    if (list == nullptr) return 0;
    auto it = list->members.upper_bound(prev);
    return it != list->members.end() ? *it : 0;
}

int ifmCompressPhyLagIFList(const IfmPhysLagIfList* list, std::span<uint8_t> out) {
    if (list == nullptr || out.size() < ifm::kCompressedListLen ||
        list->members.size() > ifm::kCompressedListMax) {
        return -1;
    }
    vorn::be::Writer w(out.first(ifm::kCompressedListLen));
    w.zero(0, ifm::kCompressedListLen);
    w.u32(0, static_cast<uint32_t>(list->members.size()));
    size_t off = 4;
    for (uint32_t ifIndex : list->members) {
        w.u32(off, ifIndex);
        off += 4;
    }
    return w.ok() ? 0 : -1;
}

// Checks the whole input before adding anything, so a refused list leaves `list` as it was.
int ifmDeCompressPhyLagIFList(std::span<const uint8_t> in, IfmPhysLagIfList* list) {
    if (list == nullptr) return -1;
    vorn::be::Reader r(in);
    uint32_t count = r.u32(0);
    if (!r.ok() || count > ifm::kCompressedListMax || !r.fits(4, size_t{count} * 4)) return -1;
    std::vector<uint32_t> entries;
    entries.reserve(count);
    for (uint32_t i = 0; i < count; ++i) {
        uint32_t ifIndex = r.u32(4 + size_t{i} * 4);
        if (!isPhysOrLag(ifIndex)) return -1;
        entries.push_back(ifIndex);
    }
    list->members.insert(entries.begin(), entries.end());
    return 0;
}
