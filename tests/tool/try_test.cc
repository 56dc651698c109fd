// SPDX-License-Identifier: BSD-3-Clause
// kxmap try: what it shows of changes, what it warns of and what it does not, and that it writes nothing.
#ifdef KXDCM_TOOL

#include "KXItem.h"
#include "support/fixture.h"
#include "tool/run.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using namespace kxtest;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

class ToolTry : public WithImage {
protected:
    ToolRun run(const std::string& rules, const std::string& options = "ct.dcm") const
    {
        dir.write("r.map", rules);
        return runTool(dir.path(), "try --single r.map " + options);
    }

    // @return the names of the warnings, in their order.
    std::string warnings(const std::string& rules, const std::string& file = "ct.dcm") const
    {
        const std::string output = run(rules, file).output;
        std::string names;
        for (std::size_t at = 0; (at = output.find("  warning: ", at)) != std::string::npos; ++at) {
            const std::size_t end = output.find('\n', at);
            const std::size_t begin = output.rfind('[', end) + 1;
            names += (names.empty() ? "" : " ") + output.substr(begin, end - 1 - begin);
        }
        return names;
    }
};

} // namespace

TEST_F(ToolTry, showsChangesWithTheirRules)
{
    const std::string before = contentOf(dir.path() / "ct.dcm");
    const ToolRun result = run("(0008,1010)=\"ROOM\"\n\n(0008,1010)=concat((0008,1010),\" 1\")\n(0008,103e)=\" x\\n\"\n"
                               "(0010,1010)=NULL()\n(0008,0060)=(0008,0060)\n(0008,1030)=\"a\"\n(0008,1030)=\"e+1\"\n"
                               "SEQ(0010,1002,1,0010,0021)=\"JFK\"\nUSER(u)=$(v)\n$(v)=\"\"\nUSER(w)=\"kept\"\n",
                               "--set-user w=7B ct.dcm");
    EXPECT_EQ(result.output,
              "ct.dcm: 2 added, 2 changed, 1 deleted; 1 warning\n"
              "     Tag                         Name               VR  Before    After     Rule\n"
              "  ~  (0008,1010)                 StationName        SH  CT01_OC0  ROOM 1    r.map:1, r.map:3\n"
              "  +  (0008,103e)                 SeriesDescription  LO  -         \" x\\x0A\"  r.map:4\n"
              "  +  (0010,1002)[1].(0010,0021)  IssuerOfPatientID  LO  -         JFK       r.map:9\n"
              "  -  (0010,1010)                 PatientAge         AS  000Y      -         r.map:5\n"
              "  ~  USER(w)                                            7B        kept      r.map:12\n"
              "  +  $(v)                                               -         \"\"        r.map:11\n"
              "  warning: r.map:4: (0008,103e) SeriesDescription: LO holds text without control characters, and not "
              "\" x?\" [form]\n");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(contentOf(dir.path() / "ct.dcm") == before);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), 2);
}

TEST_F(ToolTry, namesTheRuleThatTookTheSequenceAway)
{
    EXPECT_THAT(
        run("SEQ(0010,1002,0,0010,0020)=\"X\"\n(0010,1002)=NULL()\n").output,
        HasSubstr(
            "  -  (0010,1002)[0].(0010,0020)  PatientID                LO  ABCD1234   -      r.map:1, r.map:2\n"));
}

TEST_F(ToolTry, warnsOfWhatRulesMadeWrong)
{
    struct Case {
        const char* rule;
        const char* names;
    };
    constexpr Case kCases[] = {
        {R"((0008,1010)="1234567890123456")", ""},
        {R"((0008,1010)="12345678901234567")", "length"},
        {"(0008,1010)=\"\xC4\xD6\xDC\xE4\xF6\xFC\xC4\xD6\xDC\xE4\xF6\xFC\xC4\xD6\xDC\xE4\"", ""}, // sixteen of Latin-1
        {"(0008,1010)=\"M\xC3\xBCller\"", "charset"},                                             // UTF-8
        {"(0008,0005)=\"\"\n(0008,1010)=\"\xDC\"", "charset"},
        {"(0008,0005)=\"ISO_IR 192\"\n(0008,1010)=\"\xC3\x9C\"", ""}, // no other text is more than ASCII
        {R"((0008,0023)="2004-01-19")", "form"},
        {R"((0008,1010)="a\\b")", "multiplicity"},
        {"(0028,0010)=129", "pixels"},
        {"(0028,0010)=70000", "pixels not-taken"},
        {"(0028,0011)=wide", "not-taken"},
        {"(0018,0050)=(0028,0010)", "no-text"},
        {"(0028,0011)=(0028,0010)\n(0020,9164)=or((0028,0010),\"x\")\nUSER(u)=(0028,0010)\n$(v)=(7fe0,0010)",
         "no-text no-text no-text"},
        {"(0002,0010)=1.2.3", "header-group"},
        {"(0020,000d)=1.2.3\n(0008,0016)=NULL()\n(0008,0060)=\"\"", "identity identity identity"},
        {"(0010,0020)=\"X-1CT1\"", ""},
        {"(0010,0020)=NULL()", "identity"},
        {"(0020,000d)=1.2.3\n(0020,000d)=1.3.6.1.4.1.5962.1.2.1.20040119072730.12322", ""}, // as it was
    };
    for (const Case& c : kCases) EXPECT_EQ(warnings(c.rule), c.names) << c.rule;
}

