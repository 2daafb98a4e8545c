// The pixel formats in which QEMU sends a screen, turned into 32-bit little-endian xRGB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

// A format word packs (from the high byte) bits per pixel, order of the channels, then four bits
// each for the widths of alpha, red, green and blue.
struct PixelFormat
{
    unsigned bytes; // of a pixel: 2, 3 or 4
    unsigned red_shift, green_shift, blue_shift;
    unsigned red_bits, green_bits, blue_bits;

    // Whether a row can be taken over as it is.
    bool isNative() const;
    // Converts `count` pixels; `from` need not be aligned.
    void convert(const uint8_t *from, uint8_t *to, size_t count) const;
};

// None for a format of another kind (fewer than 16 bits, no plain channels).
std::optional<PixelFormat> pixel_format(uint32_t word);
