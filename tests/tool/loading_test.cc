// SPDX-License-Identifier: BSD-3-Clause
// Which mapping files kxmap reads for a run, and that it reads them as a server does.
#ifdef KXDCM_TOOL

#include "kxmap/core/guards.h"
#include "tool/applyfixture.h"

#include <gmock/gmock.h>

#include <string>

using namespace kxtest;
using namespace std::string_literals;
using testing::HasSubstr;
using testing::Not;
namespace fs = std::filesystem;

namespace {

class ToolLoading : public ToolApply {
protected:
    // What the library makes of the file.
    std::string expected(const fs::path& mapping, DcmTagKey key) const
    {
        DcmFileFormat format;
        EXPECT_TRUE(format.loadFile((dir.path() / "ct.dcm").c_str()).good());
        const LogCapture quiet(dcmtk::log4cplus::OFF_LOG_LEVEL); // of lines that are dropped
        const kxmap::FileHandle file(std::fopen(mapping.c_str(), "rt"));
        Mapping read(file.get(), "T");
        MappingSession session;
        session.dataset = format.getDataset();
        read.apply(session);
        return textOf(*format.getDataset(), key);
    }
};

const std::string kPiece(2039, 'x'); // what the engine's reader takes at once

} // namespace

TEST_F(ToolLoading, readsOddFilesAsTheLibraryDoes)
{
    const std::string rule = "(0010,0020)=\"read\"";
    const std::string cases[] = {
        "",
        "\n",
        rule,
        rule + "\r\n(0010,0010)=\"x\"\r\n",
        "(0010,0010)=\"x\"\r" + rule,
        "(0010,0010)=\"a\0b\"\n"s + rule + "\n",
        "\0\n"s + rule + "\n",
        rule + "\0\n(0010,0010)=\"x\""s,
        "\0"s,
        "\xEF\xBB\xBF" + rule + "\n(0010,0010)=\"x\"\n",
        "#" + kPiece.substr(1) + rule + "\n(0010,0010)=\"x\"",
        "#" + kPiece.substr(2) + rule + "\n",
        "#" + kPiece.substr(1) + "\n" + rule,
        "(0010,0010)=\"" + kPiece + "\"\n" + rule,
        "(0010,0010)=" + std::string(5000, 'y') + rule,
        "#" + kPiece.substr(1) + "\0"s + rule + "\n" + rule,
        std::string(100, '\n') + rule,
    };
    for (const std::string& content : cases) {
        dir.write("odd.map", content);
        for (const char* way : {"", " --report r.jsonl"}) {
            const ToolRun result = run("apply --single odd.map -o out.dcm ct.dcm"s + way);
            EXPECT_NE(result.exitCode, 2) << result.errors;
            for (const DcmTagKey& key : {DCM_PatientID, DCM_PatientName})
                EXPECT_EQ(value("out.dcm", key), expected(dir.path() / "odd.map", key)) << content << way;
        }
    }
}

TEST_F(ToolLoading, carriesVariablesFromOneMappingToTheNext)
{
    dir.write("maps/global/pre.map", "$(@lasting)=\"pre\"\n$(plain)=\"pre\"\n(0008,1030)=\"pre\"\n");
    dir.write("maps/T.map",
              "(0008,103e)=concat($(@lasting),\"-\",or($(plain),\"none\"))\n(0008,1030)=concat((0008,1030)"
              ",\" title\")\n$(@lasting)=NULL()\n$(@lasting)=\"title\"\n");
    dir.write("maps/global/post.map", "(0008,1030)=concat((0008,1030),\" \",$(@lasting))\n");
    for (const char* way : {"", " --report r.jsonl"}) {
        ASSERT_EQ(run("apply --aet T --mappings maps -o out.dcm ct.dcm"s + way).exitCode, 0);
        EXPECT_EQ(value("out.dcm", DCM_SeriesDescription), "pre-none") << way;
        EXPECT_EQ(value("out.dcm", DCM_StudyDescription), "pre title title") << way;
    }
}

TEST_F(ToolLoading, readsTheFilesOfTheRunAlone)
{
    dir.write("maps/T.map", "(0010,0020)=\"in\"\n");
    dir.write("maps/T.out.map", "(0010,0020)=\"out\"\n");
    dir.write("maps/OTHER.map", "(0010,0020)=\"other\"\n");
    const ToolRun inbound = run("-d apply --aet T --mappings maps -o out.dcm ct.dcm", "TMPDIR=/nonexistent");
    EXPECT_EQ(inbound.exitCode, 0) << inbound.errors;
    EXPECT_EQ(value("out.dcm", DCM_PatientID), "in");
    EXPECT_THAT(inbound.errors, Not(HasSubstr("OTHER")));
    EXPECT_EQ(run("apply --aet T --outbound --mappings maps -o out.dcm ct.dcm").exitCode, 0);
    EXPECT_EQ(value("out.dcm", DCM_PatientID), "out");
}

TEST_F(ToolLoading, noticesAnAeTitleWithoutAFile)
{
    dir.write("maps/global/pre.map", "(0010,0020)=\"pre\"\n");
    dir.write("maps/global/outpost.map", "(0010,0020)=\"post\"\n");
    for (const char* file : {"maps/CT1.map", "maps/ARCHIVE.out.map", "alone/CT1.map", "alone/ARCHIVE.out.map"})
        dir.write(file, "(0010,0010)=\"x\"\n");
    struct Case {
        const char* title;
        const char* missing; // behind "no file "; empty for a title that has one
        const char* hint;
    };
    constexpr Case kCases[] = {
        {"CT1", "", ""},
        {"ct1", "ct1.map", "; did you mean CT1?"},
        {"CT*", "CT*.map", "; did you mean CT1?"},
        {"CT11", "CT11.map", "; did you mean CT1?"},
        {"MR2", "MR2.map", ""},
        {"ARCHIVE --outbound", "", ""},
        {"ARCHVE --outbound", "ARCHVE.out.map", "; did you mean ARCHIVE?"},
        {"CT1 --outbound", "CT1.out.map", ""},
    };
    for (const Case& c : kCases) {
        const std::string title = "--aet "s + c.title;
        const std::string missing = c.missing;
        for (const char* command : {"try", "apply --dry-run"}) {
            const ToolRun there = run(command + " ct.dcm --mappings maps "s + title);
            EXPECT_EQ(there.exitCode, 0) << title << there.errors;
            const std::string hint = ": the global mapping files alone apply"s + c.hint;
            EXPECT_EQ(there.errors, missing.empty() ? "" : "kxmap: warning: no file " + missing + hint + "\n");
            const ToolRun none = run(command + " ct.dcm --mappings alone "s + title);
            EXPECT_EQ(none.exitCode, missing.empty() ? 0 : 2) << title << none.errors;
            if (missing.empty()) continue;
            EXPECT_THAT(none.errors, HasSubstr("no mapping file applies to AE title "));
            EXPECT_THAT(none.errors, HasSubstr(c.hint));
        }
    }
}

#endif
