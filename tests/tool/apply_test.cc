// SPDX-License-Identifier: BSD-3-Clause
// kxmap apply on real files: where results go, what of a file is kept, what is told, and what happens when something
// fails.
#ifdef KXDCM_TOOL

#include "tool/applyfixture.h"

#include <sys/stat.h>

using namespace kxtest;
using namespace std::string_literals;
namespace fs = std::filesystem;

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
    fs::rename(dir.path() / "rules", dir.path() / "mappings");
    const ToolRun fromVariable = run("apply --aet CT1 -o c.dcm ct.dcm", Setting{.environment = {{"DICOM_VAR", "."}}});
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

// Rules that reach the pixel data, and those that may, have the whole file go through DCMTK.
TEST_F(ToolApply, pixelDataAreCopiedOrChanged)
{
    const std::string before = contentOf(dir.path() / "ct.dcm");
    const std::string pixels = before.substr(before.rfind("\xe0\x7f\x10\x00OW"));
    struct Case {
        const char* rule;
        bool keepsPixels;
    };
    const Case cases[] = {
        {R"((0010,0020)=concat("N-",(0010,0020)))", true},
        {R"((0010,0020)=or((7fe0,0010),"none"))", true},     // reads them; they are no text
        {R"((0010,0020)=(concat("7f","e0"),"0010"))", true}, // reads them, and nobody can tell beforehand
        {R"((0010,0020)=SEQ("7fe0","0010","0","0010","0020"))", true},
        {R"((7fe0,0010)=NULL())", false},
        {R"((7fe0,0000)="1")", true},
        {R"((fffc,fffc)=NULL())", false},
    };
    for (const Case& c : cases) {
        dir.write("one.map", std::string(c.rule) + "\n");
        ASSERT_EQ(run("apply --single one.map -o out.dcm ct.dcm").exitCode, 0) << c.rule;
        EXPECT_EQ(contentOf(dir.path() / "out.dcm").ends_with(pixels), c.keepsPixels) << c.rule;
    }
    dir.write("cut.dcm", before.substr(0, before.size() - pixels.size()));
    EXPECT_EQ(run("apply --single name.map -o out.dcm cut.dcm").errors,
              "kxmap: warning: cut.dcm: it describes pixels and has none: perhaps it was cut short\n");
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
    dir.write("in/meta", contentOf(dir.path() / "ct.dcm").substr(0, 336));
    copy("MR_truncated.dcm", "in/cut.dcm");
    copy("dicomdirtests/DICOMDIR", "in/DICOMDIR");
    copy("CT_small.dcm", "in/zz.dcm");
    const ToolRun result = run("apply --single name.map -o out in nope.dcm");
    EXPECT_EQ(result.exitCode, 1);
    for (const char* line :
         {"kxmap: in/text.txt: not a DICOM file (", "kxmap: in/empty: not a DICOM file: it is empty\n",
          "kxmap: in/zeros: not a DICOM file\n", "kxmap: in/meta: damaged or incomplete: it ends before its dataset\n",
          "kxmap: in/cut.dcm: damaged or incomplete (", "kxmap: in/DICOMDIR: a DICOMDIR ",
          "kxmap: nope.dcm: No such file or directory\n"})
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
    EXPECT_EQ(result.exitCode, 1); // though all files are done
    EXPECT_EQ(result.errors, "kxmap: warning: rules/CT1.map: 2 rules dropped, the first at line 4: "
                             "Invalid Dicom Tag:(0010,0020) \n");
}

TEST_F(ToolApply, noMappingForTheTitle)
{
    dir.write("rules/OTHER.map", "(0010,0010)=x\n");
    const ToolRun result = run("apply --aet NEW --mappings rules -o out.dcm ct.dcm");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.errors, "kxmap: no mapping file applies to AE title NEW\n");
    EXPECT_FALSE(fs::exists(dir.path() / "out.dcm"));
}

TEST_F(ToolApply, messagesOfRulesAreToldWithTheFile)
{
    dir.write("talk.map", "(0010,0010)=add(\"x\",1)\n(0010,0020)=mul(\"y\",2)\n");
    EXPECT_EQ(run("apply --single talk.map -o out.dcm ct.dcm").errors,
              "kxmap: warning: ct.dcm: Coercion: Invalid parameter at function add: x\n"
              "kxmap: warning: ct.dcm: Coercion: Invalid parameter at function mul: y\n");
}

