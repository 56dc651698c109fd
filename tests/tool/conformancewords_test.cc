// SPDX-License-Identifier: BSD-3-Clause
// What the coercion table says, one rule a row.
#ifdef KXDCM_TOOL

#include "tool/conformancefixture.h"

#include <gtest/gtest.h>

using namespace kxtest;

TEST(ConformanceTable, SaysWhatTheAttributeHoldsAndWhen)
{
    struct Rule {
        const char* rules;
        const char* row; // what the table has of it
    };
    constexpr Rule kRules[] = {
        {"(0028,0010)=\"abc\"", "added | an empty value, all that US takes of \"abc\" | |"},
        {"(0028,0010)=\"70000\"", "added or modified | \"4464\", all that US takes of \"70000\" | |"},
        {"(0028,0010)=\"7\"", "added or modified | \"7\" | |"},
        {"(0028,0010)=\"\"", "added or modified | an empty value | |"},
        {"(0008,1140)=\"x\"", "added | an empty value, all that SQ takes of \"x\" | |"},
        {"(7fe0,0010)=\"x\"", "added | an empty value, all that OW takes of \"x\" | |"},
        {"(0010,0010)=(0028,0010)", "added or modified | an empty value: rules see no text in Rows (0028,0010) |"},
        {"(0028,0011)=(0028,0010)", "added or modified | copied from Rows (0028,0010) |"},
        {"$(a)=(0028,0010)\n(0028,0011)=$(a)", "added or modified | an empty value: rules see no text in Rows"},
        {"(0028,0107)=(0028,0106)", "added or modified | copied from Smallest Image Pixel Value"}, // the dataset's VRs
        {"(0028,0010)=(0020,0013)",
         "added or modified | copied from Instance Number (0020,0013), as far as US takes it"},
        {"(0028,0010)=strlen((0010,0010))", "added or modified | the length of"},
        {"(0008,1140)=(0020,0013)", "added | an empty value: SQ takes no text |"},
        {"(0010,4000)=concat((0028,0010),\"x\",(0010,0010))",
         "| \"{the text of Rows (0028,0010) (US has none)}x{Patient's Name (0010,0010)}\" |"},
        {"(0010,4000)=if(equals((0028,0010),\"7\"),\"x\",\"y\")",
         "added or modified | \"y\" | the text of Rows (0028,0010) (US has none) is not \"7\" |"},
        {"(0075,1001)=\"x\"", "| Private Creator | (0075,0010) | added | \"KXDCM COERCION 1.0\" | Original Patient ID "
                              "(private) (0075,1001) is added |"},
        {"(0010,4000)=or((0028,0010),\"x\")", "rules see no text in Rows (0028,0010) | Rows (0028,0010) is present |"},
        {"(0010,4000)=or((0028,0010),\"x\")", "added or modified | \"x\" | Rows (0028,0010) is absent |"},
        {"(0010,4000)=if(between((0028,0010),0,9),\"x\",\"y\")",
         "added or modified | \"y\" | the text of Rows (0028,0010) (US has none) is not from 0 to less than 9 |"},
        {"USER(u)=(0028,0010)\n(0028,0011)=USER(u)", "an empty value: rules see no text in Rows (0028,0010) |"},
        {"(0040,0275)=(0008,1140)", "added or modified | copied from Referenced Image Sequence (0008,1140) |"},
        {"(0008,1140)=\"\"", "added | an empty value | |"},
        {"(0028,0009)=\"(0010,0010)\"", "added or modified | \"(0010,0010)\" | |"},
        {"(0018,9073)=\"1e3\"", "added or modified | \"1e3\" | |"}, // FD holds 1000
        {"(0020,0013)=\"x\"", "added or modified | \"x\" | |"},     // IS is a text, good or bad
        {"(0011,1001)=\"x\"", "modified | \"x\" | |"},
        {"(0010,4000)=rnd(10,(0010,0020))", "(a random one where that is absent) | |"},
        // The first write to a variable wins.
        {"$(@a)=\"1\"\n$(@a)=\"2\"\n(0010,4000)=$(@a)", "| \"1\" | |"},
        {"$(a)=\"1\"\n$(a)=\"2\"\n(0010,4000)=$(a)", "| \"1\" | |"},
        {"$(a)=\"1\"\n$(a)=NULL()\n$(a)=\"2\"\n(0010,4000)=$(a)", "| \"2\" | |"},
        {"$(a)=(0010,0020)\n$(a)=\"2\"\n(0010,4000)=$(a)", "the variable \"a\" (X.map:1, X.map:2)"},
        // What needs no dataset is computed.
        {"(0010,4000)=substr(\"abc\",5,2)", "removed | | |"},
        {"(0010,4000)=if(substr(\"abc\",5,2),\"x\",toUpper(\"y\"))", "| \"Y\" | |"},
        {"(0010,4000)=add(\"x\",1)", "removed | | |"},
        {"(0020,0013)=add((0020,0013),1)", "modified | its value plus 1 | its value begins with a whole number |"},
        // What an object has in another VR than the dictionary.
        {"(0028,0010)=\"abc\"", "modified | \"abc\" | its VR is not US |"},
        {"$(a)=(0010,0020)\n(0010,0020)=$(a)", "modified | an empty value | its VR is one without text for rules"},
        // Absent or empty.
        {"(0008,1010)=if(equals(or((0008,1010),\"\"),\"\"),\"CT-1\",(0008,1010))",
         "added or modified | \"CT-1\" | it is absent or empty |"},
        {"$(n)=or((0008,1010),\"\")\n(0008,1010)=if(equals($(n),\"\"),\"CT-1\",(0008,1010))",
         "added or modified | \"CT-1\" | it is absent or empty |"},
        {"(0008,1010)=if(equals(or(SEQ(0040,0275,0,0040,0007),\"\"),\"\"),\"x\",(0008,1010))",
         "item 1 of Request Attributes Sequence (0040,0275) is absent or empty |"},
        {"(0010,0020)=if(equals(or((0010,0020),\"\"),\"\"),(0010,0020),concat(\"N-\",(0010,0020)))",
         "modified | \"N-{its value}\" | it has a value |"},
        {"(0020,0011)=if(between((0020,0011),0,1000),add((0020,0011),1000),(0020,0011))",
         "modified | its value plus 1000 | its value is from 0 to less than 1000 |"},
        // What cannot be said plainly is quoted.
        {"(0010,0010)=concat(split((0010,0010),\"^\",1),if(split((0010,0010),\"^\",2),\"^\",\"\"))",
         "removed | | the value would be empty |"},
        {"(0008,0050)=substr(concat(\"00000000\",(0008,0050)),strlen((0008,0050)))",
         "modified | as the rule says: `substr(concat(\"00000000\",(0008,0050)),strlen((0008,0050)))` |"},
        {"(0010,4000)=translate(NULL(),\"d\",(0010,0020),NULL())", "removed | | Patient ID (0010,0020) is absent |"},
        {"(0010,4000)=substr(\"123\",0,(0028,0010))", "removed"},
        {"(0010,0020)=substr((0010,0020),0,indexof((0010,0020),\"-\"))", "modified | as the rule says: `substr("},
        {"(0010,4000)=concat((0010,0020),\"\")", "removed | | Patient ID (0010,0020) is absent or empty |"},
        {"(0008,1140)=contains((0008,1030),(0040,0275))", "| copied from Request Attributes Sequence (0040,0275)"},
    };
    for (const Rule& c : kRules) {
        const std::string table = shown(tableOf(std::string(c.rules)));
        EXPECT_NE(table.find(c.row), std::string::npos) << c.rules << "\n" << c.row << "\n" << table;
    }
}

#endif
