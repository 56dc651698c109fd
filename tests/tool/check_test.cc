// SPDX-License-Identifier: BSD-3-Clause
// kxmap check, and the command line itself.
#ifdef KXDCM_TOOL

#include "support/fixture.h"
#include "tool/run.h"

#include "kxmap.h"

#include <map>
#include <random>
#include <regex>
#include <set>
#include <sstream>

using namespace kxtest;

namespace {

constexpr const char* kBad = R"(bad.map:2:12: error: blank before "=": the line is dropped [blank-before-equals]
    2 | (0010,0020) = "y"
      |            ^
      = note: remove the blank: (0010,0020)=

1 error in 1 file
)";

/// @return "line:name" of every finding, in the order of the output.
std::vector<std::string> namesIn(const std::string& output)
{
    static const std::regex place(R"((?:^|\n)[^\n]*?:(\d+):\d+: [^\n]*\[([a-z0-9-]+)\](?=\n))");
    std::vector<std::string> names;
    for (std::sregex_iterator it(output.begin(), output.end(), place), end; it != end; ++it)
        names.push_back((*it)[1].str() + ':' + (*it)[2].str());
    return names;
}

/// @return for each row of the manual's tables its name and the codes of its example.
std::map<std::string, std::vector<std::string>> manualRows()
{
    std::map<std::string, std::vector<std::string>> rows;
    std::istringstream manual(contentOf(KXDCM_SOURCE_DIR "/docs/warnings.md"));
    static const std::regex row(R"(\| `([a-z0-9-]+)` \| (.*) \| (.*) \| .* \|)");
    static const std::regex code("`([^`]+)`");
    std::string line;
    while (std::getline(manual, line)) {
        std::smatch cells;
        if (!line.starts_with("| `") || !std::regex_match(line, cells, row)) continue;
        const std::string example = cells[3];
        std::vector<std::string>& codes = rows[cells[1]];
        for (std::sregex_iterator it(example.begin(), example.end(), code), end; it != end; ++it)
            codes.push_back((*it)[1]);
    }
    return rows;
}

} // namespace

TEST(ToolCheck, exitCodesAndChannels)
{
    const TempDir dir;
    dir.write("good.map", "# a comment\n(0010,0010)=\"x\"\n");
    dir.write("bad.map", "(0010,0010)=\"x\"\n(0010,0020) = \"y\"\n");
    dir.write("null.map", "(0010,0010)=NULL\n");
    const std::string engine =
        "bad.map: Syntax error in line: (0010,0020) = \"y\" [ Invalid Dicom Tag:(0010,0020) \n ]\n";
    expectExactly(dir, {
                           {"check good.map", 0, "", ""},
                           {"-v check good.map", 0, "good.map: ok\n", ""},
                           {"check bad.map", 1, kBad, ""},
                           {"check -Wno-all bad.map", 1, kBad, ""}, // errors stay
                           {"check -Wno-bare-function null.map", 0, "", ""},
                           {"check nope.map good.map", 2, "", "kxmap: nope.map: No such file or directory\n"},
                           {"check --engine bad.map good.map", 1, engine, ""},
                           {"check --engine nope.map", 2, "", "kxmap: nope.map: No such file or directory\n"},
                       });
    EXPECT_EQ(runTool(dir.path(), "check -Wnonsense good.map").exitCode, 2);
    EXPECT_EQ(runTool(dir.path(), "check").exitCode, 2);
    EXPECT_NE(runTool(dir.path(), "check -Werror null.map").output.find(": error: "), std::string::npos);
}

