// Printers shared by the traces and dumps of every subsystem.

#include "task/trace.h"

#include <algorithm>
#include <array>

void vornPrintMacAddr(std::span<const uint8_t> mac, const char* title) {
    std::array<uint8_t, 6> m{};
    std::copy_n(mac.begin(), std::min(mac.size(), m.size()), m.begin());
    std::printf("%s %x:%x:%x:%x:%x:%x \r\n", title != nullptr ? title : "", m[0], m[1], m[2], m[3],
                m[4], m[5]);
}
