#include "sim/chassis_model.h"

#include <algorithm>

#include "cli/syntax.h"
#include "platform/ifindex.h"

namespace vorn::sim {
namespace {

uint32_t vlanIf(uint16_t vlan) {
    return ifmCreateIfIndex(ifm::kTypeVlan, 0, 0, vlan);
}

bool isPhysical(uint32_t ifIndex) {
    return ifmIfIndexToPlFlag(ifIndex) != 0;
}

std::string name(uint32_t ifIndex) {
    return cli::shortIfName(ifIndex);
}

std::string vlanWord(const VlanSet& vlans) {
    return (vlanCount(vlans) == 1 ? "VLAN " : "VLANs ") + vlanSetText(vlans);
}

ChassisModel::Change refuse(std::string why) {
    return {false, std::move(why), {}};
}

VlanSet intersect(const VlanSet& a, const VlanSet& b) {
    VlanSet out{};
    BITMAP_AND_BITMAPS(out, a, b);
    return out;
}

VlanSet minus(const VlanSet& a, const VlanSet& b) {
    VlanSet out{};
    BITMAP_DIFF_BITMAPS(out, a, b);
    return out;
}

VlanSet unite(const VlanSet& a, const VlanSet& b) {
    VlanSet out{};
    for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<uint8_t>(a[i] | b[i]);
    return out;
}

}  // namespace

ChassisModel::ChassisModel(uint32_t cardMask, uint32_t tenGigMask, uint32_t portsPerCard)
    : cardMask_(cardMask & ((1u << kSlots) - 1)),
      tenGigMask_(tenGigMask),
      portsPerCard_(std::clamp<uint32_t>(portsPerCard, 1, kMaxPortsPerCard)) {
    std::vector<IfmRecord> ignored;
    for (uint32_t slot = 0; slot < kSlots; ++slot)
        if (cardPresent(slot)) addPorts(slot, &ignored);
}

std::string ChassisModel::describePortRange() const {
    std::string s;
    for (uint32_t slot = 0; slot < kSlots; ++slot) {
        if ((cardsSeen_ >> slot & 1) == 0) continue;
        std::string first = name(ifmCreateIfIndex(cardPortType(slot), slot, 0, 0));
        s += (s.empty() ? "" : ", ") + first +
             (portsPerCard_ > 1 ? "-" + std::to_string(portsPerCard_ - 1) : "");
    }
    return s.empty() ? "the chassis has no ports" : "the chassis has " + s;
}

uint32_t ChassisModel::cardPortType(uint32_t slot) const {
    return (tenGigMask_ >> slot & 1) != 0 ? ifm::kTypeTenGigabit : ifm::kTypeGigabit;
}

Mac ChassisModel::macOf(uint32_t ifIndex) {
    uint32_t type = ifIndex >> 24;
    uint32_t hi = isPhysical(ifIndex) ? (ifIndex >> 16) & 0xFF : (ifIndex >> 8) & 0xFF;
    uint32_t lo = isPhysical(ifIndex) ? (ifIndex >> 8) & 0xFF : ifIndex & 0xFF;
    return {0x02,
            0x56,
            0x4f,
            static_cast<uint8_t>(type),
            static_cast<uint8_t>(hi),
            static_cast<uint8_t>(lo)};
}

IfmRecord ChassisModel::ifRecord(uint16_t type, uint32_t ifIndex) {
    IfmRecord r;
    r.type = type;
    r.ifIndex = ifIndex;
    if (type == IFM_TYP_ADD_IF || type == IFM_TYP_DEL_IF) r.mac = macOf(ifIndex);
    return r;
}

const ChassisModel::Interface* ChassisModel::find(uint32_t ifIndex) const {
    auto it = ifs_.find(ifIndex);
    return it == ifs_.end() ? nullptr : &it->second;
}

ChassisModel::Interface* ChassisModel::lagOf(uint32_t lag) {
    auto it = ifs_.find(ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag));
    return it == ifs_.end() ? nullptr : &it->second;
}

bool ChassisModel::operUp(uint32_t ifIndex) const {
    const Interface* i = find(ifIndex);
    if (i == nullptr) return false;
    if (isPhysical(ifIndex)) return i->linkUp && cardPresent(ifmIfIndexToSlotId(ifIndex));
    return std::any_of(i->members.begin(), i->members.end(),
                       [this](uint32_t m) { return operUp(m); });
}