// What does not end is no mapping file, whichever command looks at it.
TEST(ToolCheck, endlessFilesAreRefused)
{
    const TempDir dir;
    dir.write("m/good.map", "(0010,0010)=\"x\"\n");
    dir.write("m/hole.map", "");
    std::filesystem::resize_file(dir.path() / "m/hole.map", 65U << 20U);
    std::filesystem::create_symlink("/dev/zero", dir.path() / "m/zero.map");
    std::filesystem::copy_file(testFile("CT_small.dcm"), dir.path() / "ct.dcm");
    struct Case {
        const char* arguments;
        int exitCode;
        const char* errors;
    };
    constexpr Case kCases[] = {
        {"check /dev/zero", 2, "kxmap: /dev/zero: not a regular file\n"},
        {"check --engine /dev/zero", 2, "kxmap: /dev/zero: not a regular file\n"},
        {"check m/zero.map", 2, "kxmap: m/zero.map: not a regular file\n"},
        {"check m/hole.map", 2, "kxmap: m/hole.map: longer than 64 MiB, which no mapping file is\n"},
        {"check m", 2, "kxmap: m/hole.map: longer than 64 MiB, which no mapping file is\n"},
        {"list --mappings m --aet zero", 0, ""},
        {"try --mappings m --aet zero ct.dcm", 2, "kxmap: no mapping file applies to AE title zero\n"},
        {"try --single m/zero.map ct.dcm", 2, "kxmap: m/zero.map: not a regular file\n"},
        {"apply --mappings m --aet zero -o o.dcm ct.dcm", 2, "kxmap: no mapping file applies to AE title zero\n"},
    };
    for (const Case& c : kCases) {
        const ToolRun run = runTool(dir.path(), c.arguments, "exec timeout 20");
        EXPECT_EQ(run.exitCode, c.exitCode) << c.arguments;
        EXPECT_EQ(run.errors, c.errors) << c.arguments;
    }
}

// U+009B is the beginning of a terminal's command, in UTF-8 and as a single byte.
TEST(ToolCommandLine, noControlCharacterReachesTheTerminal)
{
    const TempDir dir;
    std::filesystem::copy_file(testFile("CT_small.dcm"), dir.path() / "ct.dcm");
    const std::string rule = "(0010,0010)=\"a\x1b\xc2\x9b\x9b\"\nUSER(u)=\"b\xc2\x85\x85\xfc\"\n";
    dir.write("c\xc2\x9b\x9b.map", rule);
    dir.write("bad.map", "(0010,0010) =\"\xc2\x9b\x9b\"\n");
    for (const char* arguments :
         {"check -v c*.map", "check c*.map bad.map", "check --engine -v c*.map bad.map", "check c\u009b",
          "try --single c*.map ct.dcm", "try --trace --single c*.map ct.dcm", "check c\x9b",
          "apply --single c*.map --dry-run ct.dcm", "apply --single c*.map --print-user -o o.dcm ct.dcm",
          "apply --single c*.map -o o.dcm c*.map", "-v apply --single c*.map -o o.dcm ct.dcm", "eval '\"\x9b\"'",
          "functions \u009b", "list --mappings . --aet c\u009b", "list --mappings ."}) {
        const ToolRun run = runTool(dir.path(), arguments);
        for (const std::string& text : {run.output, run.errors}) {
            EXPECT_EQ(text.find_first_of("\x1b\x9b\x85"), std::string::npos) << arguments << '\n' << text;
        }
    }
    const ToolRun fields = runTool(dir.path(), "apply --single c*.map --print-user -o o.dcm ct.dcm");
    EXPECT_EQ(fields.output, "ct.dcm\tu\tb\\xC2\\x85\\x85\xfc\n");
}

TEST(ToolCheck, manualListsEveryCheckAndItsExamplesShowIt)
{
    const auto rows = manualRows();
    const TempDir dir;
    std::set<std::string> listed;
    std::istringstream list(runTool(dir.path(), "check --list-warnings").output);
    std::string line;
    while (std::getline(list, line)) listed.insert(line.substr(0, line.find(' ')));
    std::set<std::string> documented;
    std::string files;
    for (const auto& [name, codes] : rows) {
        documented.insert(name);
        std::string text;
        for (const std::string& code : codes) text += code + '\n';
        if (codes.empty()) continue;
        dir.write(name + ".map", text);
        files += ' ' + name + ".map";
    }
    EXPECT_EQ(documented, listed);
    const std::string output = runTool(dir.path(), "check" + files).output;
    for (const auto& [name, codes] : rows) {
        if (codes.empty()) continue;
        const std::regex found("(^|\n)" + name + R"(\.map[^\n]*\[)" + name + R"(\]\n)");
        EXPECT_TRUE(std::regex_search(output, found)) << name << ": " << codes.front();
    }
}

