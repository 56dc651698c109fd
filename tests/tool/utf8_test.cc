// SPDX-License-Identifier: BSD-3-Clause
// UTF-8 as it is read and as it is shown.
#ifdef KXDCM_TOOL

#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/console/utf8.h"

#include <gtest/gtest.h>

#include <string>

using namespace kxtool;
using namespace std::string_literals;

// The borders of each row of table 3-7 of the Unicode Standard.
TEST(ToolUtf8, knowsWellFormedCharacters)
{
    struct Case {
        std::string text;
        std::size_t size;
    };
    const Case cases[] = {
        {"", 0},
        {"\0"s, 1},
        {"\x7F", 1},
        {"\x80", 0},
        {"\xC1\xBF", 0},
        {"\xC2\x80", 2},
        {"\xC2\x7F", 0},
        {"\xC2\xC0", 0},
        {"\xC2", 0},
        {"\xDF\xBF", 2},
        {"\xE0\x9F\xBF", 0},
        {"\xE0\xA0\x80", 3},
        {"\xE1\x80\x80", 3},
        {"\xE1\x80", 0},
        {"\xE1\x80\x41", 0},
        {"\xED\x9F\xBF", 3},
        {"\xED\xA0\x80", 0},
        {"\xEF\xBF\xBF", 3},
        {"\xF0\x8F\xBF\xBF", 0},
        {"\xF0\x90\x80\x80", 4},
        {"\xF0\x90\x80", 0},
        {"\xF4\x8F\xBF\xBF", 4},
        {"\xF4\x90\x80\x80", 0},
        {"\xF5\x80\x80\x80", 0},
        {"\xFF", 0},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(utf8SizeAt(c.text), c.size) << testing::PrintToString(c.text);
        EXPECT_EQ(utf8SizeAt(c.text + "x"), c.text.empty() ? 1 : c.size) << testing::PrintToString(c.text);
        EXPECT_EQ(isUtf8("x" + c.text), c.size > 0 || c.text.empty()) << testing::PrintToString(c.text);
    }
}

TEST(ToolUtf8, showsWhatATerminalWouldObey)
{
    struct Case {
        std::string text;
        std::string printable; // for any text
        std::string shown;     // for a text of UTF-8
        std::size_t width;     // of the shown one
    };
    const Case cases[] = {
        {"plain", "plain", "plain", 5},
        {"a\tb\x7F", "a\\x09b\\x7F", "a\\x09b\\x7F", 10},
        {"\0"s, "\\x00", "\\x00", 4},
        {"\xC2\x9B", "\\xC2\\x9B", "\\u009B", 6},
        {"\x9B", "\\x9B", "\\x9B", 4},
        {"\xFC", "\xFC", "\\xFC", 4},
        {"\xC3\xBC", "\xC3\xBC", "\xC3\xBC", 1},
        {"\xE5\xB1\xB1", "\xE5\xB1\xB1", "\xE5\xB1\xB1", 2},
        {"e\xCC\x81", "e\xCC\x81", "e\xCC\x81", 1},
        {"\xE2\x80\xAE", "\xE2\x80\xAE", "\\u202E", 6},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(printable(c.text), c.printable);
        EXPECT_EQ(shownUtf8(c.text), c.shown);
        EXPECT_EQ(displayWidth(shownUtf8(c.text)), c.width) << c.shown;
    }
    EXPECT_EQ(shownQuoted(std::string(60, 'x')), '"' + std::string(60, 'x') + '"');
    EXPECT_EQ(shownQuoted(std::string(61, 'x')), '"' + std::string(57, 'x') + "...\"");
    std::string wide;
    for (int i = 0; i < 31; ++i) wide += "\xE5\xB1\xB1";
    EXPECT_EQ(shownQuoted(wide), '"' + wide.substr(0, 28 * 3) + "...\"");
}

#endif
