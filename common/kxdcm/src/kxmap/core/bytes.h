// SPDX-License-Identifier: BSD-3-Clause
// Classes and case of bytes: the only place that knows whether `char` is signed and which classes follow the locale.
#pragma once

#include <cctype>

namespace kxmap {

/// What the parser trims: control characters, the blank, and all bytes from 0x80 to 0xFF, in every locale.
/// Deliberate: read as a signed byte they are at most 32, so a literal loses non-ASCII letters at its ends.
inline bool isBlank(char c)
{
    return static_cast<signed char>(c) <= ' ';
}

inline bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// An ASCII letter or digit, in every locale.
inline bool isNameByte(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// @return the value of a hexadecimal digit of either case; -1 for any other byte.
inline int hexDigit(char c)
{
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

inline bool isHexDigit(char c)
{
    return hexDigit(c) >= 0;
}

/// C `toupper` in the process's locale.
inline char upperInLocale(char c)
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

/// C `tolower` in the process's locale.
inline char lowerInLocale(char c)
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

/// Trims blanks at both ends of a writable text, the end by writing a NUL.
/// @param s moved on to the first byte that is kept.
/// @param end where the terminator stands; moved back.
inline void trimBlanks(char*& s, char*& end)
{
    while (s != end && isBlank(*s)) ++s;
    while (end != s && isBlank(end[-1])) --end;
    *end = '\0';
}

} // namespace kxmap
