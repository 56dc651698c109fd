// SPDX-License-Identifier: BSD-3-Clause
// What kxmap apply takes for its inputs, and that each is changed once, whatever names lead to it.
#ifdef KXDCM_TOOL

#include "tool/applyfixture.h"

using namespace kxtest;
using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

class ToolApplyInputs : public ToolApply {
protected:
    void SetUp() override
    {
        ToolApply::SetUp();
        dir.write("n.map", "(0010,0020)=concat(\"N-\",(0010,0020))\n");
        copy("CT_small.dcm", "A/b/x.dcm");
        copy("MR_small.dcm", "A/y.dcm");
    }

    // Mounts are this run's own.
    ToolRun runMounted(const std::string& mount, const std::string& arguments) const
    {
        return run(arguments, "exec unshare -m sh -c '" + mount + " && exec \"$@\"' sh");
    }

    bool mayMount() const { return runMounted("mount --bind A A", "--version").exitCode == 0; }
};

} // namespace

// Nothing is written where a file is both read for another place and replaced: a second run could not be told apart.
TEST_F(ToolApplyInputs, noResultIsReadAgain)
{
    fs::create_directory_symlink("A", dir.path() / "L");
    const std::string before = contentOf(dir.path() / "A/b/x.dcm");
    for (const char* names : {"-o A A A/b", "-o A A/b A", "-o L A A/b", "-o A A L/b", "-o A A A/b/x.dcm"}) {
        const ToolRun result = run(std::string("apply --single n.map ") + names);
        EXPECT_EQ(result.exitCode, 2) << names;
        EXPECT_NE(result.errors.find("x.dcm: named for its own place and for "), std::string::npos) << result.errors;
        EXPECT_TRUE(contentOf(dir.path() / "A/b/x.dcm") == before) << names;
        EXPECT_EQ(value("A/y.dcm", DCM_PatientID), "4MR1") << names;
        EXPECT_FALSE(fs::exists(dir.path() / "A/x.dcm")) << names;
    }
    // A result in place of another input was refused always.
    copy("CT_small.dcm", "A/x.dcm");
    EXPECT_EQ(run("apply --single n.map -o A A/b A/x.dcm").exitCode, 1);
    EXPECT_EQ(value("A/x.dcm", DCM_PatientID), "N-1CT1");
}

TEST_F(ToolApplyInputs, eachFileIsChangedOnce)
{
    fs::create_directory_symlink("b", dir.path() / "A/c");
    fs::create_symlink("b/x.dcm", dir.path() / "A/l.dcm");
    EXPECT_EQ(run("apply --single n.map --in-place A A/b A/c A/l.dcm A/./y.dcm -j 3").exitCode, 0);
    EXPECT_EQ(value("A/b/x.dcm", DCM_PatientID), "N-1CT1");
    EXPECT_EQ(value("A/y.dcm", DCM_PatientID), "N-4MR1");
    // Two places are two results of what was read.
    EXPECT_EQ(run("apply --single n.map -o out A A/b").exitCode, 0);
    EXPECT_EQ(value("out/b/x.dcm", DCM_PatientID), "N-N-1CT1");
    EXPECT_EQ(value("out/x.dcm", DCM_PatientID), "N-N-1CT1");
}

// A hard link is a file of its own: left out, it would keep what the rules should have changed.
TEST_F(ToolApplyInputs, hardLinksAreChangedOnceEach)
{
    fs::create_hard_link(dir.path() / "A/y.dcm", dir.path() / "A/z.dcm");
    EXPECT_EQ(run("apply --single n.map --in-place A A/z.dcm").exitCode, 0);
    EXPECT_EQ(value("A/y.dcm", DCM_PatientID), "N-4MR1");
    EXPECT_EQ(value("A/z.dcm", DCM_PatientID), "N-4MR1");
}

TEST_F(ToolApplyInputs, mountsAreNoOtherFiles)
{
    if (!mayMount()) GTEST_SKIP() << "needs the right to mount";
    fs::create_directory(dir.path() / "M");
    dir.write("m.dcm", "");
    const std::string folder = "mount --bind A M";
    EXPECT_EQ(runMounted(folder, "apply --single n.map --in-place A M").exitCode, 0);
    EXPECT_EQ(value("A/b/x.dcm", DCM_PatientID), "N-1CT1");
    EXPECT_EQ(value("A/y.dcm", DCM_PatientID), "N-4MR1");
    EXPECT_EQ(runMounted(folder, "apply --single n.map -o M A A/b").exitCode, 2);
    EXPECT_EQ(runMounted("mount --bind A/y.dcm m.dcm", "apply --single n.map --in-place A m.dcm").exitCode, 0);
    EXPECT_EQ(value("A/y.dcm", DCM_PatientID), "N-N-4MR1");
    EXPECT_EQ(value("A/b/x.dcm", DCM_PatientID), "N-N-1CT1");
}

