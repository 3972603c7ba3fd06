// The control VLAN and the two ring interfaces of a ring: one command sets all three, its
// "no" form removes them. A change of a configured ring is a complete removal followed by
// a fresh add.

#include <array>
#include <cstdio>

#include "agent/agent.h"
#include "config/cli_request.h"
#include "config/config.h"
#include "config/readiness.h"
#include "ifm/ifm.h"
#include "l2pm/l2pm.h"
#include "peer/peer.h"
#include "platform/bitmap.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

using vorn::cfg::reqReader;
using vorn::cfg::reqRingId;
using vorn::cfg::reqSetStatus;
using vorn::cfg::reqStatus;

struct CtrlVlanReq {
    uint16_t ringId;
    uint32_t priIfIndex;
    uint32_t secIfIndex;
    uint32_t ctrlVlanIfIndex;
};

CtrlVlanReq readCtrlVlanReq(const uint8_t* request) {
    vorn::be::Reader r = reqReader(request);
    return {r.u16(vorn::nm::kOffRingId), r.u32(vorn::nm::kOffPrimary),
            r.u32(vorn::nm::kOffSecondary), r.u32(vorn::nm::kOffCtrlVlan)};
}

// Links one ring interface with its port record (made for the ring when IFM has not
// reported the port). Returns the record, or null when none could be made.
VornPortEntry* vornCfgLinkRingPort(const VornRingEntry& ring, uint32_t ifIndex, uint16_t portNum,
                                   const char* fn, const char* side) {
    VornPortEntry* port = vornGetPort(portNum);
    if (port == nullptr) port = vornCreatePortEntry(ifIndex, VORN_CREATOR_RING_CONF);
    if (port == nullptr) {
        VORN_DBG("%s(): Cannot Create Port entry. Ring: %d, Port(%s): %d\r\n", fn, ring.u2RingId,
                 side, portNum);
        return nullptr;
    }
    port->i2RingCount++;
    vorn::bmp::set(port->ctrlVlanBmap, ring.u2CtrlVlanId);
    vorn::bmp::set(port->ringBmap, ring.u2RingId);
    return port;
}

}  // namespace

int vornProcessCtrlVlan(uint8_t* request) {
    VORN_DBG("%s \r\n", __func__);
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_DEL_CTRL_VLAN);
        return vornDelCtrlVlan(request);
    }
    vornCount(VORN_CNT_CLI_ADD_CTRL_VLAN);
    return vornAddCtrlVlan(request);
}

