// Packets of the display channel that bring keys and the pointer.
#pragma once

#include "tarvhv/cli2/display_protocol.h"

// Motions, and steps of the wheel, add up or replace each other. Keys don't: each is a change.
bool input_packet_moves(const display_packet &packet);
// Makes one packet of two that follow each other, if the guest ends up with the same: an absolute
// position takes the place of the one before, motions and steps are added. False, with nothing
// changed, where one would be lost: the buttons between two motions differ.
bool input_packet_join(display_packet *earlier, const display_packet &later);
