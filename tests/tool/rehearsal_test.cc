// SPDX-License-Identifier: BSD-3-Clause
// kxmap try and kxmap apply --dry-run: they do all that apply does, and so say what it would do.
#ifdef KXDCM_TOOL

#include "tool/applyfixture.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

using namespace kxtest;
using testing::HasSubstr;
using testing::Not;
using Json = nlohmann::json;
namespace fs = std::filesystem;

namespace {

class ToolRehearsal : public ToolApply {
protected:
    ToolRun tryOn(const std::string& rules, const std::string& arguments) const
    {
        dir.write("r.map", rules);
        return run("try --single r.map " + arguments);
    }

    // @return the changes as "place [before] [after]" lines.
    std::string changes(const std::string& rules, const std::string& file = "ct.dcm") const
    {
        const Json told = Json::parse(tryOn(rules, "--format=json " + file).output);
        std::string lines;
        for (const Json& change : told["changes"])
            lines += change["place"].get<std::string>() + " " + change["before"].dump() + " " + change["after"].dump() +
                     "\n";
        return lines;
    }
};

} // namespace

TEST_F(ToolRehearsal, tellsWhatIsWritten)
{
    struct Case {
        const char* rules;
        const char* changes;
    };
    constexpr Case kCases[] = {
        {R"((0002,0016)="AET")", ""},
        {R"((0000,0002)="1.2.3")", ""},
        {R"((0010,0000)="20240131")", "(0010,0000) null \"180\"\n"}, // what is counted
        {R"((0008,1010)="CT01_OC0  ")", ""},                         // padding
        {R"((0008,1010)="x   ")", "(0008,1010) \"CT01_OC0\" \"x\"\n"},
        {R"((0008,1010)="  ")", "(0008,1010) \"CT01_OC0\" \"\"\n"},
        {R"((0020,000d)="1.2.3  ")", "(0020,000d) \"1.3.6.1.4.1.5962.1.2.1.20040119072730.12322\" \"1.2.3\"\n"},
        {"SEQ(0010,1002,0,0010,0020)=\"ABCD1234 \"", ""},
    };
    for (const Case& c : kCases) EXPECT_EQ(changes(c.rules), c.changes) << c.rules;
}

TEST_F(ToolRehearsal, remembersWhatAReplacedSequenceHeld)
{
    DcmFileFormat format;
    ASSERT_TRUE(format.loadFile((dir.path() / "ct.dcm").c_str()).good());
    DcmItem* item = nullptr;
    ASSERT_TRUE(format.getDataset()->findOrCreateSequenceItem(DCM_RequestAttributesSequence, item, 0).good());
    ASSERT_TRUE(item->putAndInsertString(DCM_ScheduledProcedureStepDescription, "head").good());
    ASSERT_TRUE(format.saveFile((dir.path() / "two.dcm").c_str()).good());
    EXPECT_EQ(changes("(0010,1002)=(0040,0275)\nSEQ(0010,1002,0,0010,0020)=\"new\"\nSEQ(0010,1002,0,0040,0007)=\"leg\"",
                      "two.dcm"),
              "(0010,1002) \"<2 items>\" \"<1 item>\"\n"
              "(0010,1002)[0].(0010,0020) \"ABCD1234\" \"new\"\n"
              "(0010,1002)[0].(0040,0007) null \"leg\"\n");
    EXPECT_EQ(changes("SEQ(0010,1002,1,0010,0020)=\"new\"\n(0010,1002)=NULL()\n(0010,1002)=(0040,0275)\n", "two.dcm"),
              "(0010,1002) \"<2 items>\" \"<1 item>\"\n(0010,1002)[1].(0010,0020) \"1234ABCD\" null\n");
    EXPECT_EQ(changes("(0008,1140)=(0010,1002)\nSEQ(0008,1140,0,0010,0020)=\"new\""),
              "(0008,1140) null \"<2 items>\"\n(0008,1140)[0].(0010,0020) null \"new\"\n");
}