int vornAddCtrlVlan(uint8_t* request) {
    const CtrlVlanReq req = readCtrlVlanReq(request);
    const auto vlanId = static_cast<uint16_t>(ifmIfIndexToVlanId(req.ctrlVlanIfIndex));
    VORN_DBG("%s ringId = %d  ctrl-vlan = %d \r\n", __func__, req.ringId, vlanId);
    VornRingEntry* ring = vornGetRing(req.ringId);
    if (ring == nullptr) {
        reqSetStatus(request, vorn::nm::kStatusNoRing);
        return 0;
    }
    if (req.priIfIndex == req.secIfIndex) {
        reqSetStatus(request, vorn::nm::kStatusSameInterface);
        return 0;
    }
    if (uint32_t icl = qelZilGetIclIfIndex(vornZilHdl); icl != 0 && req.secIfIndex == icl) {
        reqSetStatus(request, vorn::nm::kStatusSecondaryIsIcl);
        return 0;
    }

    if ((ring->u4Flags & VORN_RING_CFG_CTRL_VLAN) != 0) {
        if (ring->u4CtrlVlanIfIndex == req.ctrlVlanIfIndex &&
            ring->u4PriIfIndex == req.priIfIndex && ring->u4SecIfIndex == req.secIfIndex) {
            return 0;
        }
        if (vornPreCheckRingConfig(request, ring->u2CtrlVlanId, vlanId, req.priIfIndex,
                                   req.secIfIndex) != 0) {
            return 0;
        }
        // The old configuration goes first, through a removal request of its own.
        std::array<uint8_t, vorn::nm::kLen> removal{};
        vorn::be::Writer w(removal.data(), removal.size());
        w.u16(vorn::nm::kOffNoForm, 1);
        w.u16(vorn::nm::kOffRingId, req.ringId);
        w.u32(vorn::nm::kOffPrimary, ring->u4PriIfIndex);
        w.u32(vorn::nm::kOffSecondary, ring->u4SecIfIndex);
        w.u32(vorn::nm::kOffCtrlVlan, ring->u4CtrlVlanIfIndex);
        vornDelCtrlVlan(removal.data());
        if (uint16_t status = reqStatus(removal.data()); status != 0) {
            reqSetStatus(request, status);
            return 0;
        }
    }
    if (vornPreCheckRingConfig(request, 0, vlanId, req.priIfIndex, req.secIfIndex) != 0) {
        return 0;
    }
    if (static_cast<uint32_t>(vornIfmRMirrReqInfo(vlanId, 1)) == VORN_IFM_CTRL_VLAN_REFUSED) {
        reqSetStatus(request, vorn::nm::kStatusIfmRefused);
        VORN_DBG(" %s %d, vornIfmRMirrReqInfo return\n", __func__, 2839);
        return 0;
    }
    const uint32_t oldStatus = vorn::cfg::vornRingRunStatus(*ring);

    ring->u4CtrlVlanIfIndex = req.ctrlVlanIfIndex;
    ring->u2CtrlVlanId = vlanId;
    ring->u4PriIfIndex = req.priIfIndex;
    ring->u2PriPortNum = vornPortNumOf(req.priIfIndex);
    ring->u4SecIfIndex = req.secIfIndex;
    ring->u2SecPortNum = vornPortNumOf(req.secIfIndex);

    if (vornCfgLinkRingPort(*ring, req.priIfIndex, ring->u2PriPortNum, __func__, "Pri") ==
        nullptr) {
        return 0;
    }
    ring->isPriOwned = 1;
    VornPortEntry* sec =
        vornCfgLinkRingPort(*ring, req.secIfIndex, ring->u2SecPortNum, __func__, "Sec");
    if (sec == nullptr) return 0;
    ring->isSecOwned = 1;
    if (ifmIfIndexToPlFlag(req.secIfIndex) != 0) {
        ring->isSecReady = 1;
    } else if (ifmIfIndexToIfType(req.secIfIndex) == vorn::ifm::kTypeLag) {
        ring->isSecReady =
            sec->pLagPortList != nullptr && sec->pLagPortList->lastEmptyIndex > 0 ? 1 : 0;
    }

    ring->u4Flags |= VORN_RING_CFG_CTRL_VLAN;
    vorn::bmp::set(gVornCtrlVlanBmap, vlanId);

    VornVlanEntry* vlan = vornGetVlan(vlanId);
    if (vlan == nullptr) vlan = vornCreateVlanEntry(req.ctrlVlanIfIndex, VORN_CREATOR_RING_CONF);
    if (vlan == nullptr) {
        VORN_DBG("%s(): Cannot Create Vlan entry. Ring: %d, VlanId: %d\r\n", __func__, req.ringId,
                 vlanId);
        return 0;
    }
    vlan->u2CtrlVlanRingId = req.ringId;
    vlan->isCreatedByRingConf = 1;
    if (vorn::bmp::test(vlan->taggedPortBmap, ring->u2PriPortNum)) ring->isPriTagged = 1;
    if (vorn::bmp::test(vlan->taggedPortBmap, ring->u2SecPortNum)) ring->isSecTagged = 1;

    halVornSendInstPortOwnerShipToL2Pm(1, ring->u2StgInst, ring->u4PriIfIndex);
    halVornSendInstPortOwnerShipToL2Pm(1, ring->u2StgInst, ring->u4SecIfIndex);
    vornUpdateL2PmOnRingIfAdd(ring, 1);
    vornUpdateL2PmOnRingIfAdd(ring, 0);
    ring->u4PriPortState = VORN_PORT_DISABLED;
    ring->u4SecPortState = VORN_PORT_DISABLED;
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_ADD, VORN_RING_CFG_CTRL_VLAN, oldStatus,
                                nullptr);

    std::array<char, 40> priName{};
    std::array<char, 40> secName{};
    ifmIfIndexToLName(req.priIfIndex, priName.data(), priName.size());
    ifmIfIndexToLName(req.secIfIndex, secName.data(), secName.size());
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), " interface primary %s secondary %s control-vlan %d",
                  priName.data(), secName.data(), vlanId);
    vornConfigAdd(req.ringId, VORN_CFG_CMD_CTRL_VLAN, text.data(), 0);

    vornNotifRingIfCfgToIFM(ring->u4PriIfIndex, ring->u4SecIfIndex, 1);
    return 0;
}