TEST_F(ToolApplyInputs, listsOfOtherSystems)
{
    const std::string list = "apply --single n.map --in-place --from-file - ";
    struct Case {
        std::string content;
        const char* changed;
    };
    copy("CT_small.dcm", "odd\r");
    const Case cases[] = {{"A/y.dcm\r\nA/b/x.dcm\r\n", "A/b/x.dcm"},
                          {"A/y.dcm\r\nct.dcm", "ct.dcm"},
                          {"odd\r\nA/y.dcm\n", "odd\r"},
                          {"odd\r\0"s, "odd\r"}};
    for (const Case& c : cases) {
        const std::string before = value(c.changed, DCM_PatientID);
        const ToolRun result = run(list, Setting{.input = dir.write("list", c.content)});
        EXPECT_EQ(result.exitCode, 0) << c.content << result.errors;
        EXPECT_EQ(value(c.changed, DCM_PatientID), "N-" + before) << c.content;
    }
}

TEST_F(ToolApplyInputs, aHyphenIsNoFile)
{
    for (const char* wrong : {"-o - ct.dcm", "--report - --in-place ct.dcm"}) {
        const ToolRun result = run(std::string("apply --single n.map ") + wrong);
        EXPECT_EQ(result.exitCode, 2) << wrong;
        EXPECT_NE(result.errors.find("write ./- for one of this name"), std::string::npos) << result.errors;
    }
    EXPECT_FALSE(fs::exists(dir.path() / "-"));
    const ToolRun asInput = run("apply --single n.map -o out - <ct.dcm");
    EXPECT_EQ(asInput.exitCode, 1);
    EXPECT_EQ(asInput.errors, "kxmap: -: standard input is no file to work on; a file of this name is ./-\n");
    EXPECT_EQ(run("apply --single n.map -o ./- ct.dcm").exitCode, 0);
    EXPECT_EQ(value("-", DCM_PatientID), "N-1CT1");
}

// A CD has texts, programs and an index beside its images; what may be an image and is damaged is never left out.
TEST_F(ToolApplyInputs, foreignFilesCanBeLeftOut)
{
    dir.write("A/README.TXT", "The images are in DICOM.\r\n");
    dir.write("A/VIEWER.EXE", "MZ" + std::string(2000, '\0'));
    dir.write("A/icon", std::string("\0\0\1\0\1\0", 6));
    copy("dicomdirtests/DICOMDIR", "A/DICOMDIR");
    copy("ExplVR_BigEndNoMeta.dcm", "A/bare.dcm");
    copy("image_dfl.dcm", "A/deflated.dcm");
    const std::string skip = "apply --single n.map -o out --skip-foreign A ";
    const ToolRun result = run(skip + "--report r.jsonl");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "kxmap: 4 files are skipped: no DICOM files, or a DICOMDIR\n");
    EXPECT_EQ(std::ranges::count(contentOf(dir.path() / "r.jsonl"), '\n'), 4);
    EXPECT_TRUE(value("out/bare.dcm", DCM_PatientID).starts_with("N-"));
    EXPECT_NE(run("try --single n.map --skip-foreign A").exitCode, 2);
    EXPECT_EQ(run("try --single n.map A").exitCode, 2);
    EXPECT_EQ(run(skip + "A/README.TXT").exitCode, 1) << "named itself";

    dir.write("damaged/empty", "");
    dir.write("damaged/zeros", std::string(4000, '\0'));
    dir.write("damaged/cut", contentOf(dir.path() / "ct.dcm").substr(0, 2000));
    dir.write("damaged/meta", contentOf(dir.path() / "ct.dcm").substr(0, 200));
    const ToolRun damaged = run("apply --single n.map -o out --skip-foreign damaged");
    EXPECT_EQ(damaged.exitCode, 1);
    EXPECT_EQ(std::ranges::count(damaged.errors, '\n'), 4) << damaged.errors;
    EXPECT_EQ(damaged.errors.find("skipped"), std::string::npos) << damaged.errors;
}

#endif