ChassisModel::OperSnapshot ChassisModel::operSnapshot() const {
    OperSnapshot s;
    for (const auto& [ifIndex, i] : ifs_) s[ifIndex] = operUp(ifIndex);
    return s;
}

void ChassisModel::appendOperChanges(const OperSnapshot& before,
                                     std::vector<IfmRecord>* out) const {
    // The map is ordered by ifIndex: physical ports (types 10, 11) before LAGs (22), so a
    // member's change is told before the change it makes to its LAG.
    for (const auto& [ifIndex, i] : ifs_) {
        auto was = before.find(ifIndex);
        bool wasUp = was != before.end() && was->second;
        bool up = operUp(ifIndex);
        if (up != wasUp)
            out->push_back(ifRecord(up ? IFM_TYP_OSTATE_UP : IFM_TYP_OSTATE_DN, ifIndex));
    }
}

void ChassisModel::addPorts(uint32_t slot, std::vector<IfmRecord>* out) {
    if ((cardsSeen_ >> slot & 1) != 0) return;
    cardsSeen_ |= 1u << slot;
    for (uint32_t p = 0; p < portsPerCard_; ++p) {
        uint32_t ifIndex = ifmCreateIfIndex(cardPortType(slot), slot, p, 0);
        ifs_[ifIndex].ifIndex = ifIndex;
        out->push_back(ifRecord(IFM_TYP_ADD_IF, ifIndex));
    }
}

ChassisModel::Change ChassisModel::cardUp(uint32_t slot) {
    if (slot >= kSlots) return refuse("slot " + std::to_string(slot) + " is out of range 0..11");
    if (cardPresent(slot))
        return {true, "the card in slot " + std::to_string(slot) + " is already up", {}};
    OperSnapshot before = operSnapshot();
    Change c{true, "", {}};
    bool fresh = (cardsSeen_ >> slot & 1) == 0;
    cardMask_ |= 1u << slot;
    addPorts(slot, &c.records);
    appendOperChanges(before, &c.records);
    c.text = "the card in slot " + std::to_string(slot) + " is up" +
             (fresh ? " with " + std::to_string(portsPerCard_) + " new ports" : "");
    return c;
}

ChassisModel::Change ChassisModel::cardDown(uint32_t slot) {
    if (slot >= kSlots) return refuse("slot " + std::to_string(slot) + " is out of range 0..11");
    if (!cardPresent(slot))
        return {true, "the card in slot " + std::to_string(slot) + " is already down", {}};
    OperSnapshot before = operSnapshot();
    Change c{true, "the card in slot " + std::to_string(slot) + " is down; its ports are kept", {}};
    cardMask_ &= ~(1u << slot);
    appendOperChanges(before, &c.records);
    return c;
}

ChassisModel::Change ChassisModel::setLink(uint32_t ifIndex, bool up) {
    if (!isPhysical(ifIndex))
        return refuse(name(ifIndex) + " is not a physical port" +
                      (ifmIfIndexToIfType(ifIndex) == ifm::kTypeLag
                           ? ": a port-channel is up while one of its members is"
                           : ""));
    auto it = ifs_.find(ifIndex);
    if (it == ifs_.end())
        return refuse("there is no port " + name(ifIndex) + " (" + describePortRange() + ")");
    if (it->second.linkUp == up)
        return {true, name(ifIndex) + " is already " + (up ? "up" : "down"), {}};
    OperSnapshot before = operSnapshot();
    it->second.linkUp = up;
    Change c{true, name(ifIndex) + " is " + (up ? "up" : "down"), {}};
    uint32_t slot = ifmIfIndexToSlotId(ifIndex);
    if (!cardPresent(slot))
        c.text += " (its card in slot " + std::to_string(slot) + " is down: oper down)";
    appendOperChanges(before, &c.records);
    return c;
}

ChassisModel::Change ChassisModel::createVlans(const VlanSet& vlans) {
    VlanSet fresh = minus(vlans, vlans_);
    if (vlanCount(fresh) == 0)
        return {true,
                vlanWord(vlans) + (vlanCount(vlans) == 1 ? " exists" : " exist") + " already",
                {}};
    Change c{true, vlanWord(fresh) + " created", {}};
    forEachVlan(fresh, [&](uint16_t v) {
        bmp::set(vlans_, v);
        c.records.push_back(ifRecord(IFM_TYP_ADD_IF, vlanIf(v)));
    });
    return c;
}

