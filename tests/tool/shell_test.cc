// SPDX-License-Identifier: BSD-3-Clause
// kxmap eval and kxmap shell, the shell without a terminal.
#ifdef KXDCM_TOOL

#include "support/fixture.h"
#include "tool/run.h"

#include <gmock/gmock.h>

using namespace kxtest;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

class ToolShell : public WithImage {
protected:
    ToolRun shell(const std::string& lines, const std::string& arguments = "ct.dcm") const
    {
        const TempDir input;
        return runTool(dir.path(), "shell " + arguments, Setting{.input = input.write("lines", lines)});
    }
};

} // namespace

TEST_F(ToolShell, evalPrintsAValueOrSaysNull)
{
    expectExactly(dir,
                  {
                      {"eval 'toUpper((0010,0010))' ct.dcm", 0, "COMPRESSEDSAMPLES^CT1\n", ""},
                      {"eval '(0010,0010)'", 1, "", "kxmap: NULL\n"},
                      {"eval '\"\"'", 0, "\n", ""},
                      {"eval '\"a\tb\"' --raw", 0, "a\tb\n", ""},
                      {"eval '\"a\tb\"'", 0, "a\\x09b\n", ""},
                      {"eval '(0028,0010)' ct.dcm", 0, "\n",
                       "kxmap: note: the element holds \"128\", but rules see no text in its VR\n"},
                      {"eval 'add((0010,0010),1)' ct.dcm", 1, "",
                       "kxmap: Coercion: Invalid parameter at function add: CompressedSamples^CT1\nkxmap: NULL\n"},
                      {"eval 'concat(\"ü\",foo(1))'", 2, "",
                       "kxmap: there is no function \"foo\"\n  concat(\"ü\",foo(1))\n             ^^^\n"},
                      {"eval 'a,b'", 2, "",
                       "kxmap: the right side falls into 2 parts at its commas\n  a,b\n  ^^^\n"
                       "  note: quote a text that holds commas; three parts are text, separator and field number\n"},
                      {"eval ''", 2, "",
                       "kxmap: there is no expression\n  note: \"\" is the empty text, NULL() the absent value\n"},
                      {"eval '(0010,0010)=x'", 0, "(0010,0010)=x\n",
                       "kxmap: note: this is a rule, not an expression; its right side alone is x\n"},
                      {"eval NULL", 0, "NULL\n",
                       "kxmap: note: without brackets this is the text \"NULL\"; NULL() is the absent value; put the "
                       "text in quotes "
                       "where it is meant\n"},
                      {"eval '1' nope.dcm", 2, "", "kxmap: nope.dcm: No such file or directory\n"},
                  });
}

TEST_F(ToolShell, rulesComeAndGo)
{
    const ToolRun run =
        shell("# a note\n(0010,0010)=\"A\"\n$(x)=\"1\"\n$(x)=\"2\"\nconcat((0010,0010),$(x))\n(0010,0020)=NULL()\n"
              ":undo\n:undo\n:undo\n$(x)\n:diff\n:rules\n:quit\n(0010,0010)=\"never\"\n");
    EXPECT_EQ(run.output,
              "set (0010,0010) PatientName: CompressedSamples^CT1 -> A\n"
              "created $(x): - -> 1\n"
              "no change $(x)\n"
              "A1\n"
              "deleted (0010,0020) PatientID: 1CT1 -> -\n"
              "  warning: shell:4: (0010,0020) PatientID: deleted: nothing tells whose object it is [identity]\n"
              "taken back: (0010,0020)=NULL()\n"
              "taken back: $(x)=\"2\"\n"
              "taken back: $(x)=\"1\"\n"
              "NULL\n"
              "0 added, 1 changed, 0 deleted\n"
              "     Tag          Name         VR  Before                 After  Rule\n"
              "  ~  (0010,0010)  PatientName  PN  CompressedSamples^CT1  A      shell:1\n"
              "(0010,0010)=\"A\"\n");
    EXPECT_EQ(run.exitCode, 0) << run.errors;
}