// What the engine keeps is no error, and what it drops is one, comments and blank lines aside.
TEST(ToolCheck, agreesWithTheEngine)
{
    const std::string bases[] = {R"((0010,0010)=toUpper((0010,0010)))",
                                 R"(SEQ(0010,1002,0,0010,0021)=concat("a",(0010,0020)))",
                                 R"($(@a1)=if(equals((0008,0050),"x"),NULL(),$(b)))",
                                 R"(USER(name)=(0008,0070),"_",1)",
                                 R"((0008,0008)="A\\B\"C")",
                                 R"((0010,0010)=)"};
    constexpr std::string_view kInserted = "()\",=#\\ $@aF0\x80\r";
    std::mt19937 random(20261124);
    std::string file;
    std::set<std::string> expected;
    const LogCapture silence;
    Assignment assignment;
    for (unsigned number = 1; number <= 3000; ++number) {
        std::string line = bases[random() % std::size(bases)];
        for (unsigned edits = random() % 4; edits > 0; --edits) {
            const std::size_t at = random() % (line.size() + 1);
            if (random() % 2 == 0) line.insert(at, 1, kInserted[random() % kInserted.size()]);
            else line.erase(at, 1);
        }
        file += line + '\n';
        const std::string_view unblanked =
            std::string_view(line).substr(std::min(line.find_first_not_of(" \r"), line.size()));
        const bool isRule = assignment.readCfgLine((line + '\n').c_str());
        if (!isRule && !unblanked.empty() && !unblanked.starts_with('#')) expected.insert(std::to_string(number));
    }
    const TempDir dir;
    dir.write("some.map", file);
    std::set<std::string> reported;
    for (const std::string& name : namesIn(runTool(dir.path(), "check -Wno-all some.map").output))
        reported.insert(name.substr(0, name.find(':')));
    EXPECT_EQ(reported, expected);
}

TEST(ToolCheck, linesAndPlaces)
{
    struct Case {
        std::string content;
        std::vector<std::string> names;
    };
    const std::string longText(2100, 'x');
    const Case cases[] = {
        {"(0010,0010)=if((0010,0020)=\"x\",\"a\",\"b\")", {"1:infix-operator"}},
        {"(0010,0010)=(0010,0020) + (0010,0030)", {"1:bracket-mismatch"}},
        {"(0010,4000)=toUpper((0010,4000)) # name\n(0008,4000)=# x\n(0020,4000)=if(a #,b,c)",
         {"1:trailing-comment", "2:trailing-comment", "3:constant-condition", "3:trailing-comment"}},
        {"(0010,4000)=concat(\"a\",\"b\");\n(0008,4000)=(0010,0020).\n(0020,4000)=not((0010,0020))x\n(0032,4000)=CT "
         "(head) 2",
         {"1:text-after-bracket", "2:text-after-bracket", "3:text-after-bracket"}},
        {"(0010,4000)=Ward #7\n(0020,4000)=#", {"2:trailing-comment"}},
        {"(0010,0010)=x)\n\n(0010,0020)=+(\"a\",\"b\")", {"1:bracket-mismatch", "3:unknown-function"}},
        {"(0010,4000)=\"" + longText + "\"", {"1:unclosed-quote", "1:long-line", "1:missing-equals"}},
        {"#" + std::string(2038, '-') + "(0010,0010)=\"x\"", {"1:long-line"}},
        {"\xEF\xBB\xBF(0010,0010)=\"x\"", {"1:bad-target"}},
        // The first write wins; one that shows that it may come to NULL invites the second.
        {"$(a)=if((0010,0010),\"x\",NULL())\n$(a)=\"y\"\n$(a)=\"z\"\n(0010,0020)=$(a)", {"3:second-write"}},
        {"$(a)=\"x\"\n$(a)=NULL()\n$(a)=\"y\"\n(0010,0020)=$(a)", {}},
        {"(0010,0020)=$(@other)", {}}, // set elsewhere, for all we know
        // Values: each by itself, characters for SH, the reachable branches alone.
        {"(0008,0008)=\"DERIVED\\\\secondary\"", {"1:value-form"}},
        {"(0008,1010)=\"\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\"", {"1:non-ascii"}},
        {"(0008,0060)=translate((0008,0060),(0008,0060),\"ct\",\"Mr\")", {"1:value-form"}},
        {"(0008,0060)=not((0010,0010))", {"1:value-form"}},
        {"(0010,0030)=\"20240229\"\n(0008,0020)=\"20230229\"", {"2:value-form"}},
        {"(0020,0013)=\"2147483647\"\n(0020,0012)=\"2147483648\"", {"2:value-form"}},
        {"(0010,0010)=\"" + std::string(64, 'A') + '=' + std::string(65, 'B') + "\"", {"1:value-too-long"}},
        {"(0011,1001)=NULL()\n(0075,1001)=\"x\"\n(0075,1099)=\"x\"", {"3:unknown-tag"}},
    };
    for (const Case& c : cases) {
        const TempDir dir;
        dir.write("a.map", c.content);
        const ToolRun run = runTool(dir.path(), "check a.map");
        EXPECT_EQ(namesIn(run.output), c.names) << c.content << '\n' << run.output;
    }
}