ChassisModel::Change ChassisModel::deleteVlans(const VlanSet& vlans) {
    VlanSet gone = intersect(vlans, vlans_);
    if (vlanCount(gone) == 0)
        return refuse(vlanWord(vlans) + (vlanCount(vlans) == 1 ? " does" : " do") + " not exist");
    Change c{true, vlanWord(gone) + " deleted", {}};
    // Each VLAN loses its members first, then goes.
    forEachVlan(gone, [&](uint16_t v) {
        for (auto& [ifIndex, i] : ifs_) {
            for (bool tagged : {true, false}) {
                VlanSet& set = tagged ? i.tagged : i.untagged;
                if (!bmp::test(set, v)) continue;
                bmp::clear(set, v);
                IfmRecord r = ifRecord(IFM_TYP_DEL_VLAN_PORT, vlanIf(v));
                r.other = ifIndex;
                r.tagged = tagged;
                c.records.push_back(r);
            }
        }
        bmp::clear(vlans_, v);
        c.records.push_back(ifRecord(IFM_TYP_DEL_IF, vlanIf(v)));
    });
    return c;
}

ChassisModel::Interface* ChassisModel::vlanCarrier(uint32_t ifIndex, std::string* err) {
    auto it = ifs_.find(ifIndex);
    if (it == ifs_.end()) {
        *err = ifmIfIndexToIfType(ifIndex) == ifm::kTypeLag
                   ? "there is no " + name(ifIndex) + " ('lag " +
                         std::to_string(ifmIfIndexToIfNum(ifIndex)) + "' creates it)"
                   : "there is no port " + name(ifIndex) + " (" + describePortRange() + ")";
        return nullptr;
    }
    if (it->second.lag != 0) {
        *err = name(ifIndex) + " is a member of " + name(it->second.lag) +
               ": its VLANs are those of the port-channel";
        return nullptr;
    }
    return &it->second;
}

ChassisModel::Change ChassisModel::addToVlans(const VlanSet& vlans, uint32_t ifIndex, bool tagged) {
    std::string err;
    Interface* i = vlanCarrier(ifIndex, &err);
    if (i == nullptr) return refuse(err);
    if (!tagged) {
        if (vlanCount(vlans) != 1)
            return refuse(name(ifIndex) + " can be an untagged member of one VLAN only, not of " +
                          vlanWord(vlans));
        VlanSet other = minus(i->untagged, vlans);
        if (vlanCount(other) != 0)
            return refuse(name(ifIndex) + " is already an untagged member of " + vlanWord(other) +
                          "; remove it from there first");
    }
    VlanSet& want = tagged ? i->tagged : i->untagged;
    VlanSet& other = tagged ? i->untagged : i->tagged;
    VlanSet joining = minus(vlans, want);
    if (vlanCount(joining) == 0)
        return {true,
                name(ifIndex) + " is already a" + (tagged ? " tagged" : "n untagged") +
                    " member of " + vlanWord(vlans),
                {}};
    Change c;
    VlanSet fresh = minus(joining, vlans_);
    forEachVlan(fresh, [&](uint16_t v) {
        bmp::set(vlans_, v);
        c.records.push_back(ifRecord(IFM_TYP_ADD_IF, vlanIf(v)));
    });
    // A change of tagging leaves the VLAN and joins it again.
    VlanSet retagged = intersect(joining, other);
    forEachVlan(retagged, [&](uint16_t v) {
        bmp::clear(other, v);
        IfmRecord r = ifRecord(IFM_TYP_DEL_VLAN_PORT, vlanIf(v));
        r.other = ifIndex;
        r.tagged = !tagged;
        c.records.push_back(r);
    });
    if (vlanCount(joining) == 1) {
        forEachVlan(joining, [&](uint16_t v) {
            IfmRecord r = ifRecord(IFM_TYP_ADD_VLAN_PORT, vlanIf(v));
            r.other = ifIndex;
            r.tagged = tagged;
            c.records.push_back(r);
        });
    } else {
        forEachVlan(joining, [&](uint16_t v) {
            if (c.records.empty() || c.records.back().type != IFM_TYP_ADD_VLANBMP_PORT ||
                c.records.back().vlans.size() == ifmrec::kMaxListVlans) {
                IfmRecord r = ifRecord(IFM_TYP_ADD_VLANBMP_PORT, ifIndex);
                r.tagged = tagged;
                c.records.push_back(r);
            }
            c.records.back().vlans.push_back(v);
        });
    }
    forEachVlan(joining, [&](uint16_t v) { bmp::set(want, v); });
    c.text = name(ifIndex) + " is now a" + (tagged ? " tagged" : "n untagged") + " member of " +
             vlanWord(joining);
    if (vlanCount(fresh) != 0) c.text += " (" + vlanWord(fresh) + " created)";
    return c;
}

