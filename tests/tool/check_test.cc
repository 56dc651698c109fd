// SPDX-License-Identifier: BSD-3-Clause
// kxmap check, and the command line itself.
#ifdef KXDCM_TOOL

#include "support/fixture.h"
#include "tool/run.h"

using namespace kxtest;

TEST(ToolCheck, reportsFindingsAndUnreadableFiles)
{
    const TempDir dir;
    dir.write("good.map", "# (0010,0010) = is a comment here\n(0010,0010)=\"x\"\n");
    dir.write("bad.map", "(0010,0010)=\"x\"\n(0010,0020) = \"y\"\n");
    const std::string finding =
        "bad.map: Syntax error in line: (0010,0020) = \"y\" [ Invalid Dicom Tag:(0010,0020) \n ]\n";
    struct Case {
        const char* arguments;
        int exitCode;
        std::string output;
        const char* errors;
    };
    const Case cases[] = {
        {"check good.map", 0, "", ""},
        {"-v check good.map", 0, "good.map: ok\n", ""},
        {"check bad.map good.map", 1, finding, ""},
        {"check nope.map bad.map", 2, finding, "kxmap: nope.map: No such file or directory\n"},
        {"check .", 2, "", "kxmap: .: Is a directory\n"},
    };
    for (const Case& c : cases) {
        const ToolRun run = runTool(dir.path(), c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.arguments;
        EXPECT_EQ(run.output, c.output) << c.arguments;
        EXPECT_EQ(run.errors, c.errors) << c.arguments;
    }
}

TEST(ToolCommandLine, usage)
{
    const TempDir dir;
    dir.write("good.map", "");
    struct Case {
        const char* arguments;
        int exitCode;
        const char* output;
        const char* errors;
    };
    constexpr Case kCases[] = {
        {"--version", 0, "kxmap ", ""},
        {"apply --help", 0, "--aet TITLE", ""},
        {"", 2, "", "kxmap: A subcommand is required"},
        {"apply -o out in", 2, "", "--aet or --single is required"},
        {"apply --single good.map --set-user =x -o out in", 2, "", "NAME=TEXT"},
        {"apply --aet A -o out in", 2, "", "kxmap: DICOM_VAR: not set"},
        {"apply --aet A --mappings nope -o out in", 2, "", "kxmap: nope: No such file or directory\n"},
        {"apply --single nope.map -o out in", 2, "", "kxmap: nope.map: No such file or directory\n"},
        {"apply --single good.map -o good.map a b", 2, "", "kxmap: good.map: not a folder"},
    };
    for (const Case& c : kCases) {
        const ToolRun run = runTool(dir.path(), c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.arguments;
        EXPECT_NE(run.output.find(c.output), std::string::npos) << c.arguments << "\n" << run.output;
        EXPECT_NE(run.errors.find(c.errors), std::string::npos) << c.arguments << "\n" << run.errors;
    }
    const ToolRun blind = runTool(dir.path(), "apply --single good.map -o out in", "export DCMDICTPATH=/nope;");
    EXPECT_EQ(blind.exitCode, 2);
    EXPECT_NE(blind.errors.find("data dictionary is not loaded"), std::string::npos) << blind.errors;
}

#endif