TEST_F(ToolApply, listsKeepTheirPaths)
{
    copy("MR_small.dcm", "in/a b/x.dcm");
    copy("MR_small.dcm", "in/c/x.dcm");
    const std::string list = "apply --single name.map --from-file - --progress ";
    const auto listed = [this](const std::string& names) { return Setting{.input = dir.write("list", names)}; };
    const ToolRun byNul = run(list + "-o out", listed("./in/a b/x.dcm\0in/c/../c/x.dcm\0in/c/x.dcm\0"s));
    EXPECT_EQ(byNul.exitCode, 0) << byNul.errors;
    EXPECT_TRUE(byNul.errors.starts_with("kxmap: 2 of 2 files in 1 s, ")) << byNul.errors;
    EXPECT_EQ(byNul.errors.find("failed"), std::string::npos) << byNul.errors;
    EXPECT_EQ(value("out/in/a b/x.dcm", DCM_PatientName), "changed");
    EXPECT_EQ(value("out/in/c/x.dcm", DCM_PatientName), "changed");
    EXPECT_EQ(run(list + "--in-place", listed("in/a b/x.dcm\nct.dcm")).exitCode, 0);
    EXPECT_EQ(value("in/a b/x.dcm", DCM_PatientName), "changed");
    EXPECT_EQ(value("ct.dcm", DCM_PatientName), "changed");
    EXPECT_NE(value("in/c/x.dcm", DCM_PatientName), "changed");
    for (const char* wrong :
         {"apply --single name.map ct.dcm", "apply --single name.map -o x --in-place ct.dcm",
          "apply --single name.map --in-place", "apply --single name.map --reason X --in-place ct.dcm"})
        EXPECT_EQ(run(wrong).exitCode, 2) << wrong;
}

TEST_F(ToolApply, dryRunAndReportSayWhatChanges)
{
    dir.write("more.map", "(0010,0010)=\"M\xfcller\"\n(0008,0080)=NULL()\n(0010,1001)=add(1,\"x\")\nUSER(u)=\"1\"\n");
    const std::string before = contentOf(dir.path() / "ct.dcm");
    const ToolRun dry = run("apply --single more.map --dry-run --in-place ct.dcm");
    EXPECT_EQ(dry.output, "ct.dcm: - (0008,0080) LO [JFK IMAGING CENTER] -> absent more.map:2\n"
                          "ct.dcm: ~ (0010,0010) PN [CompressedSamples^CT1] -> [M\xc3\xbcller] more.map:1\n"
                          "ct.dcm: + USER(u) absent -> [1] more.map:4\n");
    EXPECT_EQ(dry.errors, "kxmap: warning: ct.dcm: Coercion: Invalid parameter at function add: x (more.map:3)\n");
    EXPECT_TRUE(contentOf(dir.path() / "ct.dcm") == before);
    EXPECT_EQ(run("apply --single more.map --report r.jsonl -o out/ ct.dcm more.map").exitCode, 1);
    const std::string report = contentOf(dir.path() / "r.jsonl");
    EXPECT_EQ(std::ranges::count(report, '\n'), 2);
    for (
        const char* part :
        {R"json({"input":"ct.dcm","output":"out/ct.dcm","status":"done","ms":)json",
         R"json({"sign":"~","kind":"element","place":"(0010,0010)","target":"(0010,0010)","name":"PatientName","vr":"PN",)json",
         R"json("before":"CompressedSamples^CT1","after":"Müller","rules":[{"file":"more.map","line":1,"text":)json",
         R"json("messages":[{"rule":{"file":"more.map","line":3,"text":"(0010,1001)=add(1,\"x\")"},"text":"Coercion: Invalid parameter at function add: x"}])json",
         R"json({"input":"more.map","output":"out/more.map","status":"failed","error":"more.map: not a DICOM file)json"})
        EXPECT_NE(report.find(part), std::string::npos) << part << "\n" << report;
}

// Each run adds an item with what was there before: values, what was added or did not conform without one, private
// elements with their creator, and a sequence whole.
// Texts of one length, and leading blanks: what DCMTK's own comparison takes for the same.
TEST_F(ToolApply, smallChangesAreChanges)
{
    dir.write("first.map", "(0010,4000)=\"abc\"\n(0020,0010)=\"12\"\nSEQ(0010,1002,0,0010,0020)=\"ID\"\n");
    ASSERT_EQ(run("apply --single first.map -o a.dcm ct.dcm").exitCode, 0);
    dir.write("second.map", "(0010,4000)=\"new\"\n(0020,0010)=\" 12\"\nSEQ(0010,1002,0,0010,0020)=\" ID\"\n");
    const ToolRun tried = run("try --single second.map a.dcm");
    EXPECT_NE(tried.output.find("0 added, 3 changed, 0 deleted"), std::string::npos) << tried.output;
    ASSERT_EQ(run("apply --single second.map --original-attributes -o b.dcm a.dcm").exitCode, 0);
    EXPECT_NE(value("b.dcm", DCM_OriginalAttributesSequence), "-");
}

