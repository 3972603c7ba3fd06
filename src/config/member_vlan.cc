// The member VLANs of a ring: kept in the ring's bitmap, in the global member-VLAN bitmap
// and as the ring id in each VLAN record; tied to the ring's STG instance in L2PM, sent whole
// to the agents, and written as " member-vlan " lines.

#include "agent/agent.h"
#include "config/cli_request.h"
#include "config/config.h"
#include "config/readiness.h"
#include "l2pm/l2pm.h"
#include "platform/bitmap.h"
#include "platform/ifindex.h"
#include "ringdb/ringdb.h"
#include "task/tcb.h"
#include "task/trace.h"

namespace {

// Calls fn(vlanId) for every VLAN of the set, in ascending order.
template <typename F>
void forEachVlan(const VornVlanBmap& set, F fn) {
    for (uint16_t v = GET_FIRST_BIT_BITMAP(set, VORN_VLAN_BMAP_BITS); v != vorn::bmp::kNoBit;
         v = GET_NEXT_BIT_BITMAP(set, VORN_VLAN_BMAP_BITS, v)) {
        fn(v);
    }
}

// Takes one VLAN out of a ring's member set: its bits, its record's ring id, and the ring
// configuration's claim on the record.
void vornCfgDropMemberVlan(VornRingEntry& ring, uint16_t vlanId) {
    vorn::bmp::clear(gVornMemVlanBmap, vlanId);
    vorn::bmp::clear(ring.memberVlanBmap, vlanId);
    if (VornVlanEntry* vlan = vornGetVlan(vlanId); vlan != nullptr) {
        vlan->u2MemberVlanRingId = 0;
        vornCheckAndDeleteVlanEntry(vlanId, VORN_CREATOR_RING_CONF);
    }
}

}  // namespace

int vornProcessMemberVlan(uint8_t* request) {
    VORN_DBG("%s \r\n", __func__);
    if (vorn::cfg::reqIsNoForm(request)) {
        vornCount(VORN_CNT_CLI_DEL_MEM_VLAN);
        return vornDelMemberVlan(request);
    }
    vornCount(VORN_CNT_CLI_ADD_MEM_VLAN);
    return vornAddMemberVlan(request);
}

int vornAddMemberVlan(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s ringId = %d \r\n", __func__, ringId);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr) {
        vorn::cfg::reqSetStatus(request, vorn::nm::kStatusNoRing);
        return 0;
    }
    const VornVlanBmap requested = vorn::cfg::reqMemberVlans(request);
    // A control VLAN among the requested ones refuses the whole request.
    for (uint16_t v = GET_FIRST_BIT_BITMAP(requested, VORN_VLAN_BMAP_BITS); v != vorn::bmp::kNoBit;
         v = GET_NEXT_BIT_BITMAP(requested, VORN_VLAN_BMAP_BITS, v)) {
        if (vorn::bmp::test(gVornCtrlVlanBmap, v)) {
            vorn::cfg::reqSetStatus(request, vorn::nm::kStatusMemberIsCtrl);
            return 0;
        }
    }

    halVornSendVlanStgMsgToL2Pm(ring->u2StgInst, requested.data(), 1);
    // A VLAN that is another ring's member VLAN is taken over: its record names this ring
    // from now on, while the other ring's bitmap keeps it.
    forEachVlan(requested, [ring, ringId](uint16_t v) {
        vorn::bmp::set(gVornMemVlanBmap, v);
        vorn::bmp::set(ring->memberVlanBmap, v);
        VornVlanEntry* vlan = vornGetVlan(v);
        if (vlan == nullptr) {
            vlan = vornCreateVlanEntry(ifmCreateIfIndex(vorn::ifm::kTypeVlan, 0, 0, v),
                                       VORN_CREATOR_RING_CONF);
        }
        if (vlan == nullptr) {
            VORN_DBG("%s Cannot create member Vlan (%d) node for Ring (%d).\r\n",
                     "vornAddMemberVlan", v, ringId);
            return;
        }
        vlan->u2MemberVlanRingId = ringId;
    });
    vornUpdateL2PmOnMemberVlanChange(ring, 1, requested.data(), 1);
    vornUpdateL2PmOnMemberVlanChange(ring, 0, requested.data(), 1);
    const uint32_t oldStatus = vorn::cfg::vornRingRunStatus(*ring);

    if ((ring->u4Flags & VORN_RING_CFG_MEMBER_VLAN) != 0) vornConfigRemoveMemberVlans(ringId);
    ring->u4Flags |= VORN_RING_CFG_MEMBER_VLAN;
    // The agents are skipped only for an unchanged set; the hash is always 0, so they are
    // always told, with the ring's whole new set.
    uint32_t hash = vornUtilGenerateVlanHash(ring->memberVlanBmap);
    if (ring->u2VlanHash != hash || hash == 0) {
        vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_ADD, VORN_RING_CFG_MEMBER_VLAN,
                                    oldStatus, ring->memberVlanBmap.data());
    }
    vornConfigAddMemberVlans(ringId, ring->memberVlanBmap);
    return 0;
}

int vornDelMemberVlan(uint8_t* request) {
    const uint16_t ringId = vorn::cfg::reqRingId(request);
    VORN_DBG("%s \r\n", __func__);
    VornRingEntry* ring = vornGetRing(ringId);
    if (ring == nullptr || (ring->u4Flags & VORN_RING_CFG_MEMBER_VLAN) == 0) return 0;

    const VornVlanBmap requested = vorn::cfg::reqMemberVlans(request);
    const bool all = BITMAP_IS_EMPTY(requested);
    VornVlanBmap owned{};
    BITMAP_AND_BITMAPS(owned, requested, ring->memberVlanBmap);
    // None of the named VLANs is this ring's: nothing to do.
    if (!all && BITMAP_IS_EMPTY(owned)) return 0;

    halVornSendVlanStgMsgToL2Pm(ring->u2StgInst, owned.data(), 0);
    vornConfigRemoveMemberVlans(ringId);
    const uint32_t oldStatus = static_cast<uint32_t>(vornRingIsReady(ringId));

    VornVlanBmap reported{};
    if (!all) {
        reported = requested;
        vornUpdateL2PmOnMemberVlanChange(ring, 1, requested.data(), 0);
        vornUpdateL2PmOnMemberVlanChange(ring, 0, requested.data(), 0);
        // Every named VLAN is dropped, also one that is not this ring's member; its global
        // bit goes with it.
        forEachVlan(requested, [ring](uint16_t v) { vornCfgDropMemberVlan(*ring, v); });
        if (BITMAP_IS_EMPTY(ring->memberVlanBmap)) ring->u4Flags &= ~VORN_RING_CFG_MEMBER_VLAN;
        vornConfigAddMemberVlans(ringId, ring->memberVlanBmap);
    } else {
        reported = ring->memberVlanBmap;
        vornUpdateL2PmOnMemberVlanChange(ring, 1, reported.data(), 0);
        vornUpdateL2PmOnMemberVlanChange(ring, 0, reported.data(), 0);
        forEachVlan(reported, [ring](uint16_t v) { vornCfgDropMemberVlan(*ring, v); });
        ring->u4Flags &= ~VORN_RING_CFG_MEMBER_VLAN;
        vornConfigRemoveMemberVlans(ringId);
    }
    vornSendRingCfgMsgToAllAgts(ring, VORN_RING_CFG_ACTION_DEL_CFG, VORN_RING_CFG_MEMBER_VLAN,
                                oldStatus, reported.data());
    return 0;
}
