// SPDX-License-Identifier: BSD-3-Clause
// Which texts are values of a VR, and what is said of those that are none.
#ifdef KXDCM_TOOL

#include "tool/dicom/valuefaults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace kxtool;

TEST(ToolValues, haveTheFormOfTheirVr)
{
    struct Case {
        DcmEVR vr;
        std::string good, bad; ///< parted by "|"
    };
    const Case cases[] = {
        {EVR_AE, "A|a b|'x'", " |\t|\xC3\xBC"},
        {EVR_AS, "000D|045Y", "45Y|0045Y|045y| 045Y"},
        {EVR_AT, "(0018,1063)|(fffe,E000)", "(0018,10633)|(0018 1063)|0018,1063|(+018,1063)"},
        {EVR_CS, "A|A_1 B", "a|A-B|A.B"},
        {EVR_DA, "20240229|20230430", "20230229|20230431|20231301|20230100|2023|2023.01.01|230101"},
        {EVR_DS, "1|-.5|+1.|1e-5| 1 ", "e5|.|1e|+-1|1 2|1,5"},
        {EVR_DT,
         "2024|202402|20240229|2024+0100|20240229-0530|2024022923|202402292359|20240229235960|"
         "20240229120000.123456+0100",
         "202|20243|202413|20230229|2024022924|20240229120|2024+01|2024+2400|20240229120000.1234567|"
         "20240229 120000|20240229120000.12345600100"},
        {EVR_FD, "1|1e300| +.5", "nan|inf|1e999|0x1|1 s"},
        {EVR_IS, "2147483647|-2147483648|+1| 1 ", "2147483648|1.5|1e3|--1|1234567890123"},
        {EVR_PN, "a|a^b^c^d^e|a=b=c|^b|M\xC3\xBCller^\xE5\xB1\xB1|a\x1B(B", "a^b^c^d^e^f|a=b=c=d|a=b^c^d^e^f^g|a\nb"},
        {EVR_TM, "12|1259|125960|235960|125960.1|120000.123456|12 ", "1|120|24|1260|125961|1259.5|120000.|12:00| "},
        {EVR_UI, "1|1.0.10", "01|1.|.1|1..2|1.02|a|1.2 "},
        {EVR_US, "0|65535", "-1|65536"},
        {EVR_xs, "-32768|65535", "-32769|65536"},
    };
    const auto forEachPart = [](std::string_view texts, const auto& visit) {
        for (std::size_t end = 0; end != std::string_view::npos; texts.remove_prefix(std::min(end + 1, texts.size()))) {
            end = texts.find('|');
            visit(std::string(texts.substr(0, end)));
        }
    };
    for (const Case& c : cases) {
        forEachPart(c.good, [&c](const std::string& text) { EXPECT_FALSE(faultOf(c.vr, text)) << c.vr << text; });
        forEachPart(c.bad, [&c](const std::string& text) {
            const auto fault = faultOf(c.vr, text);
            EXPECT_TRUE(fault && fault->name == fault::kForm) << c.vr << text;
        });
    }
}

TEST(ToolValues, areNoLongerThanTheirVrAllows)
{
    struct Case {
        DcmEVR vr;
        std::string text;
        const char* said; ///< null: nothing
    };
    const std::string umlauts = "\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC";
    const Case cases[] = {
        {EVR_SH, umlauts + umlauts, nullptr},
        {EVR_SH, umlauts + umlauts + "x", "SH value has 17 characters, and SH holds 16"},
        {EVR_SH, "a\\" + umlauts + umlauts + "x", "SH value has 17 characters, and SH holds 16"},
        {EVR_DS, "1234567890.12345\\1", nullptr},
        {EVR_DS, "1234567890.123456", "DS value has 17 bytes, and DS holds 16"},
        {EVR_UI, std::string(64, '1'), nullptr},
        {EVR_UI, std::string(65, '1'), "UI value has 65 bytes, and UI holds 64"},
        {EVR_PN, std::string(64, 'a') + '=' + std::string(64, 'b'), nullptr},
        {EVR_PN, "a=" + std::string(65, 'b'), "PN component group has 65 characters, and PN holds 64"},
        {EVR_CS, "A\\b", "CS holds a code: upper-case letters, digits, blank and underscore, and not \"b\""},
    };
    for (const Case& c : cases) {
        const auto fault = faultOf(c.vr, c.text);
        EXPECT_EQ(fault ? fault->text : "", c.said == nullptr ? "" : c.said) << c.text;
    }
}

#endif
