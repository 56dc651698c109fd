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
        dir,
        {
            {"conformance --mappings m --aet CT",
             1,
             {"### Datasets received from CT\n", row("Institution Name | (0008,0080) | added | \"There\" | | CT.map:2"),
              row("Study Description | (0008,1030) | modified or removed | \"a\\|b\" becomes \"x\"<br>\"c\" is removed "
                  "| | "
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
             {"\r\ninbound,CT,Institution Name,\"(0008,0080)\",added,\"\"\"There\"\"\",,CT.map:2\r\n"},
             ""},
            {"conformance --mappings m --outbound",
             0,
             {"sent to any other AE title\n\nNo attributes are coerced.\n"},
             ""},
        });
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
