// SPDX-License-Identifier: BSD-3-Clause
// kxmap apply on real files: where results go, what of a file is kept, and what happens when something fails.
#ifdef KXDCM_TOOL

#include "support/fixture.h"
#include "tool/run.h"

#include <dcmtk/dcmdata/dcmetinf.h>
#include <sys/stat.h>

using namespace kxtest;
namespace fs = std::filesystem;

namespace {

const std::string kTestFiles = KXDCM_PYDICOM_DATA "/test_files/";

// A folder with a mapping file, a set, and whatever files a test copies into it.
class ToolApply : public testing::Test {
protected:
    void SetUp() override
    {
        dir.write("name.map", "(0010,0010)=\"changed\"\n");
        dir.write("none.map", "");
        copy("CT_small.dcm", "ct.dcm");
    }

    void copy(const std::string& from, const std::string& to) const
    {
        fs::create_directories((dir.path() / to).parent_path());
        fs::copy_file(kTestFiles + from, dir.path() / to);
    }

    std::string value(const std::string& file, DcmTagKey key) const
    {
        DcmFileFormat format;
        if (format.loadFile((dir.path() / file).c_str()).bad()) return "unreadable";
        DcmItem& item = key.getGroup() == 2 ? static_cast<DcmItem&>(*format.getMetaInfo()) : *format.getDataset();
        return textOf(item, key);
    }

    ToolRun run(const std::string& arguments, const std::string& prelude = "") const
    {
        const ToolRun result = runTool(dir.path(), arguments, prelude);
        for (const auto& entry : fs::recursive_directory_iterator(dir.path()))
            EXPECT_FALSE(entry.path().filename().native().starts_with(".kxmap-"))
                << entry.path() << " after " << arguments;
        return result;
    }

    const TempDir dir;
};

} // namespace

TEST_F(ToolApply, setAppliesPreThenTitleThenPost)
{
    dir.write("rules/global/pre.map", "$(@a)=\"pre\"\n");
    dir.write("rules/CT1.map", "$(@b)=concat($(@a),\"-title\")\n");
    dir.write("rules/global/post.map", "(0010,0010)=concat($(@b),\"-post\")\n");
    dir.write("rules/CT1.out.map", "(0010,0010)=\"outbound\"\n");
    EXPECT_EQ(run("apply --aet CT1 --mappings rules -o a.dcm ct.dcm").exitCode, 0);
    EXPECT_EQ(value("a.dcm", DCM_PatientName), "pre-title-post");
    EXPECT_EQ(run("apply --aet CT1 --mappings rules --outbound -o b.dcm ct.dcm").exitCode, 0);
    EXPECT_EQ(value("b.dcm", DCM_PatientName), "outbound");
    const ToolRun fromVariable = run("apply --aet CT1 -o c.dcm ct.dcm", "mv rules mappings; export DICOM_VAR=.;");
    EXPECT_EQ(fromVariable.exitCode, 0) << fromVariable.errors;
    EXPECT_EQ(value("c.dcm", DCM_PatientName), "pre-title-post");
}

TEST_F(ToolApply, untouchedFilesStayAsTheyAre)
{
    // Explicit and implicit, big endian, encapsulated, both manners of sequence lengths, without meta information.
    for (const char* name :
         {"CT_small.dcm", "MR_small_implicit.dcm", "rtdose_expb.dcm", "MR_small_RLE.dcm", "JPEG-lossy.dcm",
          "JPEG2000.dcm", "reportsi.dcm", "test-SR.dcm", "ExplVR_BigEndNoMeta.dcm", "priv_SQ.dcm"}) {
        EXPECT_EQ(run("apply --single none.map -o out.dcm '" + kTestFiles + name + "'").exitCode, 0) << name;
        EXPECT_TRUE(contentOf(dir.path() / "out.dcm") == contentOf(kTestFiles + name)) << name;
    }
    EXPECT_EQ(run("apply --single name.map -o out.dcm " + kTestFiles + "image_dfl.dcm").exitCode, 0);
    EXPECT_EQ(value("out.dcm", DCM_TransferSyntaxUID), "1.2.840.10008.1.2.1.99");
    EXPECT_EQ(value("out.dcm", DCM_PatientName), "changed");
}

TEST_F(ToolApply, metaInformationFollowsUidsAndNothingElse)
{
    dir.write("uids.map", "(0008,0016)=\"1.2.3\"\n(0008,0018)=\"1.2.3.4.5\"\n(0002,0016)=\"RULE\"\n");
    const std::string senderBefore = value("ct.dcm", DCM_SourceApplicationEntityTitle);
    const ToolRun result = run("apply --single uids.map -o out.dcm ct.dcm");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "kxmap: warning: ct.dcm: (0002,0016) is no part of a dataset and is left out\n");
    EXPECT_EQ(value("out.dcm", DCM_MediaStorageSOPClassUID), "1.2.3");
    EXPECT_EQ(value("out.dcm", DCM_MediaStorageSOPInstanceUID), "1.2.3.4.5");
    EXPECT_EQ(value("out.dcm", DCM_SourceApplicationEntityTitle), senderBefore);
    EXPECT_EQ(value("out.dcm", DCM_TransferSyntaxUID), "1.2.840.10008.1.2.1");
    // Byte by byte, since DCMTK forgives a wrong group length: it counts from behind its own element to the dataset.
    const std::string bytes = contentOf(dir.path() / "out.dcm");
    const auto groupLength = static_cast<std::size_t>(static_cast<unsigned char>(bytes.at(140)));
    EXPECT_EQ(bytes.substr(144 + groupLength, 2), std::string("\x08\x00", 2));
}

