// SPDX-License-Identifier: BSD-3-Clause
// kxmap apply with its processes: that several do the same as one, and what happens when it is interrupted or something is used up.
#ifdef KXDCM_TOOL

#include "tool/applyfixture.h"

#include <gmock/gmock.h>

using namespace kxtest;
using testing::EndsWith;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

#if defined(__has_feature)
constexpr bool kIsSanitized = __has_feature(address_sanitizer);
#else
constexpr bool kIsSanitized = false;
#endif

// Shell words that run in the background what stands before them, and go on when a file has become another one.
std::string whenChanged(const std::string& file)
{
    return " & p=$!; while cmp -s ct.dcm " + file + "; do :; done; ";
}

class ToolWorkers : public ToolApply {
protected:
    // In a shell of its own, whose exit code is the tool's; its children may be ended.
    ToolRun runInShell(const std::string& arguments) const { return runTool(dir.path(), arguments + ")", "("); }

    void fill(int count) const
    {
        for (int i = 0; i < count; ++i) copy("CT_small.dcm", "in/" + std::to_string(i));
    }

    void expectNothingLeft(const std::string& folder) const
    {
        for (const auto& entry : fs::directory_iterator(dir.path() / folder))
            EXPECT_FALSE(entry.path().filename().native().starts_with(".kxmap-")) << entry.path();
    }
};

} // namespace

TEST_F(ToolWorkers, severalWorkersTellTheSameAsOne)
{
    dir.write("user.map", "(0010,0010)=add((0010,0020),1)\nUSER(id)=(0010,0020)\n");
    for (int i = 0; i < 40; ++i)
        copy(i % 3 == 0 ? "MR_truncated.dcm" : "MR_small.dcm", "in/" + std::to_string(i) + "/x");
    const ToolRun one = run("apply --single user.map --print-user -o one in ct.dcm");
    const ToolRun many = run("apply --single user.map --print-user -j 4 --fsync -o many in ct.dcm");
    EXPECT_EQ(many.exitCode, 1);
    EXPECT_EQ(many.output, one.output);
    EXPECT_EQ(many.errors, one.errors);
    EXPECT_EQ(std::system(("diff -r " + (dir.path() / "one").native() + " " + (dir.path() / "many").native()).c_str()),
              0);
}

// Whatever ends a run, every file is the old or the new one, and only SIGKILL of all processes leaves temporary files.
TEST_F(ToolWorkers, interruptedRunsLeaveWholeFiles)
{
    const std::string before = contentOf(dir.path() / "ct.dcm");
    ASSERT_EQ(run("apply --single name.map -o new.dcm ct.dcm").exitCode, 0);
    const std::string after = contentOf(dir.path() / "new.dcm");
    for (const char* signal : {"TERM", "KILL"}) {
        for (int i = 0; i < 200; ++i)
            fs::copy_file(dir.path() / "ct.dcm", dir.path() / ("c" + std::to_string(i)),
                          fs::copy_options::overwrite_existing);
        const ToolRun ended = runTool(dir.path(),
                                      "apply --single name.map --in-place -j 2 --fsync c*" + whenChanged("c0") +
                                          "kill -" + signal + " $p; wait $p; sleep 0.1)",
                                      "(");
        for (int i = 0; i < 200; ++i) {
            const std::string content = contentOf(dir.path() / ("c" + std::to_string(i)));
            EXPECT_TRUE(content == before || content == after) << signal << i;
        }
        for (const auto& entry : fs::directory_iterator(dir.path()))
            EXPECT_FALSE(entry.path().filename().native().starts_with(".kxmap-")) << signal;
        if (*signal == 'T' && ended.errors.empty()) continue; // it was done before
        EXPECT_EQ(ended.errors.find("kxmap: interrupted: ") == 0, *signal == 'T') << ended.errors;
    }
}

// Nobody reads the pipe, so that the tool waits in the middle of its output; and workers inherit what it ignores.
TEST_F(ToolWorkers, interruptsAreHeededAtOnce)
{
    dir.write("long.map", "(0010,4000)=\"" + std::string(1500, 'x') + "\"\n");
    fill(100);
    const auto interrupted = [this](const std::string& arguments, const std::string& prelude,
                                    const std::string& signal) {
        return runTool(dir.path(),
                       arguments + " & p=$!; sleep 0.5; kill -" + signal + " $p; wait $p; e=$?; kill $r; exit $e)",
                       "(mkfifo pipe; sleep 9 <pipe & r=$!; " + prelude);
    };
    EXPECT_EQ(interrupted("apply --single long.map --dry-run in >pipe", "", "TERM").exitCode, 128 + SIGTERM);
    fs::remove(dir.path() / "pipe");
    const ToolRun ignoring = interrupted("apply --single long.map --print-user --in-place --set-user " +
                                             std::string(2000, 'x') + "=1 -j 2 in >pipe",
                                         "trap '' TERM;", "HUP");
    EXPECT_EQ(ignoring.exitCode, 128 + SIGHUP);
    EXPECT_THAT(ignoring.errors, HasSubstr(" files done (0 failed), the others are as they were\n"));
    expectNothingLeft("in");
}

TEST_F(ToolWorkers, descriptorsMayBeFew)
{
    if (kIsSanitized) GTEST_SKIP() << "the sanitizer asks for a pipe of its own, to see whether an address can be read";
    fill(40);
    const ToolRun result = run("apply --single name.map --in-place --fsync -j 50 --report r.jsonl in", "ulimit -n 20;");
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.errors, HasSubstr("of 40 worker processes could be started: "));
    EXPECT_EQ(std::ranges::count(contentOf(dir.path() / "r.jsonl"), '\n'), 40);
}

TEST_F(ToolWorkers, outputThatFailsIsTold)
{
    fill(60);
    const ToolRun full =
        runTool(dir.path(), "apply --single name.map --dry-run --report r.jsonl in >/dev/null)", "(ulimit -f 8;");
    EXPECT_EQ(full.exitCode, 2);
    EXPECT_EQ(full.errors, "kxmap: r.jsonl: File too large: the report is incomplete\n"
                           "kxmap: 60 of 60 files done (0 failed)\n");
    EXPECT_THAT(contentOf(dir.path() / "r.jsonl"), EndsWith("}\n"));

    // A closed standard output is none of the files that are opened; one that nobody reads stops no changes.
    const std::string change = "apply --single name.map --in-place --print-user --set-user a=b in ";
    EXPECT_EQ(runInShell(change + ">&-").errors,
              "kxmap: standard output: Bad file descriptor\nkxmap: 60 of 60 files done (0 failed)\n");
    dir.write("name.map", "(0010,0010)=\"again\"\n");
    EXPECT_EQ(runInShell(change + "| true").exitCode, 0); // of "true"
    for (int i = 0; i < 60; ++i) EXPECT_EQ(value("in/" + std::to_string(i), DCM_PatientName), "again") << i;
}

#endif