TEST(ToolCheck, saysWhatToWriteInstead)
{
    struct Case {
        const char* line;
        const char* said;
    };
    constexpr const char* kTwoRules = "this looks like two rules: write each on a line of its own";
    constexpr Case kCases[] = {
        {"(0010,0020)=${site}", "a variable is read with $(site)\n"},
        {"(0010,0020)=$site", "a variable is read with $(site)\n"},
        {"(0010,0020)=\"a\" (0010,0010)=\"b\"", kTwoRules},
        {"(0010,0020)=a; USER(x)=b", kTwoRules},
        {"(0010,0020)=toUpper((0010,0020)) $(x)=\"b\"", kTwoRules},
        {"(0010,0020)=(0010,0021) (0010,0010)=(0010,0020)", kTwoRules},
        {"(0010,0020)=(0008,0060)=\"CT\" and (0010,0020)=\"1\"", "there are no operators between values"},
        {"(0010,0020)=if((0010,0020)=\"x\",\"a\",\"b\")", "there are no operators between values"},
        {"$(id)=(0010,0020)\n(0008,103e)=\"N-$(id)\"", "concat(\"...\",$(id))"},
        {"$(id)=(0010,0020)\n(0008,103e)=\"N-{id}\"", "nothing takes its place"},
        {"(0008,103e)=or((0008 1030),(0008,103e))", "did you mean (0008,1030)?"},
        {"(0008,103e)=or([0008,1030],(0008,103e))", "did you mean (0008,1030)?"},
        {"(0008,1030)='Knee'", "these quotes are part of the text"},
        {"(0008,1030)=translate((0008,0080),\"x\",\"GEN*\",\"y\")", "\"GEN*\" is no pattern"},
        {"(0008,1030)=toUpper[(0008,1030)]", "a call has round brackets: toUpper(...)"},
        {"(0010,4000)=Knee (left)", "put it in quotes where it is meant"},
        {"(0010,4000)=Knee(left)", "put it in quotes where it is meant"},
        {"(0010,4000)=toUpper((0010,4000)) and more", "put the text in quotes where it is meant"},
        {"(0010,4000)=if(equals((0008,0060),\"CT\",\"a\",\"b\")", "1:15: error: this \"(\" is not closed"},
        {"(0010,4000)=if(\"(\",\"a\")", "if(condition,then,otherwise)"},
    };
    for (const Case& c : kCases) {
        const TempDir dir;
        dir.write("a.map", c.line);
        const std::string output = runTool(dir.path(), "check a.map").output;
        EXPECT_NE(output.find(c.said), std::string::npos) << c.line << '\n' << output;
    }
}

TEST(ToolCheck, aFolderIsASet)
{
    const TempDir dir;
    const auto write = [&](const std::string& name, const std::string& text) { dir.write("mappings/" + name, text); };
    write("global/pre.map", "$(@a)=(0010,0010)\n$(p)=\"x\"\n(0010,0020)=$(p)\n");
    write("A.map", "(0010,0020)=$(@a)\n(0010,0021)=$(p)\n$(@a)=\"y\"\n");
    write("B.out.map", "(0010,0020)=$(@late)\n");
    write("global/post.map", "$(@late)=\"x\"\n(0010,0020)=$(@a)\n");
    write("global/other.map", "(0010,0020)=\"x\"\n");
    write("C.MAP", "(0010,0020)=\"x\"\n");
    write("A_TITLE_OF_17_BYT.map", "(0010,0020)=\"x\"\n");
    const std::string output = runTool(dir.path(), "check", Setting{.environment = {{"DICOM_VAR", "."}}}).output;
    const std::vector<std::string> expected = {"1:overwritten", "2:unset-variable", "3:second-write", "1:overwritten",
                                               "1:unset-variable"};
    EXPECT_EQ(namesIn(output), expected) << output;
    for (const char* text :
         {"C.MAP: warning", "global/other.map: warning", "A_TITLE_OF_17_BYT.map: warning", "write $(@p) in both"})
        EXPECT_NE(output.find(text), std::string::npos) << text << '\n' << output;
    EXPECT_EQ(runTool(dir.path(), "check --mappings mappings").output, runTool(dir.path(), "check mappings").output);
    EXPECT_EQ(runTool(dir.path(), "check --mappings mappings/A.map").exitCode, 2);
    EXPECT_EQ(runTool(dir.path(), "check '" KXDCM_EXAMPLES_DIR "/mappings'").output, "");
}

