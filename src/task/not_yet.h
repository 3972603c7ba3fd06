// Reporting of message kinds and calls whose subsystems are not built yet.
#pragma once

#include "task/trace.h"

// Says, under the error flag, that `what` is not handled yet. Returns 0.
inline int vornNotHandledYet(const char* what) {
    VORN_ERR("%s: message kind not handled yet\r\n", what);
    return 0;
}
