// SPDX-License-Identifier: BSD-3-Clause
// The report of kxmap apply: which file it may be, who may read it, and what happens when nobody takes it.
#ifdef KXDCM_TOOL

#include "tool/applyfixture.h"

#include <nlohmann/json.hpp>

using namespace kxtest;
using Json = nlohmann::json;
namespace fs = std::filesystem;

namespace {

class ToolApplyReport : public ToolApply {
protected:
    ToolRun report(const std::string& file, const std::string& prelude = "", const std::string& behind = "") const
    {
        fs::remove(dir.path() / "out.dcm");
        const std::string arguments = "apply --single name.map -o out.dcm ct.dcm --report " + file + behind;
        return prelude.empty() ? run(arguments) : run(arguments, prelude + "timeout 20");
    }

    fs::perms modeOf(const char* file) const { return fs::status(dir.path() / file).permissions(); }
};

} // namespace

TEST_F(ToolApplyReport, takesThePlaceOfReportsAlone)
{
    struct Case {
        const char* content;
        bool isReport;
    };
    constexpr Case kCases[] = {
        {"", true},
        {R"({"input":"a","output":"b","status":"done","ms":1,"changes":[]})", true},
        {R"({"input":"a\"\\","input_bytes":"a","output":"","output_bytes":"","status":"dry"})", true},
        {"{}", false},
        {"{ \"key\": 1 }", false},
        {R"({"input":"a","status":"done","output":"b"})", false},
        {R"({"input":"a","output":"b"})", false},
        {R"({"output":"b","input":"a","status":"done"})", false},
        {R"({"input":"a)", false},
        {R"({"input":1,"output":"b","status":"done"})", false},
        {"\n{\"input\":\"a\",\"output\":\"b\",\"status\":\"done\"}", false},
    };
    fs::create_symlink("r.jsonl", dir.path() / "link");
    for (const Case& c : kCases) {
        for (const char* name : {"r.jsonl", "link"}) {
            dir.write("r.jsonl", c.content);
            const ToolRun result = report(name);
            EXPECT_EQ(result.exitCode, c.isReport ? 0 : 2) << c.content << result.errors;
            EXPECT_EQ(contentOf(dir.path() / "r.jsonl") == c.content, !c.isReport) << c.content;
            EXPECT_EQ(fs::exists(dir.path() / "out.dcm"), c.isReport) << c.content;
        }
    }
    // One whose names take all the room that names have.
    const std::string name = std::string(4000, '\x01');
    std::string escaped;
    for (std::size_t i = 0; i < name.size(); ++i) escaped += "\\u0001";
    dir.write("r.jsonl", "{\"input\":\"" + escaped + "\",\"output\":\"" + escaped + "\",\"status\":\"done\"}\n");
    EXPECT_EQ(report("r.jsonl").exitCode, 0);
}

TEST_F(ToolApplyReport, isItsOwnersAlone)
{
    ASSERT_EQ(report("r.jsonl", "umask 022;").exitCode, 0);
    EXPECT_EQ(modeOf("r.jsonl"), fs::perms(0600));
    fs::permissions(dir.path() / "r.jsonl", fs::perms(0640)); // someone is to read it
    ASSERT_EQ(report("r.jsonl").exitCode, 0);
    EXPECT_EQ(modeOf("r.jsonl"), fs::perms(0640));
}

TEST_F(ToolApplyReport, goesIntoPipesAndDevices)
{
    const ToolRun full = report("/dev/full");
    EXPECT_EQ(full.exitCode, 2);
    EXPECT_EQ(full.errors, "kxmap: /dev/full: No space left on device: the report is incomplete\n"
                           "kxmap: 1 of 1 files done (0 failed)\n");
    EXPECT_EQ(value("out.dcm", DCM_PatientName), "changed");
    EXPECT_EQ(report("/dev/null").exitCode, 0);

    const ToolRun read = report("/dev/stdout", " ", " | head -c 8");
    EXPECT_EQ(read.output, "{\"input\"");
    const ToolRun unread = report("/dev/stdout", "({ ", "; echo $? >&2; } | true)");
    EXPECT_TRUE(unread.errors.ends_with("\n2\n")) << unread.errors;

    const ToolRun nobody = report("fifo", "mkfifo fifo;");
    EXPECT_EQ(nobody.exitCode, 2);
    EXPECT_EQ(nobody.errors, "kxmap: fifo: a pipe that nobody reads\n");
    EXPECT_FALSE(fs::exists(dir.path() / "out.dcm"));
    EXPECT_EQ(report("fifo", "cat fifo >copy & exec 9>fifo;", " 9>&-; exec 9>&-; wait").exitCode, 0);
    EXPECT_TRUE(contentOf(dir.path() / "copy").ends_with("}\n"));
}

// One reader serves both: what "try" prints of a file is in the report of it, but for the variables.
TEST_F(ToolApplyReport, namesChangesAsTryDoes)
{
    dir.write("name.map", "(0010,0010)=\"M\xfcller\"\n(0008,0080)=NULL()\nUSER(u)=\"1\"\n$(v)=\"1\"\n");
    ASSERT_EQ(report("r.jsonl").exitCode, 0);
    const ToolRun tried = run("try --single name.map --format json ct.dcm");
    const Json reported = Json::parse(contentOf(dir.path() / "r.jsonl"))["changes"];
    Json changes = Json::array();
    const Json whole = Json::parse(tried.output);
    for (const Json& change : whole["changes"]) {
        if (change["kind"] != "variable") changes.push_back(change);
    }
    ASSERT_EQ(reported.size(), 3U);
    for (std::size_t i = 0; i < reported.size(); ++i) {
        for (const auto& [name, member] : changes.at(i).items()) EXPECT_EQ(reported[i].at(name), member) << name;
    }
}

// A limit on the size of files holds for the worker's messages as well, which are kept in memory.
TEST_F(ToolApplyReport, failuresAreToldWhereMessagesCannotBeKept)
{
    const ToolRun result = run("apply --single name.map -o out.dcm ct.dcm 2>&1) | cat", "(ulimit -f 0;");
    EXPECT_EQ(result.output, "kxmap: ct.dcm: failed; the reason could not be stored (see \"ulimit -f\")\n");
}

#endif