int vornDelCtrlVlan(uint8_t* request) {
    const CtrlVlanReq req = readCtrlVlanReq(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, req.ringId);
    VornRingEntry* ring = vornGetRing(req.ringId);
    if (ring == nullptr || (ring->u4Flags & VORN_RING_CFG_CTRL_VLAN) == 0) return 0;
    if (req.priIfIndex != ring->u4PriIfIndex) {
        reqSetStatus(request, vorn::nm::kStatusPrimaryDiffers);
        return 0;
    }
    if (req.secIfIndex != ring->u4SecIfIndex) {
        reqSetStatus(request, vorn::nm::kStatusSecondaryDiffers);
        return 0;
    }
    if (req.ctrlVlanIfIndex != ring->u4CtrlVlanIfIndex) {
        reqSetStatus(request, vorn::nm::kStatusCtrlVlanDiffers);
        return 0;
    }

    vornIfmRMirrReqInfo(ring->u2CtrlVlanId, 2);  // the answer does not matter
    halVornSendInstPortOwnerShipToL2Pm(0, ring->u2StgInst, ring->u4PriIfIndex);
    halVornSendInstPortOwnerShipToL2Pm(0, ring->u2StgInst, ring->u4SecIfIndex);
    const uint32_t oldStatus = static_cast<uint32_t>(vornRingIsReady(req.ringId));
    vornUpdateL2PmOnRingIfDel(ring, 1);
    vornUpdateL2PmOnRingIfDel(ring, 0);

    vorn::bmp::clear(gVornCtrlVlanBmap, ring->u2CtrlVlanId);
    if (VornVlanEntry* vlan = vornGetVlan(ring->u2CtrlVlanId); vlan != nullptr) {
        vlan->u2CtrlVlanRingId = 0;
        vornCheckAndDeleteVlanEntry(ring->u2CtrlVlanId, VORN_CREATOR_RING_CONF);
    }
    vornCfgReleaseRingPort(*ring, ring->u4PriIfIndex, ring->u2PriPortNum);
    vornCfgReleaseRingPort(*ring, ring->u4SecIfIndex, ring->u2SecPortNum);

    // The removal names the interfaces by slot and port under a fixed type word.
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(),
                  " interface primary GigabitEthernet %d/%d secondary GigabitEthernet %d/%d "
                  "control-vlan %d",
                  static_cast<int>(ifmIfIndexToSlotId(req.priIfIndex)),
                  static_cast<int>(ifmIfIndexToPortId(req.priIfIndex)),
                  static_cast<int>(ifmIfIndexToSlotId(req.secIfIndex)),
                  static_cast<int>(ifmIfIndexToPortId(req.secIfIndex)), ring->u2CtrlVlanId);
    vornConfigRemove(req.ringId, VORN_CFG_CMD_CTRL_VLAN, text.data(), 0);

    ring->u4Flags &= ~VORN_RING_CFG_CTRL_VLAN;
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_DEL_CFG, VORN_RING_CFG_CTRL_VLAN,
                                oldStatus, nullptr);

    ring->u4PriIfIndex = ring->u4SecIfIndex = 0;
    ring->u2PriPortNum = ring->u2SecPortNum = 0;
    ring->u4CtrlVlanIfIndex = 0;
    ring->u2CtrlVlanId = 0;
    ring->isPriOwned = ring->isSecOwned = ring->isSecReady = 0;
    ring->isPriTagged = ring->isSecTagged = 0;
    ring->u4PriPortState = ring->u4SecPortState = VORN_PORT_DISABLED;

    vornNotifRingIfCfgToIFM(0, 0, 2);
    return 0;
}
