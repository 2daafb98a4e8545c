#include "services/tarvvm/screens/pixel_format.h"

#include <cstring>

namespace {

// Channel orders, from the most significant bit down.
enum : unsigned
{
    ORDER_ARGB = 2,
    ORDER_ABGR = 3,
    ORDER_BGRA = 8,
    ORDER_RGBA = 9
};

// Widens a channel of `bits` (at most 8) to 8 bits, so that its full value becomes 255.
uint32_t widen(uint32_t value, unsigned bits)
{
    return bits == 8 ? value : value * 255 / ((1u << bits) - 1);
}

} // namespace

bool PixelFormat::isNative() const
{
    return bytes == 4 && red_bits == 8 && green_bits == 8 && blue_bits == 8 && red_shift == 16 &&
           green_shift == 8 && blue_shift == 0;
}

void PixelFormat::convert(const uint8_t *from, uint8_t *to, size_t count) const
{
    const uint32_t red_mask = (1u << red_bits) - 1;
    const uint32_t green_mask = (1u << green_bits) - 1;
    const uint32_t blue_mask = (1u << blue_bits) - 1;
    for (size_t i = 0; i < count; i++, from += bytes, to += 4) {
        uint32_t pixel = 0;
        std::memcpy(&pixel, from, bytes);
        const uint32_t rgb = widen(pixel >> red_shift & red_mask, red_bits) << 16 |
                             widen(pixel >> green_shift & green_mask, green_bits) << 8 |
                             widen(pixel >> blue_shift & blue_mask, blue_bits);
        std::memcpy(to, &rgb, sizeof rgb);
    }
}

std::optional<PixelFormat> pixel_format(uint32_t word)
{
    const unsigned bits = word >> 24;
    const unsigned order = word >> 16 & 0xff;
    const unsigned alpha = word >> 12 & 0xf;
    const unsigned red = word >> 8 & 0xf;
    const unsigned green = word >> 4 & 0xf;
    const unsigned blue = word & 0xf;
    if ((bits != 16 && bits != 24 && bits != 32) || red == 0 || green == 0 || blue == 0 ||
        red > 8 || green > 8 || blue > 8 || alpha + red + green + blue > bits)
        return std::nullopt;
    PixelFormat format{bits / 8, 0, 0, 0, red, green, blue};
    switch (order) {
    case ORDER_ARGB:
        format.green_shift = blue;
        format.red_shift = blue + green;
        break;
    case ORDER_ABGR:
        format.green_shift = red;
        format.blue_shift = red + green;
        break;
    case ORDER_BGRA:
        format.blue_shift = bits - blue;
        format.green_shift = bits - blue - green;
        format.red_shift = bits - blue - green - red;
        break;
    case ORDER_RGBA:
        format.red_shift = bits - red;
        format.green_shift = bits - red - green;
        format.blue_shift = bits - red - green - blue;
        break;
    default:
        return std::nullopt;
    }
    return format;
}