// A slip on the command line must cost neither an image nor a mapping, and results are as private as their sources.
TEST_F(ToolApply, slipsCostNothing)
{
    const std::string image = contentOf(dir.path() / "ct.dcm");
    EXPECT_EQ(run("apply --single name.map --report ct.dcm -o out.dcm ct.dcm").exitCode, 2);
    EXPECT_EQ(contentOf(dir.path() / "ct.dcm"), image);

    fs::permissions(dir.path() / "ct.dcm", fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_EQ(run("apply --single name.map -o private.dcm ct.dcm").exitCode, 0);
    EXPECT_EQ(fs::status(dir.path() / "private.dcm").permissions(), fs::perms::owner_read | fs::perms::owner_write);

    // A report has a name of its own; an older one is no image.
    EXPECT_EQ(run("apply --single name.map --report o/ct.dcm -o o ct.dcm").exitCode, 2);
    EXPECT_FALSE(fs::exists(dir.path() / "o"));
    dir.write("in/r.jsonl", R"({"input":"a","output":"","status":"failed"})");
    copy("MR_small.dcm", "in/mr.dcm");
    EXPECT_EQ(run("apply --single name.map --in-place --report in/r.jsonl in").exitCode, 0);
    EXPECT_EQ(std::ranges::count(contentOf(dir.path() / "in/r.jsonl"), '\n'), 1);

    // Nothing to do is no success.
    fs::create_directory(dir.path() / "links");
    fs::create_symlink("nowhere", dir.path() / "links/x");
    for (const char* nothing : {"links", "--from-file /dev/null"}) {
        const ToolRun result = run("apply --single name.map -o out " + std::string(nothing));
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.errors, "kxmap: there is no file to work on\n");
    }

    dir.write("elsewhere.map", "(0010,0010)=\"SECRET\"\n");
    dir.write("m/mappings/global/pre.map", "");
    ASSERT_EQ(run("apply --aet ../../elsewhere --mappings m/mappings --report r.jsonl -o o.dcm ct.dcm").exitCode, 0);
    EXPECT_NE(value("o.dcm", DCM_PatientName), "SECRET");
}

// Names are bytes: the terminal gets none of its control bytes, and the report all of them.
TEST_F(ToolApply, namesAreToldWhole)
{
    copy("CT_small.dcm", "M\xfcller\x1b.dcm");
    const ToolRun result = run("apply --single name.map -o out/ --report r.jsonl M* \"$(printf 'no\\033pe')\"");
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.errors, "kxmap: no\\x1Bpe: No such file or directory\n");
    const std::string report = contentOf(dir.path() / "r.jsonl");
    for (const char* part : {R"json("input":"no\u001bpe")json", R"json("input_bytes":"M%FCller%1B.dcm")json",
                             R"json("output_bytes":"out/M%FCller%1B.dcm")json"})
        EXPECT_NE(report.find(part), std::string::npos) << part << "\n" << report;
}

TEST_F(ToolApply, partedHardLinksAreTold)
{
    fs::create_hard_link(dir.path() / "ct.dcm", dir.path() / "other.dcm");
    const ToolRun result = run("apply --single name.map --in-place --report r.jsonl ct.dcm");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "kxmap: warning: ct.dcm: has 1 more name (hard links); the old content stays there\n");
    EXPECT_NE(contentOf(dir.path() / "r.jsonl").find("\"other_names\":1,"), std::string::npos);
    EXPECT_NE(value("other.dcm", DCM_PatientName), "changed");
}

// Where the owner and the group cannot be kept, nobody may do more than before.
TEST_F(ToolApply, replacingGivesNobodyAccess)
{
    const std::string asAnother = "setpriv --reuid 1 --regid 1 --clear-groups";
    fs::permissions(dir.path(), fs::perms::all);
    if (run("--version", asAnother).exitCode != 0) GTEST_SKIP() << "needs root, and the tool where all can read it";
    constexpr std::pair<mode_t, mode_t> kModes[] = {{0666, 0666}, {0646, 0644}, {0606, 0600}, {04676, 0666}};
    const std::string file = (dir.path() / "ct.dcm").native();
    for (const auto& [before, after] : kModes) {
        ASSERT_EQ(chown(file.c_str(), 2, 2), 0);
        ASSERT_EQ(chmod(file.c_str(), before), 0);
        EXPECT_EQ(run("apply --single name.map --in-place ct.dcm", asAnother).exitCode, 0);
        EXPECT_EQ(fs::status(file).permissions(), fs::perms(after)) << std::oct << before;
    }
}

