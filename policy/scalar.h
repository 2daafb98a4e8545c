// What a YAML scalar means: the type and number of a plain one, and which texts need quotes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct Scalar
{
    uint32_t type; // KV_NONE, KV_BOOL, KV_INT, KV_DATE or KV_STRING
    int64_t number = 0;
};

// What a plain scalar reads as. Fractions, numbers past 64 bits and forms that readers of YAML
// disagree about (007, 1_000) are texts, which keeps what was written.
Scalar scalar_resolve(std::string_view text);
// Whether some reader of YAML would take this text, written plain, for something else than a text.
bool scalar_is_ambiguous(std::string_view text);
// A date as a plain scalar, "2026-11-21T09:18:31Z"; past the year 9999 the seconds as a number.
std::string scalar_date(int64_t seconds);
