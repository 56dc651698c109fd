// SPDX-License-Identifier: BSD-3-Clause
// What is told about rules without applying them: kxmap list, kxmap functions, kxmap conformance.
#ifdef KXDCM_TOOL

#include "support/fixture.h"
#include "tool/run.h"

#include <nlohmann/json.hpp>

using namespace kxtest;

namespace {

TEST(ToolList, showsWhoIsServed)
{
    const TempDir dir;
    dir.write("m/CT.map", "(0008,1010)=\"CT-1\"\n(0008,1030) =\"x\"\n");
    dir.write("m/AR.out.map", "(0010,0010)=NULL()\n");
    dir.write("m/global/pre.map", "(0008,0080)=\"Here\"\n");
    dir.write("m/ct.map", "");
    dir.write("m/LONGER_THAN_ALLOWED.map", "");
    dir.write("m/notes.txt", "");
    dir.write("m/global/later.map", "");
    expectRuns(dir, {
                        {"list --mappings m",
                         1,
                         {"Inbound", "\n  (all, first)", "CT.map ", "(all, last)", "global/post.map (not there)",
                          "Outbound", "AR.out.map ", "notes.txt: serves nobody", "global/later.map: serves nobody",
                          "no AE title is longer than 16", "\"CT\" and \"ct\" are two AE titles",
                          "serves a sender \"AR.out\" inbound as well"},
                         ""},
                        {"list --mappings m --aet AR", 0, {"AR.map (not there)", "AR.out.map  "}, ""},
                        {"list --mappings m --aet AS", 0, {"did you mean \"AR\"?"}, ""},
                        {"list --mappings nope", 2, {}, "nope: No such file or directory"},
                    });
    const ToolRun run = runTool(dir.path(), "list --mappings m --format json");
    const auto listing = nlohmann::json::parse(run.output);
    const auto& row = listing["inbound"][1];
    EXPECT_EQ(row["aeTitle"], "CT");
    EXPECT_EQ(row["rules"], 1);
    EXPECT_EQ(row["badLines"], 1);
    EXPECT_EQ(listing["outbound"][1]["file"], "AR.out.map");
}

TEST(ToolFunctions, explains)
{
    const TempDir dir;
    expectRuns(dir,
               {
                   {"functions", 0, {"Whole numbers\n", "  add(a,b, ...)", "  $(name)=...  or  $(@name)=... "}, ""},
                   {"functions +",
                    0,
                    {"concat(a,b, ...)\n", "add(a,b, ...)\n", "-> \"1003\"", "says Coercion: NULL() parameter"},
                    ""},
                   {"functions SEQ",
                    0,
                    {"SEQ(group,element,item, ..., group,element)\n", "group,element)=...\n", "with (0040,0275)[0]"},
                    ""},
                   {"functions toupper", 1, {}, "toUpper"},
               });
}

TEST(ToolConformance, tellsWhatRulesDo)
{
    const TempDir dir;
    dir.write("m/CT.map", "$(site)=or($(@site),\"Here\")\n"
                          "(0008,0080)=if((0008,0080),(0008,0080),$(site))\n"
                          "(0008,1030)=translate((0008,1030),(0008,1030),\"a|b\",\"x\",\"c\",NULL())\n"
                          "(0008,0050)=or(if(equals((0008,0050),\"\"),NULL(),(0008,0050)),concat(\"S-\",(0020,0010)))\n"
                          "SEQ(0010,1002,0,0010,0021)=add((0020,0011),1000)\n"
                          "(0020,0010)=(0020,0010)\n"
                          "(0020,0010)=\"1\"\n"
                          "$(old)=(0010,0020)\n(0010,0020)=\"x\"\n(0010,1001)=$(old)\n"
                          "$(loop)=$(loop)\n(0010,4000)=$(loop)\n");
    dir.write("m/global/pre.map", "$(@site)=\"There\"\nbad=x\n");
    const auto row = [](const char* cells) { return "\n| " + std::string(cells) + " |\n"; };
    expectRuns(
        dir, {
                 {"conformance --mappings m --aet CT",
                  1,
                  {"### Datasets received from CT\n",
                   row("Institution Name | (0008,0080) | added | \"There\" | it is absent | CT.map:2"),
                   row("Study Description | (0008,1030) | modified | \"a\\|b\" becomes \"x\"<br>\"c\" is removed | | "
                       "CT.map:3"),
                   row("Accession Number | (0008,0050) | added or modified | \"S-{Study ID (0020,0010)}\" | it is "
                       "absent or empty | CT.map:4"),
                   "| (0010,1002) item 1 \\> (0010,0021) | added or modified | Series Number (0020,0011) plus 1000 | "
                   "item 1 of",
                   row("Study ID | (0020,0010) | added or modified | \"1\" | | CT.map:7"),
                   "copied from Patient ID (0010,0020) before coercion | Patient ID (0010,0020) before coercion is "
                   "present |",
                   row("Patient Comments | (0010,4000) | removed | | | CT.map:12")},
                  "m/global/pre.map:2"},
                 {"conformance --mappings m --format csv",
                  1,
                  {"\r\ninbound,CT,Institution Name,\"(0008,0080)\",added,\"\"\"There\"\"\",it is absent,CT.map:2\r\n"},
                  ""},
                 {"conformance --mappings m --outbound",
                  0,
                  {"sent to any other AE title\n\nNo attributes are coerced.\n"},
                  ""},
             });
}

// One rule a row; what the table has of it, less the attribute and its tag, or nothing.
TEST(ToolConformance, tellsWhatTheAttributeHolds)
{
    struct Rule {
        const char* rules;
        const char* row;
    };
    constexpr Rule kRules[] = {
        {"(0028,0010)=\"abc\"", "added | an empty value, all that US takes of \"abc\" | it is absent |"},
        {"(0028,0010)=\"70000\"", "added or modified | \"4464\", all that US takes of \"70000\" | |"},
        {"(0028,0010)=\"7\"", "added or modified | \"7\" | |"},
        {"(0028,0010)=\"\"", "added or modified | an empty value | |"},
        {"(0008,1140)=\"x\"", "added | an empty value, all that SQ takes of \"x\" | it is absent |"},
        {"(7fe0,0010)=\"x\"", "added | an empty value, all that OW takes of \"x\" | it is absent |"},
        {"(0010,0010)=(0028,0010)", "added or modified | an empty value: rules see no text in Rows (0028,0010) |"},
        {"(0028,0011)=(0028,0010)", "added or modified | copied from Rows (0028,0010) |"},
        {"$(a)=(0028,0010)\n(0028,0011)=$(a)", "added or modified | an empty value: rules see no text in Rows"},
        {"(0028,0107)=(0028,0106)", "added or modified | copied from Smallest Image Pixel Value"}, // the dataset's VRs
        {"(0028,0010)=(0020,0013)",
         "added or modified | copied from Instance Number (0020,0013), as far as US takes it"},
        {"(0028,0010)=strlen((0010,0010))", "added or modified | the length of"},
        {"(0008,1140)=(0020,0013)", "added | an empty value: SQ takes no text |"},
        {"(0010,4000)=concat((0028,0010),\"x\",(0010,0010))", "| \"x{Patient's Name (0010,0010)}\" |"},
        {"(0010,4000)=if(equals((0028,0010),\"7\"),\"x\",\"y\")", "added or modified | \"y\" | |"},
        {"(0075,1001)=\"x\"", "| Private Creator | (0075,0010) | added | \"KXDCM COERCION 1.0\" | Original Patient ID "
                              "(private) (0075,1001) is added |"},
        {"(0010,4000)=or((0028,0010),\"x\")", "rules see no text in Rows (0028,0010) | Rows (0028,0010) is present |"},
        {"(0010,4000)=or((0028,0010),\"x\")", "added or modified | \"x\" | Rows (0028,0010) is absent |"},
        {"(0010,4000)=if(between((0028,0010),0,9),\"x\",\"y\")", "added or modified | \"y\" | |"},
        {"USER(u)=(0028,0010)\n(0028,0011)=USER(u)", "an empty value: rules see no text in Rows (0028,0010) |"},
        {"(0040,0275)=(0008,1140)", "added or modified | copied from Referenced Image Sequence (0008,1140) |"},
        {"(0008,1140)=\"\"", "added | an empty value | it is absent |"},
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
    };
    const TempDir dir;
    for (const Rule& c : kRules) {
        dir.write("m/X.map", c.rules);
        const ToolRun run = runTool(dir.path(), "conformance --mappings m --aet X");
        EXPECT_NE(run.output.find(c.row), std::string::npos) << c.rules << "\n" << c.row << "\n" << run.output;
        EXPECT_EQ(run.errors, "") << c.rules;
    }
}

TEST(ToolConformance, keepsCellsHarmless)
{
    const TempDir dir;
    dir.write("m/=A1.map", "(0010,0010) =\"x\"\n(0010,0010)=\"a,\\\"b\"\n");
    expectRuns(
        dir,
        {
            {"conformance --mappings m --format csv",
             1,
             {"\r\ninbound,'=A1,,,line is dropped,\"(0010,0010) =\"\"x\"\"\",,'=A1.map:1\r\n",
              "\r\ninbound,'=A1,Patient's Name,\"(0010,0010)\",added or modified,\"\"\"a,\"\"b\"\"\",,'=A1.map:2\r\n"},
             "=A1.map:1"},
            {"conformance --mappings m", 1, {"have no row: =A1.map:1.\n"}, ""},
        });
}

} // namespace

#endif