TEST_F(ToolShell, failuresAreToldAndTheOthersGoOn)
{
    const ToolRun run =
        shell("(0010,0020) =\"x\"\n:bogus\n:undo\n:save\n:save out.dcm\n:trace on\n(0010,0020)=NULL(1)\n"
              "(0010,0020)=\"x\"\n",
              "");
    EXPECT_EQ(run.exitCode, 1);
    for (const char* text : {"kxmap: blank before \"=\": the line is dropped\n  (0010,0020) =\"x\"\n             ^\n"
                             "  note: remove the blank: (0010,0020)=\n",
                             "kxmap: :bogus: no such command", "kxmap: there is no rule", "kxmap: :save takes a file",
                             "kxmap: out.dcm: there is nothing to save"})
        EXPECT_THAT(run.errors, HasSubstr(text));
    EXPECT_THAT(run.output, HasSubstr("shell:1  (0010,0020)  PatientID  x      created\n"));
}

TEST_F(ToolShell, explainsMistypedLines)
{
    struct Case {
        const char* line;
        const char* errors; // behind the line and its carets
        const char* first;
    };
    const std::string tooLong = "(0010,0010)=" + std::string(2100, 'x');
    const Case kCases[] = {
        {"toupper((0010,0010))", "  ^^^^^^^\n  note: did you mean \"toUpper\"?\n", "there is no function \"toupper\""},
        {"(0010,0020)=concat(\"a\")", "              ^^^^^^", "\"concat\" takes 2 or more arguments, and here are 1"},
        {"(0010,0020)=\"ü\"+foo(1)", "note: ", "there is no function"},
        {"patient=x", "  ^^^^^^^\n  note: a target is (gggg,eeee), SEQ(...), $(name) or USER(name)\n", "is no target"},
        {"PatientID=x", "  ^^^^^^^^^\n  note: did you mean (0010,0020)?\n", "\"PatientID\" is no target"},
        {"(10,20)=x", "  ^^^^^^^\n  note: did you mean (0010,0020)?\n", "\"(10,20)\" is no tag"},
        {"SEQ(0010,1002,0)=x", "  note: name the tag in that item: ", "SEQ has 3 pieces"},
        {"=x", "  =x\n  ^\n", "nothing stands before \"=\""},
        {tooLong.c_str(), "  ^", "Longer than a line of a mapping file may be"},
    };
    for (const Case& c : kCases) {
        const ToolRun run = shell(c.line + std::string("\n:rules\n"));
        EXPECT_EQ(run.exitCode, 1) << c.line;
        EXPECT_EQ(run.output, "") << c.line;
        EXPECT_THAT(run.errors, HasSubstr(c.errors)) << c.line;
        EXPECT_THAT(run.errors.substr(0, run.errors.find('\n')), HasSubstr(c.first)) << c.line;
    }
}

TEST_F(ToolShell, saysWhatRulesSee)
{
    struct Case {
        const char* lines;
        const char* output;
    };
    constexpr Case kCases[] = {
        {"(0028,0010)", "\"\"\nnote: the element holds \"128\", but rules see no text in its VR\n"},
        {"(0010,1002)", "\"\"\nnote: the element holds \"<2 items>\", but rules see no text in its VR\n"},
        {"toUpper($id)", "note: this is the text \"$id\"; a variable is read with $(id)\n$ID\n"},
        {"$(v)=(0028,0010)\nequals($(v),\"\")", "created $(v): - -> \"\"\n  warning: shell:1: $(v): \"128\" is an "
                                                "element in which rules see no text: an empty one "
                                                "was written [no-text]\ntrue\n"},
        {":trace on\n(0018,0060)=div(1,0)",
         "  shell:1  (0018,0060)  KVP   NULL                                      deleted\n"
         "                              Coercion: divide by zero at function div\n"},
        // A random number that is only looked at is still there for the next rule.
        {"rnd(1000)\n(0010,0020)=rnd(1000)\n(0010,0020)=rnd(1000)\n:undo\nrnd(1000)",
         "484\nset (0010,0020) PatientID: 1CT1 -> 484\nset (0010,0020) PatientID: 484 -> 679\n"
         "taken back: (0010,0020)=rnd(1000)\n679\n"},
    };
    for (const Case& c : kCases) {
        const ToolRun run = shell(std::string(c.lines) + "\n");
        EXPECT_THAT(run.output, testing::EndsWith(c.output)) << c.lines;
        EXPECT_EQ(run.errors, "") << c.lines;
    }
}

