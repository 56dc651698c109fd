// SPDX-License-Identifier: BSD-3-Clause
// Temporary files and the report's file, as objects.
#ifdef KXDCM_TOOL

#include "tool/console/output.h"
#include "tool/run.h"
#include "tool/system/interruption.h"
#include "tool/system/replacement.h"
#include "tool/system/reportfile.h"
#include "tool/system/temporaries.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <deque>
#include <fcntl.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using namespace kxtest;
using namespace kxtool;
using testing::ElementsAre;
namespace fs = std::filesystem;

namespace {

long filesIn(const fs::path& folder)
{
    return std::distance(fs::directory_iterator(folder), {});
}

} // namespace

TEST(ToolTemporaries, goWithTheirObjects)
{
    const TempDir dir;
    {
        std::deque<Temporary> all;
        for (std::size_t i = 0; i < kMaxTemporaries; ++i) all.emplace_back(dir.path() / "x");
        EXPECT_EQ(filesIn(dir.path()), static_cast<long>(kMaxTemporaries));
        EXPECT_THROW(Temporary(dir.path() / "x"), FileError);
        EXPECT_EQ(fs::status(all[5].path()).permissions(), fs::perms(0600));
        EXPECT_THAT(leftoversIn(dir.path()), ElementsAre()); // all are held
        EXPECT_EQ(all[5].renameTo(dir.path() / "x"), 0);
        EXPECT_NE(all[6].renameTo(dir.path() / "nowhere/x"), 0);
        const Temporary again(dir.path() / "y"); // in the place that became free
    }
    EXPECT_EQ(filesIn(dir.path()), 1);
    EXPECT_TRUE(fs::exists(dir.path() / "x"));
    EXPECT_THROW(Temporary(dir.path() / "nowhere/x"), FileError);
}

TEST(ToolTemporaries, ofADeadProcessAreFoundAndRemoved)
{
    const TempDir dir;
    fs::create_directory(dir.path() / "in");
    fs::create_symlink("in/x", dir.path() / "link");
    dir.write("in/x", "");
    const auto leave = [&] {
        const pid_t process = fork();
        if (process == 0) {
            const Temporary one(dir.path() / "in/x");
            const Temporary two(dir.path() / "in/y");
            _exit(0);
        }
        waitpid(process, nullptr, 0);
        return process;
    };
    leave();
    const std::vector<fs::path> left = leftoversIn(dir.path() / "in");
    ASSERT_EQ(left.size(), 2U);
    EXPECT_TRUE(std::ranges::is_sorted(left));
    EXPECT_EQ(removeLeftover(left[0]), 0);
    EXPECT_EQ(leftoversIn(dir.path() / "in").size(), 1U);
    removeTemporariesOf(leave(), {dir.path() / "link"});               // where the target is, not the link
    EXPECT_THAT(leftoversIn(dir.path() / "in"), ElementsAre(left[1])); // another process's
}

TEST(ToolTemporaries, replaceWholeOrNotAtAll)
{
    const TempDir dir;
    const fs::path target = dir.write("x", "old");
    std::uint64_t mark = 0;
    {
        Replacement replacement(target);
        EXPECT_EQ(replacement.write("new", 3), 0);
        mark = replacement.mark();
        EXPECT_FALSE(Replacement::hasReplaced(target, mark));
    }
    EXPECT_EQ(contentOf(target), "old");
    Replacement replacement(target);
    EXPECT_EQ(replacement.write("newer", 5), 0);
    EXPECT_EQ(replacement.size(), 5U);
    mark = replacement.mark();
    replacement.commit();
    EXPECT_EQ(contentOf(target), "newer");
    EXPECT_TRUE(Replacement::hasReplaced(target, mark));
    EXPECT_EQ(filesIn(dir.path()), 1);
    Replacement(target).commit();
    EXPECT_FALSE(Replacement::hasReplaced(target, mark)) << "another one has since";
}

TEST(ToolReportFile, hasWholeLinesAndTakesOlderReportsAlone)
{
    const TempDir dir;
    Interruption interruption;
    const std::string line = R"({"input":"a","output":"b","status":"done"})";
    const fs::path file = dir.path() / "r.jsonl";
    {
        ReportFile report(file);
        EXPECT_TRUE(report.add(line, interruption));
        EXPECT_TRUE(report.add(line, interruption));
    }
    EXPECT_EQ(contentOf(file), line + "\n" + line + "\n");
    EXPECT_TRUE(ReportFile::isReport(file));
    ReportFile over(file);
    EXPECT_EQ(contentOf(file), "");
    const fs::path other = dir.write("notes", "notes");
    EXPECT_FALSE(ReportFile::isReport(other));
    EXPECT_FALSE(ReportFile::isReport(dir.path() / "nope"));
    EXPECT_THROW(ReportFile{other}, FileError);
    EXPECT_EQ(contentOf(other), "notes");

    ReportFile full("/dev/full");
    EXPECT_FALSE(full.add(line, interruption));
    EXPECT_TRUE(full.add(line, interruption)) << "it is told once";
    EXPECT_EQ(full.failure(), "/dev/full: No space left on device: the report is incomplete");
}

#endif
