// Entry points of this subsystem that are not built yet: each says so under the error flag
// and changes nothing. Entries leave this file as they land.

#include "task/not_yet.h"
#include "l2pm/l2pm.h"
#include "task/handlers.h"

int vornProcessL2PmDnld(uint8_t*) {
    return vornNotHandledYet("vornProcessL2PmDnld");
}
