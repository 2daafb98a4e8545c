#include "tarvhv/cli2/input_packets.h"

#include <algorithm>

namespace {

int32_t saturated_sum(int32_t a, int32_t b)
{
    return int32_t(std::clamp<int64_t>(int64_t{a} + b, INT32_MIN, INT32_MAX));
}

} // namespace

bool input_packet_moves(const display_packet &packet)
{
    return packet.type == DISPLAY_POINTER_ABS || packet.type == DISPLAY_POINTER_REL ||
           packet.type == DISPLAY_WHEEL;
}

bool input_packet_join(display_packet *earlier, const display_packet &later)
{
    if (earlier->type != later.type || !input_packet_moves(later) ||
        earlier->arg[2] != later.arg[2])
        return false;
    if (later.type == DISPLAY_POINTER_ABS) {
        *earlier = later;
        return true;
    }
    for (int axis = 0; axis < 2; axis++)
        earlier->arg[axis] = saturated_sum(earlier->arg[axis], later.arg[axis]);
    return true;
}
