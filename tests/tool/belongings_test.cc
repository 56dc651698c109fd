// SPDX-License-Identifier: BSD-3-Clause
// kxmap apply: what a file keeps beside its content, what temporary files show of it, and what killed runs leave.
#ifdef KXDCM_TOOL

#include "tool/applyfixture.h"

#include <sys/stat.h>
#include <unistd.h>

using namespace kxtest;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

class ToolBelongings : public ToolApply {
protected:
    /// @return what commands print; the current folder is the test's.
    std::string shell(const std::string& commands) const
    {
        const std::string output = dir.path().native() + ".shell";
        const int status =
            std::system(("cd '" + dir.path().native() + "' && { " + commands + "; } >'" + output + "' 2>&1").c_str());
        std::string text = contentOf(output);
        fs::remove(output);
        return status == 0 ? text : "failed: " + text;
    }

    mode_t modeOf(const std::string& file) const
    {
        struct stat status = {};
        return stat((dir.path() / file).c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
    }
};

} // namespace

TEST_F(ToolBelongings, whatIsReplacedKeepsThem)
{
    struct Case {
        const char* prepare;
        const char* look; // prints the same before and after
    };
    const Case cases[] = {
        {"chmod 600 ct.dcm; setfacl -m u:1234:rw ct.dcm", "getfacl -n ct.dcm"},
        {"chmod 640 ct.dcm; setfacl -m g:77:r,m::r ct.dcm", "getfacl -n ct.dcm"},
        {"setfacl -b ct.dcm; chmod 600 ct.dcm; setfacl -d -m u:1234:rwx,g::rwx .", "getfacl -n ct.dcm"},
        {"setfacl -bk . ct.dcm; setfattr -n user.origin -v 'CT 1' ct.dcm", "getfattr -d -m - ct.dcm"},
        {"chmod 604 ct.dcm", "stat -c '%a %u:%g' ct.dcm"},
    };
    if (shell("setfacl -m u:1234:r ct.dcm && setfattr -n user.a -v b ct.dcm") != "")
        GTEST_SKIP() << "the file system has no access control lists or attributes";
    for (const Case& c : cases) {
        ASSERT_EQ(shell(c.prepare), "") << c.prepare;
        const std::string before = shell(c.look);
        EXPECT_EQ(run("apply --single name.map --in-place ct.dcm").errors, "") << c.prepare;
        EXPECT_EQ(shell(c.look), before) << c.prepare;
    }
}

TEST_F(ToolBelongings, newFilesHaveWhatTheirFolderGives)
{
    if (shell("mkdir out && setfacl -d -m u:1234:rw,u:5678:r,m::rw,o::- out") != "")
        GTEST_SKIP() << "the file system has no access control lists";
    ASSERT_EQ(shell("chmod 640 ct.dcm"), "");
    EXPECT_EQ(run("apply --single name.map -o out/ct.dcm ct.dcm").errors, "");
    // As "install -m 640" would leave it: the mask is the group's part of the mode.
    EXPECT_EQ(shell("getfacl -cnE out/ct.dcm"), "user::rw-\nuser:1234:rw-\nuser:5678:r--\ngroup::r-x\n"
                                                "mask::r--\nother::---\n\n");
}

TEST_F(ToolBelongings, powersAreNotKept)
{
    chmod((dir.path() / "ct.dcm").c_str(), 06755);
    EXPECT_EQ(run("apply --single name.map --in-place ct.dcm").exitCode, 0);
    EXPECT_EQ(modeOf("ct.dcm"), 0755U);
    chmod((dir.path() / "ct.dcm").c_str(), 04711);
    EXPECT_EQ(run("apply --single name.map -o new.dcm ct.dcm", "umask 0;").exitCode, 0);
    EXPECT_EQ(modeOf("new.dcm"), 0711U);
}

