// Entry points of subsystems that are not built yet. Each refuses: it says so under the
// error flag, changes nothing and reports failure, so that no caller takes it for done.
#pragma once

#include "task/trace.h"

// Says, under the error flag, that `what` is not built yet. Returns -1.
inline int vornNotBuiltYet(const char* what) {
    VORN_ERR("%s: not built yet; refused\r\n", what);
    return -1;
}