TEST_F(ToolRehearsal, failsWhereTheFileCannotBeWritten)
{
    const std::string file = testFile("JPEG2000.dcm");
    const ToolRun tried = tryOn("(7fe0,0010)=\"abc\"\n", file + " ct.dcm");
    EXPECT_EQ(tried.exitCode, 1);
    EXPECT_THAT(tried.output, HasSubstr("  failed: cannot be written: Pixel representation not found\n"));
    EXPECT_THAT(tried.output, HasSubstr("<1 fragment>"));
    EXPECT_THAT(tried.output, Not(HasSubstr("4294967295")));
    EXPECT_THAT(tried.output, HasSubstr("ct.dcm: 0 added, 1 changed"));
    for (const char* way : {"--dry-run", "-o out.dcm"}) {
        const ToolRun applied = run("apply --single r.map " + std::string(way) + " " + file);
        EXPECT_EQ(applied.exitCode, 1) << way;
        EXPECT_EQ(applied.output, "") << way;
        EXPECT_THAT(applied.errors, HasSubstr("Pixel representation not found")) << way;
    }
    EXPECT_EQ(Json::parse(tryOn("(7fe0,0010)=\"abc\"\n", "--format=json " + file).output)["unwritable"],
              "Pixel representation not found");
    EXPECT_EQ(Json::parse(tryOn("(0010,0020)=\"abc\"\n", "--format=json " + file).output)["unwritable"], nullptr);
    // The sequence that would be added to is none.
    DcmFileFormat format;
    ASSERT_TRUE(format.loadFile((dir.path() / "ct.dcm").c_str()).good());
    ASSERT_TRUE(
        format.getDataset()->insert(new DcmLongString(DcmTag(DCM_OriginalAttributesSequence, EVR_LO)), OFTrue).good());
    ASSERT_TRUE(format.saveFile((dir.path() / "odd.dcm").c_str()).good());
    for (const char* way : {"--dry-run", "-o out.dcm"})
        EXPECT_EQ(run("apply --single name.map --original-attributes odd.dcm " + std::string(way)).exitCode, 1) << way;
}

TEST_F(ToolRehearsal, reportsCarryTheWarnings)
{
    dir.write("r.map", "(0008,1010)=\"12345678901234567\"\n(0002,0016)=\"A\"\n(0010,0000)=7\n(0028,0010)=wide\n");
    const Json tried = Json::parse(run("try --format=json --single r.map ct.dcm").output);
    ASSERT_EQ(tried["warnings"].size(), 4U) << tried["warnings"];
    for (const char* way : {"--dry-run", "-o out.dcm"}) {
        ASSERT_EQ(run("apply --single r.map --report r.jsonl ct.dcm " + std::string(way)).exitCode, 0);
        EXPECT_EQ(Json::parse(contentOf(dir.path() / "r.jsonl"))["warnings"], tried["warnings"]) << way;
    }
}

TEST_F(ToolRehearsal, warnsOfNamesThatAreSentInOriginalAttributes)
{
    dir.write("name.out.map", "(0010,0010)=NULL()\nSEQ(0010,1002,0,0010,0020)=\"X\"\n(0008,1010)=\"X\"\n");
    dir.write("other.out.map", "(0008,1010)=\"X\"\n");
    struct Case {
        const char* options;
        const char* names;
    };
    constexpr Case kCases[] = {
        {"--single name.out.map --original-attributes", "PatientID, PatientName"},
        {"--single name.out.map", nullptr},
        {"--single other.out.map --original-attributes", nullptr},
        {"--single name.map --original-attributes", nullptr}, // kept here, which is what it is for
        {"--aet name --mappings . --outbound --original-attributes", "PatientID, PatientName"},
        {"--aet name --mappings . --original-attributes", nullptr},
    };
    for (const Case& c : kCases) {
        const std::string errors = run("apply -o out.dcm ct.dcm " + std::string(c.options)).errors;
        EXPECT_EQ(errors, c.names == nullptr
                              ? ""
                              : "kxmap: warning: --original-attributes keeps in each result what the outbound rules "
                                "replace or remove: " +
                                    std::string(c.names) + "\n")
            << c.options;
    }
}

#endif