// What is lost is said, and nobody gains by it: the group's members are others afterwards.
TEST_F(ToolBelongings, whatCannotBeKeptIsSaid)
{
    if (geteuid() != 0) GTEST_SKIP() << "only root makes files of others";
    if (shell("chmod 777 . && chown 4321:4321 ct.dcm && chmod 666 ct.dcm && chmod g-r ct.dcm && "
              "setpriv --reuid=1111 --regid=1111 --clear-groups cat ct.dcm >/dev/null") != "")
        GTEST_SKIP() << "another user cannot be played here";
    const ToolRun other = runTool(dir.path(), "apply --single name.map --in-place ct.dcm",
                                  "setpriv --reuid=1111 --regid=1111 --clear-groups");
    EXPECT_EQ(other.exitCode, 0);
    EXPECT_EQ(other.errors,
              "kxmap: warning: ct.dcm: cannot keep its owner (Operation not permitted), group (Operation not "
              "permitted)\n");
    EXPECT_EQ(modeOf("ct.dcm"), 0622U);
}

TEST_F(ToolBelongings, leftoversAreNamedAndRemoved)
{
    const fs::path left = dir.path() / "in/.kxmap-123-0123abcd-0";
    const fs::path used = dir.path() / "in/.kxmap-124-0123abcd-7";
    const fs::path other = dir.path() / "in/.kxmap-notes";
    copy("CT_small.dcm", "in/ct.dcm");
    for (const fs::path& file : {left, used, other}) dir.write("in/" + file.filename().native(), "a name");
    const std::string whileUsed = "exec 9<in/" + used.filename().native() + "; flock 9;";
    const auto apply = [&](const std::string& options) {
        return runTool(dir.path(), "apply --single name.map " + options, whileUsed);
    };
    const std::string warning =
        "kxmap: warning: in/.kxmap-123-0123abcd-0: this temporary file of a killed run may hold "
        "patients' data; --clean removes it\n";
    EXPECT_EQ(apply("--in-place in").errors, warning);
    EXPECT_EQ(apply("-o out in").errors, warning);
    EXPECT_EQ(apply("-o in out").errors, warning);
    EXPECT_TRUE(fs::exists(left));
    EXPECT_EQ(apply("--dry-run --clean in").errors, warning);
    EXPECT_TRUE(fs::exists(left));
    EXPECT_EQ(apply("--in-place --clean in").errors, "");
    EXPECT_FALSE(fs::exists(left));
    EXPECT_TRUE(fs::exists(used)) << "another run was writing it";
    EXPECT_TRUE(fs::exists(other)) << "it is none of ours";
}

// A run that is stopped in the middle of a file: what it has written so far is nobody's but its user's.
TEST_F(ToolBelongings, temporaryFilesAreTheUsersAlone)
{
    chmod((dir.path() / "ct.dcm").c_str(), 0644);
    for (const char* signal : {"QUIT", "KILL"}) {
        fs::create_directories(dir.path() / "in");
        for (int i = 0; i < 100; ++i)
            fs::copy_file(dir.path() / "ct.dcm", dir.path() / "in" / std::to_string(i),
                          fs::copy_options::overwrite_existing);
        // Files wait for the disk in batches, so that some are written and not yet in their places.
        runTool(dir.path(),
                std::string(
                    "apply --single name.map --in-place --fsync in & p=$!; while ! ls in/.kxmap-* >/dev/null 2>&1 && "
                    "kill -0 $p 2>/dev/null; do :; done; kill -") +
                    signal + " $p $(cat /proc/$p/task/$p/children 2>/dev/null); wait $p; sleep 0.1)",
                "(ulimit -c unlimited; ");
        std::size_t left = 0;
        for (const auto& entry : fs::directory_iterator(dir.path() / "in")) {
            const std::string name = entry.path().filename();
            EXPECT_FALSE(name.starts_with("core")) << signal;
            if (!name.starts_with(".kxmap-")) continue;
            ++left;
            EXPECT_EQ(modeOf("in/" + name), 0600U);
        }
        EXPECT_TRUE(left == 0 || *signal == 'K');
        EXPECT_FALSE(fs::exists(dir.path() / "core")) << signal;
    }
    EXPECT_EQ(run("apply --single name.map --in-place --clean in").exitCode, 0);
}

#endif