TEST_F(ToolApply, inPlaceKeepsModeAndLink)
{
    chmod((dir.path() / "ct.dcm").c_str(), 0640);
    fs::create_symlink("ct.dcm", dir.path() / "link.dcm");
    EXPECT_EQ(run("apply --single name.map -o link.dcm link.dcm").exitCode, 0);
    EXPECT_TRUE(fs::is_symlink(dir.path() / "link.dcm"));
    EXPECT_EQ(value("ct.dcm", DCM_PatientName), "changed");
    EXPECT_EQ(fs::status(dir.path() / "ct.dcm").permissions(), fs::perms(0640));
    EXPECT_EQ(run("apply --single name.map -o new.dcm ct.dcm", "umask 027;").exitCode, 0);
    EXPECT_EQ(fs::status(dir.path() / "new.dcm").permissions(), fs::perms(0640));
}

TEST_F(ToolApply, foldersKeepTheirStructure)
{
    copy("MR_small.dcm", "in/deep/er/mr.dcm");
    copy("CT_small.dcm", "in/ct.dcm");
    fs::create_directory_symlink("..", dir.path() / "in/deep/loop");
    fs::create_symlink("ct.dcm", dir.path() / "in/same.dcm");
    dir.write("in/.kxmap-1-0", "left by a killed run");
    EXPECT_EQ(runTool(dir.path(), "apply --single name.map -o in/out in ct.dcm").exitCode,
              1); // two results in/out/ct.dcm
    EXPECT_EQ(value("in/out/deep/er/mr.dcm", DCM_PatientName), "changed");
    EXPECT_EQ(value("in/out/ct.dcm", DCM_PatientName), "changed");
    EXPECT_FALSE(fs::exists(dir.path() / "in/out/deep/loop"));
    EXPECT_EQ(runTool(dir.path(), "apply --single name.map -o in/out in").exitCode, 0);
    EXPECT_FALSE(fs::exists(dir.path() / "in/out/out")) << "a second run took the first one's results";

    // In place, and each file once, however many names lead to it: a second time would append again.
    dir.write("append.map", "(0010,0010)=concat((0010,0010),\"+\")\n");
    EXPECT_EQ(runTool(dir.path(), "apply --single append.map -o in in in/ct.dcm in/deep/../ct.dcm").exitCode, 0);
    EXPECT_EQ(value("in/ct.dcm", DCM_PatientName), "CompressedSamples^CT1+");
}

TEST_F(ToolApply, failuresAreNamedAndTheOthersGoOn)
{
    dir.write("in/text.txt", "no image");
    dir.write("in/empty", "");
    dir.write("in/zeros", std::string(4000, '\0'));
    copy("MR_truncated.dcm", "in/cut.dcm");
    copy("dicomdirtests/DICOMDIR", "in/DICOMDIR");
    copy("CT_small.dcm", "in/zz.dcm");
    const ToolRun result = run("apply --single name.map -o out in nope.dcm");
    EXPECT_EQ(result.exitCode, 1);
    for (const char* line :
         {"kxmap: in/text.txt: not a DICOM file (", "kxmap: in/empty: not a DICOM file: it is empty\n",
          "kxmap: in/zeros: not a DICOM file\n", "kxmap: in/cut.dcm: damaged or incomplete (",
          "kxmap: in/DICOMDIR: a DICOMDIR ", "kxmap: nope.dcm: No such file or directory\n"})
        EXPECT_NE(result.errors.find(line), std::string::npos) << line << "\n" << result.errors;
    EXPECT_EQ(value("out/zz.dcm", DCM_PatientName), "changed");
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path() / "out"), {}), 1);
}

TEST_F(ToolApply, writeErrorLeavesTheOldFile)
{
    const std::string before = contentOf(dir.path() / "ct.dcm");
    const ToolRun full = run("apply --single name.map -o ct.dcm ct.dcm", "ulimit -f 8;");
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_EQ(full.errors, "kxmap: ct.dcm: File too large\n");
    EXPECT_TRUE(contentOf(dir.path() / "ct.dcm") == before);
    EXPECT_EQ(run("apply --single name.map -o /dev/null ct.dcm").errors, "kxmap: /dev/null: not a regular file\n");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
}

TEST_F(ToolApply, customFieldsGoInAndOut)
{
    dir.write("user.map", "(0010,0010)=\"x\"\nUSER(kept)=concat(USER(ward),\"/\",(0010,0020))\nUSER(gone)=NULL()\n");
    const ToolRun result = run("apply --single user.map --set-user ward=7B --set-user gone=a=b --set-user 'ctl=a\tb' "
                               "--print-user -o out.dcm ct.dcm");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.output, "ct.dcm\tctl\ta\\x09b\nct.dcm\tkept\t7B/1CT1\nct.dcm\tward\t7B\n");
}

TEST_F(ToolApply, droppedRulesAreReported)
{
    dir.write("rules/CT1.map", "# comment\n\n(0010,0010)=\"x\"\n(0010,0020) = y\n(0010,0030)=nope(1)\n");
    dir.write("rules/OTHER.map", "(0010,0010) = x\n");
    const ToolRun result = run("apply --aet CT1 --mappings rules -o out.dcm ct.dcm");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "kxmap: warning: rules/CT1.map: 2 rules dropped, the first at line 4: "
                             "Invalid Dicom Tag:(0010,0020) \n");
    EXPECT_EQ(run("apply --aet NEW --mappings rules -o out.dcm ct.dcm").errors,
              "kxmap: warning: no mapping file applies to AE title NEW\n");
}

#endif
