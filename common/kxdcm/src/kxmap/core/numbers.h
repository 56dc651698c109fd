// SPDX-License-Identifier: BSD-3-Clause
// Numbers in texts: exactly what `sscanf` reads with "%d" and "%4X", and 32-bit arithmetic that wraps.
#pragma once

#include "kxmap/core/bytes.h"

#include <bit>
#include <cstdint>
#include <cstdio>

namespace kxmap {

/// Reads as `sscanf(text, "%d")` does: leading white space, a sign, digits; what follows them is ignored.
/// @param number unchanged when nothing was read.
/// @return whether a number was read. Beyond 32 bits it is what the C library makes of it.
inline bool readInt(const char* text, int& number)
{
    // Most numbers are up to nine plain digits: these are read here, since sscanf() costs many times more.
    int value = 0;
    const char* p = text;
    while (p - text < 9 && isDigit(*p)) value = value * 10 + (*p++ - '0');
    if (p == text || isDigit(*p)) return std::sscanf(text, "%d", &number) == 1;
    number = value;
    return true;
}

/// Reads as `sscanf(text, "%4X")` does: leading white space, then up to four bytes of sign, "0x" and digits.
/// @param number unchanged when nothing was read.
/// @return whether a number was read.
inline bool readHex4(const char* text, unsigned int& number)
{
    unsigned int value = 0;
    for (int i = 0; i < 4; ++i) {
        const int digit = hexDigit(text[i]);
        if (digit < 0) return std::sscanf(text, "%4X", &number) == 1;
        value = value * 16 + static_cast<unsigned int>(digit);
    }
    number = value;
    return true;
}

inline std::int32_t wrappingAdd(std::int32_t a, std::int32_t b)
{
    return std::bit_cast<std::int32_t>(std::bit_cast<std::uint32_t>(a) + std::bit_cast<std::uint32_t>(b));
}

inline std::int32_t wrappingSub(std::int32_t a, std::int32_t b)
{
    return std::bit_cast<std::int32_t>(std::bit_cast<std::uint32_t>(a) - std::bit_cast<std::uint32_t>(b));
}

inline std::int32_t wrappingMul(std::int32_t a, std::int32_t b)
{
    return std::bit_cast<std::int32_t>(std::bit_cast<std::uint32_t>(a) * std::bit_cast<std::uint32_t>(b));
}

} // namespace kxmap