TEST_F(ToolTry, doesNotWarnOfTheSendersValues)
{
    DcmFileFormat format;
    ASSERT_TRUE(format.loadFile((dir.path() / "ct.dcm").c_str()).good());
    DcmDataset& dataset = *format.getDataset();
    ASSERT_TRUE(dataset.putAndInsertString(DCM_StationName, "a station's much too long name").good());
    ASSERT_TRUE(dataset.putAndInsertString(DCM_StudyDescription, "\xC3\xBC").good());
    ASSERT_TRUE(dataset.putAndInsertString(DCM_SeriesDescription, "\xFC").good());
    ASSERT_TRUE(format.saveFile((dir.path() / "faulty.dcm").c_str()).good());
    EXPECT_EQ(warnings("(0008,1010)=toUpper((0008,1010))\n(0008,1030)=concat((0008,1030),\"x\")", "faulty.dcm"), "");
    EXPECT_EQ(warnings("(0008,1030)=(0008,1010)\n(0008,1050)=(0008,1030)\n(0008,1010)=(0008,1010)", "faulty.dcm"), "");
    const ToolRun relabelled = run("(0008,0005)=\"ISO_IR 192\"", "faulty.dcm");
    EXPECT_THAT(relabelled.output, HasSubstr("changed from ISO_IR 100 to ISO_IR 192, and 2 texts"));
    EXPECT_THAT(relabelled.output, HasSubstr("[relabelled]"));
}

TEST_F(ToolTry, traceAndJson)
{
    const std::string rules =
        "(0010,1010)=add(\"x\",1)\n(0010,9999)=1\nSEQ(0040,0275,0,0040,0007)=1\n(0018,9073)=NULL()\n";
    const ToolRun trace = run(rules, "--trace ct.dcm");
    for (const char* line :
         {"r.map:1  (0010,1010)                 PatientAge                         NULL",
          "Coercion: Invalid parameter at function add: x\n", "skipped as unknown\n", "no such item\n", "was absent\n"})
        EXPECT_THAT(trace.output, HasSubstr(line));
    EXPECT_EQ(trace.exitCode, 0);
    const ToolRun json = run("(0010,0010)=\"\xFC\"\n", "--format=json --trace ct.dcm");
    const std::string place = R"-("kind":"element","place":"(0010,0010)","name":"PatientName",)-";
    const std::string rule = R"-({"file":"r.map","line":1,"text":"(0010,0010)=\"\\xFC\""})-";
    const std::string texts = R"-("before":"CompressedSamples^CT1","after":"ü",)-";
    EXPECT_EQ(json.output, R"-({"file":"ct.dcm","aet":"","changes":[{"sign":"~",)-" + place + R"-("vr":"PN",)-" +
                               texts + R"-("rules":[)-" + rule + R"-(]}],"trace":[{"rule":)-" + rule + "," + place +
                               R"-("value":"ü","effect":"set",)-" + texts +
                               R"-("messages":[]}],"warnings":[],"failure":null,"unwritable":null})-"
                               "\n");
}

TEST_F(ToolTry, charactersAndColours)
{
    const auto tryTitle = [this](const std::string& file, const std::string& rule) {
        return run(rule, "'" KXDCM_PYDICOM_DATA "/charset_files/" + file + ".dcm'").output;
    };
    const std::string rule = "(0008,1030)=(0010,0010)";
    EXPECT_THAT(tryTitle("chrH31", rule), HasSubstr("Yamada^Tarou=山田^太郎=やまだ^たろう"));
    EXPECT_THAT(tryTitle("chrH32", rule), HasSubstr("ﾔﾏﾀﾞ^ﾀﾛｳ=山田^太郎=やまだ^たろう"));
    EXPECT_THAT(tryTitle("chrX2", rule), HasSubstr("Wang^XiaoDong=王^小东"));
    EXPECT_THAT(tryTitle("chrI2", rule), HasSubstr("Hong^Gildong=洪^吉洞=홍^길동"));
    EXPECT_THAT(run("(0008,1030)=\"a\xA0\x1B[2J\"", "ct.dcm").output, HasSubstr("\\x1B[2J"));
    EXPECT_THAT(run("(0008,1030)=\"x\"", "--color always ct.dcm").output, HasSubstr("\x1B[33m~\x1B[0m"));
    EXPECT_EQ(run("(0008,1030)=\"x\"").output.find('\x1B'), std::string::npos);
    // In a narrow terminal texts go on in the next line, and nothing is cut.
    dir.write("r.map", "(0008,1030)=\"CT of the abdomen, with contrast\"");
    const std::string narrow =
        runTool(dir.path(), "try --single r.map ct.dcm", Setting{.environment = {{"COLUMNS", "60"}}}).output;
    for (const char* part : {"CT of the", "abdomen,", "with", "contrast"}) EXPECT_THAT(narrow, HasSubstr(part));
}

