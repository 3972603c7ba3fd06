// The member-VLAN lines of the running configuration: the VLAN list text of a set, cut into
// pieces of at most 267 characters that end after a whole list item, one " member-vlan "
// line per piece.

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <vector>

#include "config/config.h"
#include "platform/bitmap.h"
#include "task/trace.h"

namespace {

constexpr std::string_view kMemberVlanPrefix = " member-vlan ";
static_assert(kMemberVlanPrefix.size() == 13);
static_assert(kMemberVlanPrefix.size() + VORN_MEMBER_VLAN_PIECE + 1 == VORN_MEMBER_VLAN_LINE_LEN);

}  // namespace

void vornGetMemberVlanCfgEndIndex(const char* str, uint32_t u4Start, int32_t* pi4End,
                                  int32_t* pi4Last) {
    int32_t end = -1;
    int32_t last = -1;
    const std::string_view text = str != nullptr ? std::string_view(str) : std::string_view();
    const size_t len = text.size();
    // The character at i, with the terminating NUL at len.
    auto at = [&text](size_t i) { return i < text.size() ? text[i] : '\0'; };
    const size_t start = u4Start;

    if (start < len) {
        if (start + VORN_MEMBER_VLAN_PIECE > len) {
            // The rest fits; a trailing comma is left out of the piece.
            end = static_cast<int32_t>(len - 1);
            last = text[len - 1] == ',' ? end - 1 : end;
        } else {
            size_t pos = start + VORN_MEMBER_VLAN_PIECE;
            char c = at(pos);
            if (c == ',') {
                end = static_cast<int32_t>(pos);
                last = end - 1;
            } else if (c == ' ' || c == '\0') {
                end = last = static_cast<int32_t>(pos);
            } else {
                // Back to the comma before the item that does not fit. The walk stays
                // inside this piece; a piece without any break is cut at its full length.
                end = last = static_cast<int32_t>(pos - 1);
                for (size_t i = pos - 1;; --i) {
                    char b = at(i);
                    if (b == ',') {
                        end = static_cast<int32_t>(i);
                        last = end - 1;
                        break;
                    }
                    if (b == ' ' || b == '\0') {
                        end = last = static_cast<int32_t>(i);
                        break;
                    }
                    if (i == start) {
                        VORN_ERR("%s: no break in the VLAN list from %u, piece cut at %d\r\n",
                                 __func__, u4Start, end);
                        break;
                    }
                }
            }
        }
    }
    if (pi4End != nullptr) *pi4End = end;
    if (pi4Last != nullptr) *pi4Last = last;
}

int vornConfigAddMemberVlans(uint16_t ringId, const VornVlanBmap& vlans) {
    std::vector<char> list(VORN_VLAN_LIST_TEXT_LEN, '\0');
    convertVlanBitMap2VlanString(vlans, list.data(), list.size());
    const size_t len = strnlen(list.data(), list.size() - 1);

    int lines = 0;
    uint16_t lineIndex = 1;
    for (size_t start = 0; start < len;) {
        int32_t end = -1;
        int32_t last = -1;
        vornGetMemberVlanCfgEndIndex(list.data(), static_cast<uint32_t>(start), &end, &last);
        if (end < 0 || static_cast<size_t>(end) < start) break;

        std::array<char, VORN_MEMBER_VLAN_LINE_LEN> line{};
        std::memcpy(line.data(), kMemberVlanPrefix.data(), kMemberVlanPrefix.size());
        // The piece is start..last; it is copied up to the end of the text (a break on the
        // terminating NUL ends there) and never past the line.
        size_t count =
            last >= static_cast<int32_t>(start) ? static_cast<size_t>(last) - start + 1 : 0;
        count = std::min(count, len - start);
        if (count > VORN_MEMBER_VLAN_PIECE) {
            VORN_ERR("%s: Ring %d, member-vlan piece of %zu characters cut to %zu\r\n", __func__,
                     ringId, count, VORN_MEMBER_VLAN_PIECE);
            count = VORN_MEMBER_VLAN_PIECE;
        }
        std::memcpy(line.data() + kMemberVlanPrefix.size(), list.data() + start, count);
        vornConfigAdd(ringId, VORN_CFG_CMD_MEMBER_VLAN, line.data(), lineIndex);
        ++lineIndex;
        ++lines;
        start = static_cast<size_t>(end) + 1;
    }
    return lines;
}