TEST(ToolCheck, showsAWindowAndAligns)
{
    const TempDir dir;
    dir.write("a.map", "\t(0010,0010)=\"x\"\n(0010,0010)=concat(\"\xC3\xBC\",,a)\n(0010,4000)=concat(\"" +
                           std::string(300, 'x') + "\",,b)\n");
    const std::string output = runTool(dir.path(), "check -Wno-non-ascii -Wno-value-too-long a.map",
                                       Setting{.environment = {{"COLUMNS", "60"}}})
                                   .output;
    EXPECT_NE(output.find("    1 |     (0010,0010)=\"x\"\n      | ^~~~\n"), std::string::npos) << output;
    EXPECT_NE(output.find("    2 | (0010,0010)=concat(\"\xC3\xBC\",,a)\n      |                        ^\n"),
              std::string::npos)
        << output;
    EXPECT_NE(output.find("    3 | ..."), std::string::npos) << output;
    std::istringstream lines(output);
    std::string line;
    while (std::getline(lines, line)) {
        EXPECT_TRUE(line.find(" | ") == std::string::npos || line.size() <= 61) << line; // one letter has two bytes
    }
}

TEST(ToolCheck, formatsForPrograms)
{
    const TempDir dir;
    dir.write("a b.map", "(0010,0010)=concat(\"\xC3\xBC\",,a)\n(0010,0020)=\"\xFF\"\n");
    const ToolRun json = runTool(dir.path(), "check --format=json 'a b.map' nope.map");
    EXPECT_EQ(json.exitCode, 2);
    for (const char* text : {R"("version": 1)", R"("rules": 2)", R"("name": "swallowed-comma")", R"("column": 25)",
                             R"("endColumn": 26)", "\"unreadable\": [\n    \"nope.map: No such file"})
        EXPECT_NE(json.output.find(text), std::string::npos) << text << '\n' << json.output;
    const std::string sarif = runTool(dir.path(), "check --format=sarif 'a b.map'").output;
    for (const char* text : {R"("version": "2.1.0")", R"("id": "swallowed-comma")", R"("startColumn": 24)",
                             R"("uri": "a%20b.map")", R"("columnKind": "unicodeCodePoints")"})
        EXPECT_NE(sarif.find(text), std::string::npos) << text << '\n' << sarif;
}

TEST(ToolCommandLine, usage)
{
    const TempDir dir;
    dir.write("good.map", "");
    expectRuns(dir, {
                        {"--version", 0, {"kxmap "}, ""},
                        {"chekc good.map", 2, {}, "kxmap: there is no command \"chekc\"; did you mean \"check\"?\n"},
                        {"-v conformanec", 2, {}, "did you mean \"conformance\"?"},
                        {"xyzzy", 2, {}, "kxmap: there is no command \"xyzzy\"\nRun "},
                        {"check --color maybe good.map", 2, {}, "kxmap: --color: maybe not in {auto,always,never}\n"},
                        {"check --color never -Wno-error good.map", 1, {"empty-file"}, ""},
                        {"try --single good.map -Wno-text -Wno-no-text x", 2, {}, "kxmap: x: No such file"},
                        {"try --single good.map -Wno-texts x", 2, {}, "-Wno-texts: no warning of that name"},
                        {"apply --help", 0, {"--aet TITLE"}, ""},
                        {"", 2, {}, "kxmap: A subcommand is required"},
                        {"apply -o out in", 2, {}, "--aet or --single is required"},
                        {"apply --single good.map --set-user =x -o out in", 2, {}, "NAME=TEXT"},
                        {"apply --aet A -o out in", 2, {}, "kxmap: DICOM_VAR: not set"},
                        {"apply --aet A --mappings nope -o out in", 2, {}, "kxmap: nope: No such file or directory\n"},
                        {"apply --single nope.map -o out in", 2, {}, "kxmap: nope.map: No such file or directory\n"},
                        {"apply --single good.map -o good.map a b", 2, {}, "kxmap: good.map: not a folder"},
                    });
    const ToolRun blind = runTool(dir.path(), "apply --single good.map -o out in", "export DCMDICTPATH=/nope;");
    EXPECT_EQ(blind.exitCode, 2);
    EXPECT_NE(blind.errors.find("data dictionary is not loaded"), std::string::npos) << blind.errors;
}

#endif