TEST_F(ToolTry, saysWhatEachRuleDid)
{
    struct Case {
        const char* rule;
        const char* effect;
    };
    constexpr Case kCases[] = {
        {"(0008,1010)=\"x\"", "set"},
        {"(0008,1010)=\" x\"", "set"},
        {"(0008,1010)=\" x  \"", "no change"}, // but for padding
        {"(0008,1010)=(0008,1010)", "no change"},
        {"(0008,1010)=(0028,0010)", "set"}, // to nothing
        {"(0028,0010)=\"wide\"", "no change"},
        {"(0028,0011)=(0028,0010)", "no change"}, // 128 both
        {"(0028,0011)=(0028,0100)", "set"},
        {"(0028,0012)=(0028,0010)", "created"},
        {"(0008,1140)=\"x\"", "created"}, // an empty sequence
        {"SEQ(0010,1002,0,0010,0020)=\"X\"", "set"},
        {"SEQ(0010,1002,1,0010,0020)=NULL()", "deleted"},
        {"SEQ(0010,1002,9,0010,0020)=NULL()", "no such item"},
        {"SEQ(0010,0010,0,0010,0020)=\"X\"", "no such item"},
        {"(0010,1002)=NULL()", "deleted"},
        {"SEQ(0010,1002,0,0010,0020)=\"X\"", "no such item"},
        {"(0010,1002)=NULL()", "was absent"},
        {"(0011,1001)=\"x\"", "skipped as unknown"},
        {"(fffe,e000)=\"x\"", "skipped as unknown"},
        {"(0011,1001)=NULL()", "was absent"},
        {"USER(u)=(0028,0010)", "created"},
        {"USER(u)=\"\"", "no change"},
        {"USER(u)=\"1\"", "set"},
        {"USER(u)=NULL()", "deleted"},
        {"USER(u)=NULL()", "was absent"},
        {"$(@v)=\"1\"", "created"},
        {"$(@v)=\"2\"", "no change"}, // the first write wins
        {"$(@v)=NULL()", "deleted"},
        {"$(@v)=\"2\"", "created"},
    };
    std::string rules;
    for (const Case& c : kCases) rules += std::string(c.rule) + "\n";
    const auto result = nlohmann::json::parse(run(rules, "--trace --format=json ct.dcm").output);
    ASSERT_EQ(result["trace"].size(), std::size(kCases));
    for (std::size_t i = 0; i < std::size(kCases); ++i)
        EXPECT_EQ(result["trace"][i]["effect"], kCases[i].effect) << i << ": " << kCases[i].rule;
    EXPECT_EQ(result["trace"][20]["value"], ""); // what was stored, not 128
}

TEST_F(ToolTry, refusesABlockThatIsAnothers)
{
    DcmFileFormat format;
    ASSERT_TRUE(format.loadFile((dir.path() / "ct.dcm").c_str()).good());
    const DcmTagKey creator(KXItem::kGroup, KXItem::kCreatorElement);
    ASSERT_TRUE(format.getDataset()->putAndInsertString(DcmTag(creator, EVR_LO), "SOMEONE ELSE").good());
    ASSERT_TRUE(format.saveFile((dir.path() / "other.dcm").c_str()).good());
    EXPECT_THAT(run("(0075,1001)=\"1\"", "--trace ct.dcm").output, HasSubstr("created"));
    EXPECT_THAT(run("(0075,1001)=\"1\"", "--trace other.dcm").output, HasSubstr("refused"));
}

TEST_F(ToolTry, warningsCanBeSwitchedOff)
{
    const char* const rules = "(0010,0020)=NULL()\n(0008,0023)=\"x\"";
    EXPECT_EQ(run(rules, "-Wno-identity -Wno-form ct.dcm").exitCode, 0);
    EXPECT_THAT(run(rules, "-Wno-all -Widentity ct.dcm").output, HasSubstr("; 1 warning\n"));
    EXPECT_EQ(run(rules, "-Wno-all --format=json ct.dcm").output.find("[form]"), std::string::npos);
    EXPECT_EQ(run(rules, "-Wno-nothing ct.dcm").exitCode, 2);
    EXPECT_THAT(runTool(dir.path(), "try --list-warnings").output, HasSubstr("\nheader-group"));
}

TEST_F(ToolTry, exitCodes)
{
    EXPECT_EQ(run("(0008,1030)=\"x\"\n").exitCode, 0);
    const ToolRun dropped = run("(0008,1030) =\"x\"\n");
    EXPECT_EQ(dropped.exitCode, 1);
    EXPECT_THAT(dropped.errors, HasSubstr("1 rule dropped, the first at line 1"));
    const ToolRun missing = run("(0008,1030)=\"x\"\n", "nope.dcm ct.dcm");
    EXPECT_EQ(missing.exitCode, 2);
    EXPECT_THAT(missing.output, HasSubstr("ct.dcm: 0 added, 1 changed"));
    EXPECT_EQ(runTool(dir.path(), "try ct.dcm").exitCode, 2);
}

#endif
