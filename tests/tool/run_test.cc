// SPDX-License-Identifier: BSD-3-Clause
// That a call of the tool within the tests' process leaves this as it was, and is a run like any other.
#ifdef KXDCM_TOOL

#include "tool/run.h"

#include <clocale>
#include <csignal>
#include <cstdlib>
#include <sstream>
#include <sys/stat.h>
#include <sys/time.h>

using namespace kxtest;
namespace fs = std::filesystem;

namespace {

// What a run could leave behind, as a text.
std::string stateOfProcess()
{
    std::ostringstream state;
    const mode_t mask = umask(0);
    umask(mask);
    state << fs::current_path() << mask << ' ' << std::setlocale(LC_ALL, nullptr) << ' ' << gseed << ' ' << errorlogs;
    state << " descriptors " << std::distance(fs::directory_iterator("/proc/self/fd"), {});
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    for (const int signalNumber : {SIGALRM, SIGPIPE, SIGUSR1, SIGTERM, SIGXFSZ}) {
        struct sigaction action = {};
        sigaction(signalNumber, nullptr, &action);
        const bool isOfTheTool = signalNumber == SIGTERM || signalNumber == SIGUSR1; // set for good, once
        state << ' ' << sigismember(&blocked, signalNumber) << (isOfTheTool || action.sa_handler == SIG_DFL);
    }
    itimerval timer = {};
    getitimer(ITIMER_REAL, &timer);
    const char* const folder = std::getenv("DICOM_VAR");
    state << ' ' << timer.it_interval.tv_usec << ' ' << (folder == nullptr ? "unset" : folder);
    for (const char* name : {"", "dcmtk", "dcmtk.dcmdata"}) state << ' ' << OFLog::getLogger(name).getLogLevel();
    return state.str();
}

class ToolRuns : public WithImage {};

} // namespace

TEST_F(ToolRuns, leaveTheProcessAsItWas)
{
    dir.write("r.map", "(0010,0010)=rnd(9)\n(0010,0020) =x\n");
    const std::string lines = dir.write("lines", ":quit\n(0010,0010)\n");
    setenv("DICOM_VAR", "somewhere", 1);
    runTool(dir.path(), "--version"); // what a process does once, is done
    const std::string before = stateOfProcess();
    for (const char* arguments :
         {"-v apply --single r.map -o out.dcm ct.dcm -j 2", "-d try --single r.map ct.dcm", "check r.map",
          "shell ct.dcm", "eval", "-v nonsense", "apply --single nope.map -o x ct.dcm", "conformance", "--help"}) {
        for (const std::string& input : {std::string(), lines}) {
            runTool(dir.path(), arguments, Setting{.environment = {{"DICOM_VAR", "."}}, .input = input});
            EXPECT_EQ(stateOfProcess(), before) << arguments;
        }
    }
    unsetenv("DICOM_VAR");
    // Nothing of one run is there in the next.
    EXPECT_EQ(runTool(dir.path(), "shell ct.dcm", Setting{.input = lines}).output, "");
    EXPECT_EQ(runTool(dir.path(), "shell ct.dcm").output, "");
    EXPECT_EQ(runTool(dir.path(), "-v check r.map --color never").errors, "");
    EXPECT_EQ(runTool(dir.path(), "eval 'rnd(1000)'").output, runTool(dir.path(), "eval 'rnd(1000)'").output);
}

// The same command as a call and as a process.
TEST_F(ToolRuns, areLikeProcesses)
{
    dir.write("r.map", "(0010,0010)=\"x\"\n(0010,0020) =x\n");
    for (const char* arguments :
         {"check r.map", "-v try --single r.map ct.dcm", "list --mappings .", "eval 'add(x,1)'",
          "eval \"concat('a',b)\" *.dcm", "nonsense", "apply --single r.map -v -o out.dcm ct.dcm"}) {
        const ToolRun called = runTool(dir.path(), arguments);
        const ToolRun started = runTool(dir.path(), arguments, std::string());
        EXPECT_EQ(called.exitCode, started.exitCode) << arguments;
        EXPECT_EQ(called.output, started.output) << arguments;
        EXPECT_EQ(called.errors, started.errors) << arguments;
    }
}

#endif
