// SPDX-License-Identifier: BSD-3-Clause
// The readings of texts that all rooms of the tool share.
#ifdef KXDCM_TOOL

#include "tool/console/text.h"

#include <gtest/gtest.h>

using namespace kxtool;

TEST(ToolText, readsHexadecimalDigitsAlone)
{
    struct Case {
        const char* text;
        int number; ///< below 0: none
    };
    constexpr Case kCases[] = {
        {"0", 0},   {"7fE0", 0x7FE0}, {"FFFF", 0xFFFF}, {"00010", -1}, {"", -1},
        {" 1", -1}, {"1 ", -1},       {"+1", -1},       {"-1", -1},    {"0x1", -1},
    };
    for (const Case& c : kCases) {
        const auto number = readHex(c.text);
        EXPECT_EQ(number ? int{*number} : -1, c.number) << c.text;
    }
}

TEST(ToolText, encodesWhatAUriCannotHold)
{
    EXPECT_EQ(percentEncoded("/a-Z_0.9~"), "/a-Z_0.9~");
    EXPECT_EQ(percentEncoded("a b%\xC3\xBC\x01@[`{:"), "a%20b%25%C3%BC%01%40%5B%60%7B%3A");
}

#endif