// A line costs what it does, not what all lines before it did: with these, the latter would take minutes.
TEST_F(ToolShell, readsManyLines)
{
    std::string lines;
    for (int i = 0; i < 2000; ++i)
        lines += "(0010,4000)=concat((0010,0020),\"" + std::to_string(i) + "\")\n(0010,4000)\n";
    const ToolRun run = shell(lines + ":undo\n(0010,4000)\n");
    EXPECT_EQ(run.exitCode, 0) << run.errors;
    EXPECT_TRUE(run.output.ends_with("\n1CT11999\ntaken back: (0010,4000)=concat((0010,0020),\"1999\")\n1CT11998\n"));
}

TEST_F(ToolShell, savesWhatWasRead)
{
    // In place twice, with the UIDs of the file meta information there and back; compressed pixel data stay.
    fs::copy_file(testFile("MR_small_RLE.dcm"), dir.path() / "mr.dcm");
    const std::string before = contentOf(dir.path() / "mr.dcm");
    EXPECT_EQ(shell("(0008,0018)=\"1.2.3\"\n:save! mr.dcm\n:save other.dcm\n:undo\n:save! mr.dcm\n", "mr.dcm").exitCode,
              0);
    EXPECT_TRUE(contentOf(dir.path() / "mr.dcm") == before);
    DcmFileFormat format;
    ASSERT_TRUE(format.loadFile((dir.path() / "other.dcm").c_str()).good());
    EXPECT_EQ(textOf(*format.getMetaInfo(), DCM_MediaStorageSOPInstanceUID), "1.2.3");
}

TEST_F(ToolShell, savesInPlaceOnlyWhenToldSo)
{
    fs::create_hard_link(dir.path() / "ct.dcm", dir.path() / "same.dcm");
    const std::string before = contentOf(dir.path() / "ct.dcm");
    const ToolRun run = shell("(0010,0020)=\"N\"\n:save ct.dcm\n:save ./same.dcm\n:save new.dcm\n:save new.dcm\n");
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_THAT(run.errors, HasSubstr("kxmap: ct.dcm: this file was read; \":save! ct.dcm\" replaces it\n"));
    EXPECT_THAT(run.output, testing::EndsWith("saved new.dcm\nsaved new.dcm\n"));
    EXPECT_TRUE(contentOf(dir.path() / "ct.dcm") == before);
}

TEST_F(ToolShell, completion)
{
    struct Case {
        const char* text;
        const char* expected;
    };
    constexpr Case kCases[] = {
        {"toU", "toUpper(\n"},
        {"to", "to\n  toLower(\n  toUpper(\n"},
        {"concat(PatientName", "concat((0010,0010)\n"},
        {"PatientBirthDat",
         "PatientBirthDate\n  PatientBirthDate  (0010,0030)\n  PatientBirthDateInAlternativeCalendar  (0010,0033)\n"},
        {"concat((0010,004", "concat((0010,0040)\n"},
        {"(0012,0062", "(0012,0062)\n"}, // not in the dataset
        {"equals(\"PatientName", "equals(\"PatientName\n"},
        {"$(fi", "$(first)\n"},
        {"USER(", "USER(ward)\n"},
        {":un", ":undo\n"},
        {"xyzzy", "xyzzy\n"},
    };
    for (const Case& c : kCases) {
        const ToolRun run = shell(std::string("$(first)=1\nUSER(ward)=7\n:complete ") + c.text + "\n");
        const std::string_view output(run.output);
        const std::size_t begin = output.find('\n', output.find('\n') + 1) + 1;
        EXPECT_EQ(output.substr(begin), c.expected) << c.text;
    }
}

#endif