TEST_F(ToolApply, originalAttributesAreKept)
{
    dir.write("first.map",
              "(0010,0010)=\"New\"\n(0008,0080)=NULL()\n(0010,1001)=\"Added\"\n(0009,1001)=\"P\"\n"
              "(0075,1001)=\"Q\"\nSEQ(0010,1002,0,0010,0020)=\"R\"\n(0008,0060)=\"CT\"\n(0008,1090)=\"Y\"\n");
    dir.write("second.map", "(0010,0010)=\"Newer\"\n");
    DcmFileFormat format;
    ASSERT_TRUE(format.loadFile((dir.path() / "ct.dcm").c_str()).good());
    const std::string tooLong(65, 'x');
    format.getDataset()->putAndInsertString(DCM_ManufacturerModelName, tooLong.c_str());
    ASSERT_TRUE(format.saveFile((dir.path() / "ct.dcm").c_str(), EXS_LittleEndianExplicit).good());
    const std::string originals = "apply --in-place --original-attributes ";
    EXPECT_EQ(run(originals + "--single first.map ct.dcm --source JFK --system Gate --reason CORRECT").exitCode, 0);
    EXPECT_EQ(run(originals + "--single second.map ct.dcm").exitCode, 0);
    EXPECT_EQ(run(originals + "--single none.map ct.dcm").exitCode, 0);

    ASSERT_TRUE(format.loadFile((dir.path() / "ct.dcm").c_str()).good());
    DcmDataset& dataset = *format.getDataset();
    DcmItem* item = nullptr;
    DcmItem* before = nullptr;
    EXPECT_TRUE(dataset.findAndGetSequenceItem(DCM_OriginalAttributesSequence, item, 2).bad()); // nothing changed
    ASSERT_TRUE(dataset.findAndGetSequenceItem(DCM_OriginalAttributesSequence, item, 1).good());
    ASSERT_TRUE(item->findAndGetSequenceItem(DCM_ModifiedAttributesSequence, before).good());
    EXPECT_EQ(textOf(*before, DCM_PatientName), "New");
    EXPECT_EQ(textOf(*before, DCM_InstanceCoercionDateTime).size(), 19U);
    ASSERT_TRUE(dataset.findAndGetSequenceItem(DCM_OriginalAttributesSequence, item, 0).good());
    EXPECT_EQ(textOf(*item, DCM_SourceOfPreviousValues), "JFK");
    EXPECT_EQ(textOf(*item, DCM_ModifyingSystem), "Gate");
    EXPECT_EQ(textOf(*item, DCM_ReasonForTheAttributeModification), "CORRECT");
    ASSERT_TRUE(item->findAndGetSequenceItem(DCM_ModifiedAttributesSequence, before).good());
    EXPECT_EQ(textOf(*before, DCM_PatientName), "CompressedSamples^CT1");
    EXPECT_EQ(textOf(*before, DCM_InstitutionName), "JFK IMAGING CENTER");
    EXPECT_EQ(textOf(*before, DcmTagKey(0x0009, 0x0010)), "GEMS_IDEN_01");
    EXPECT_EQ(textOf(*before, DcmTagKey(0x0009, 0x1001)), "GE_GENESIS_FF");
    EXPECT_EQ(textOf(*before, DcmTagKey(0x0075, 0x0010)), "KXDCM COERCION 1.0");
    for (const DcmTagKey& key :
         {DCM_OtherPatientNames, DcmTagKey(0x0075, 0x1001), DCM_ManufacturerModelName, DCM_InstanceCoercionDateTime})
        EXPECT_TRUE(before->tagExists(key) && !before->tagExistsWithValue(key)) << key.toString();
    EXPECT_FALSE(before->tagExists(DCM_Modality)) << "written, and the same as before";
    ASSERT_TRUE(before->findAndGetSequenceItem(DCM_OtherPatientIDsSequence, item, 1).good())
        << "not the whole sequence";
    ASSERT_TRUE(before->findAndGetSequenceItem(DCM_OtherPatientIDsSequence, item, 0).good());
    EXPECT_EQ(textOf(*item, DCM_PatientID), "ABCD1234");
}

#endif
