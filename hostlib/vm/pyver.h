// The version record in a disk's boot sector.
#pragma once

#include <cstddef>
#include <cstdint>

struct kv;

inline constexpr size_t PYVER_SECTOR_SIZE = 512;

// Decodes a boot sector of PYVER_SECTOR_SIZE bytes: a new mapping, or null (logged) without the
// boot signature or the record.
//
//   offset size
//      364    4 "TVER"
//      368    1 major
//      369    1 minor
//      370    2 revision, big-endian as all that follow
//      372    8 build: first number in the high half, second (optional) in the low half
//      380    8 compatibility level
//      510    2 0x55 0xAA
struct kv *pyver_decode(const uint8_t *sector);