ChassisModel::Change ChassisModel::removeFromVlans(const VlanSet& vlans, uint32_t ifIndex) {
    std::string err;
    Interface* i = vlanCarrier(ifIndex, &err);
    if (i == nullptr) return refuse(err);
    VlanSet leaving = intersect(vlans, unite(i->tagged, i->untagged));
    if (vlanCount(leaving) == 0)
        return refuse(name(ifIndex) + " is not a member of " + vlanWord(vlans));
    Change c{true, name(ifIndex) + " removed from " + vlanWord(leaving), {}};
    forEachVlan(leaving, [&](uint16_t v) {
        IfmRecord r = ifRecord(IFM_TYP_DEL_VLAN_PORT, vlanIf(v));
        r.other = ifIndex;
        r.tagged = bmp::test(i->tagged, v);
        bmp::clear(i->tagged, v);
        bmp::clear(i->untagged, v);
        c.records.push_back(r);
    });
    return c;
}

ChassisModel::Change ChassisModel::createLag(uint32_t lag) {
    if (lag < 1 || lag > kMaxLag)
        return refuse("port-channel number " + std::to_string(lag) + " is out of range 1..128");
    uint32_t ifIndex = ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag);
    if (ifs_.count(ifIndex) != 0) return {true, name(ifIndex) + " exists already", {}};
    ifs_[ifIndex].ifIndex = ifIndex;
    return {true,
            name(ifIndex) + " created, without members (oper down)",
            {ifRecord(IFM_TYP_ADD_IF, ifIndex)}};
}

ChassisModel::Change ChassisModel::deleteLag(uint32_t lag) {
    Interface* l = lagOf(lag);
    if (l == nullptr) return refuse("there is no port-channel " + std::to_string(lag));
    uint32_t ifIndex = l->ifIndex;
    OperSnapshot before = operSnapshot();
    Change c{true, name(ifIndex) + " deleted", {}};
    // Members leave, the LAG goes down, leaves its VLANs, and goes.
    for (uint32_t m : l->members) {
        ifs_[m].lag = 0;
        IfmRecord r = ifRecord(IFM_TYP_DEL_LAG_PORT, ifIndex);
        r.other = m;
        c.records.push_back(r);
    }
    l->members.clear();
    appendOperChanges(before, &c.records);
    for (bool tagged : {true, false}) {
        forEachVlan(tagged ? l->tagged : l->untagged, [&](uint16_t v) {
            IfmRecord r = ifRecord(IFM_TYP_DEL_VLAN_PORT, vlanIf(v));
            r.other = ifIndex;
            r.tagged = tagged;
            c.records.push_back(r);
        });
    }
    c.records.push_back(ifRecord(IFM_TYP_DEL_IF, ifIndex));
    ifs_.erase(ifIndex);
    return c;
}

ChassisModel::Change ChassisModel::addLagMember(uint32_t lag, uint32_t port) {
    if (lag < 1 || lag > kMaxLag)
        return refuse("port-channel number " + std::to_string(lag) + " is out of range 1..128");
    uint32_t lagIf = ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag);
    if (!isPhysical(port))
        return refuse(name(port) + " is not a physical port: only those join a port-channel");
    auto p = ifs_.find(port);
    if (p == ifs_.end())
        return refuse("there is no port " + name(port) + " (" + describePortRange() + ")");
    if (p->second.lag == lagIf)
        return {true, name(port) + " is already a member of " + name(lagIf), {}};
    if (p->second.lag != 0)
        return refuse(name(port) + " is a member of " + name(p->second.lag) +
                      "; remove it from there first");
    VlanSet all = unite(p->second.tagged, p->second.untagged);
    if (vlanCount(all) != 0)
        return refuse(name(port) + " is a member of " + vlanWord(all) +
                      "; a port-channel member carries no VLANs of its own");
    Interface* l = lagOf(lag);
    if (l != nullptr && l->members.size() >= kMaxLagMembers)
        return refuse(name(lagIf) + " has " + std::to_string(kMaxLagMembers) +
                      " members already, the most a port-channel takes");
    OperSnapshot before = operSnapshot();
    Change c;
    if (l == nullptr) {
        c.records.push_back(ifRecord(IFM_TYP_ADD_IF, lagIf));
        l = &ifs_[lagIf];
        l->ifIndex = lagIf;
    }
    l->members.insert(port);
    p->second.lag = lagIf;
    IfmRecord r = ifRecord(IFM_TYP_ADD_LAG_PORT, lagIf);
    r.other = port;
    c.records.push_back(r);
    appendOperChanges(before, &c.records);
    c.text = name(port) + " joined " + name(lagIf) +
             (c.records.front().type == IFM_TYP_ADD_IF ? " (created)" : "") + "; " + name(lagIf) +
             " is " + (operUp(lagIf) ? "up" : "down");
    return c;
}

