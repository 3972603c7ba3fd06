// End to end: two chassis, each vornsim starting its vornd with --peer-pair, paired with each
// other. Once both know their ICL and see the peer up, a PDU A's manager sends reaches B's
// manager on B's ICL and is counted there by its type.

#include <gtest/gtest.h>

#include <string>

#include "chassis.h"

namespace vorn::e2e {
namespace {

TEST(PeerPair, APduFromOneManagerReachesThePairedManagerOnItsIcl) {
    Chassis a, b;
    a.start({"--peer-pair", "--pair-with", b.rundir()});
    b.start({"--peer-pair", "--pair-with", a.rundir()});
    for (Chassis* c : {&a, &b}) {
        ASSERT_TRUE(eventually(
            [&] {
                return c->ctl({"shell", "qelIpcStats"}) == 0;
            },
            20000))
            << c->simLog();
        c->run("sim", "lag 5");  // the manager's port record of the LAG comes first
        c->run("sim", "icl port-channel 5");
        c->run("sim", "peer up");
        EXPECT_TRUE(c->shows("shell", "vornZilDebugLibInfo", "ZIL ICL ifIndex: 0x16000005"));
        EXPECT_TRUE(c->shows("shell", "vornZilDebugLibInfo", "ZIL peer: UP role 1"));
    }
    a.run("shell", "vornTestAppPduToPeer");
    EXPECT_TRUE(b.shows("shell", "vornZilDebugLibInfo", "ZIL PDU type 5: 1"));
    EXPECT_TRUE(a.shows("sim", "status", "from the manager 1 PDU, forwarded 1"));
    EXPECT_TRUE(b.shows("sim", "status", "from the partner 1 PDU, delivered 1"));
}

}  // namespace
}  // namespace vorn::e2e