ChassisModel::Change ChassisModel::removeLagMember(uint32_t lag, uint32_t port) {
    Interface* l = lagOf(lag);
    if (l == nullptr) return refuse("there is no port-channel " + std::to_string(lag));
    if (l->members.count(port) == 0)
        return refuse(name(port) + " is not a member of " + name(l->ifIndex));
    OperSnapshot before = operSnapshot();
    l->members.erase(port);
    ifs_[port].lag = 0;
    IfmRecord r = ifRecord(IFM_TYP_DEL_LAG_PORT, l->ifIndex);
    r.other = port;
    Change c{true,
             name(port) + " left " + name(l->ifIndex) + "; " + name(l->ifIndex) + " is " +
                 (operUp(l->ifIndex) ? "up" : "down"),
             {r}};
    appendOperChanges(before, &c.records);
    return c;
}

namespace {

IfmRecord modeRecord(uint32_t ifIndex, uint32_t modeType, uint32_t value) {
    IfmRecord r;
    r.type = IFM_TYP_IF_MODE_CHG;
    r.ifIndex = ifIndex;
    r.other = value;
    r.modeType = modeType;
    return r;
}

uint32_t lagIf(uint32_t lag) {
    return ifmCreateIfIndex(ifm::kTypeLag, 0, 0, lag);
}

}  // namespace

ChassisModel::Change ChassisModel::setIcl(uint32_t ifIndex) {
    Change c{true, name(ifIndex) + " is now the inter-chassis link", {}};
    // The one that was the link stops being it first.
    if (icl_ != 0 && icl_ != ifIndex) {
        c.text += " (" + name(icl_) + " no longer is)";
        c.records.push_back(modeRecord(icl_, VORN_IFM_MODE_ICL_CLEAR, 0));
    }
    icl_ = ifIndex;
    c.records.push_back(modeRecord(ifIndex, VORN_IFM_MODE_ICL_SET, 0));
    return c;
}

ChassisModel::Change ChassisModel::clearIcl(uint32_t ifIndex) {
    Change c{true, name(ifIndex) + " is no longer the inter-chassis link", {}};
    if (icl_ == ifIndex)
        icl_ = 0;
    else
        c.text = name(ifIndex) + " was not the inter-chassis link (told so all the same)";
    c.records.push_back(modeRecord(ifIndex, VORN_IFM_MODE_ICL_CLEAR, 0));
    return c;
}

ChassisModel::Change ChassisModel::setLagZil(uint32_t lag, uint32_t zilId) {
    const uint32_t ifIndex = lagIf(lag);
    lagZil_[lag] = zilId;
    std::string text = name(ifIndex) + " joins peer-pair port channel " + std::to_string(zilId);
    if (zilId < VORN_ZIL_MIN_ID || zilId > VORN_ZIL_MAX_ID)
        text += " (the manager accepts 1..129 only)";
    return {true, text, {modeRecord(ifIndex, VORN_IFM_MODE_LAG_ZIL_JOIN, zilId)}};
}

ChassisModel::Change ChassisModel::clearLagZil(uint32_t lag) {
    const uint32_t ifIndex = lagIf(lag);
    auto it = lagZil_.find(lag);
    // The manager unmaps the LAG by its peer-pair id; 0 when the model knows none.
    const uint32_t zilId = it == lagZil_.end() ? 0 : it->second;
    std::string text =
        it == lagZil_.end()
            ? name(ifIndex) + " was in no peer-pair port channel (told so with id 0)"
            : name(ifIndex) + " leaves peer-pair port channel " + std::to_string(zilId);
    if (it != lagZil_.end()) lagZil_.erase(it);
    return {true, text, {modeRecord(ifIndex, VORN_IFM_MODE_LAG_ZIL_LEAVE, zilId)}};
}

}  // namespace vorn::sim
