// SPDX-License-Identifier: BSD-3-Clause
// Runs the built kxmap as a shell does, and looks at what it left.
#pragma once

#include "support/fixture.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/wait.h>
#include <vector>

namespace kxtest {

inline std::string contentOf(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

struct ToolRun {
    int exitCode;
    std::string output;
    std::string errors;
};

/// @param arguments as typed into a shell; the current folder is `folder`, and DICOM_VAR is unset.
/// @param prelude shell commands that come first, ended by ";".
inline ToolRun runTool(const std::filesystem::path& folder, const std::string& arguments,
                       const std::string& prelude = "")
{
    const std::filesystem::path log = folder.native() + ".log";
    const std::string output = log.native() + ".out";
    const std::string errors = log.native() + ".err";
    const std::string command = "cd '" + folder.native() + "'; unset DICOM_VAR; " + prelude + " '" KXDCM_TOOL "' " +
                                arguments + " >'" + output + "' 2>'" + errors + "'";
    const int status = std::system(command.c_str());
    ToolRun run{WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(output), contentOf(errors)};
    std::filesystem::remove(output);
    std::filesystem::remove(errors);
    return run;
}

struct RunCase {
    const char* arguments;
    int exitCode;
    std::vector<std::string> output; ///< each occurs in it
    const char* errors;              ///< occurs in them
};

inline void expectRuns(const TempDir& dir, const std::vector<RunCase>& cases)
{
    for (const RunCase& c : cases) {
        const ToolRun run = runTool(dir.path(), c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.arguments << "\n" << run.errors;
        for (const std::string& text : c.output)
            EXPECT_NE(run.output.find(text), std::string::npos) << text << "\n" << run.output;
        EXPECT_NE(run.errors.find(c.errors), std::string::npos) << c.arguments << "\n" << run.errors;
    }
}

struct ExactRun {
    std::string arguments;
    int exitCode;
    std::string output;
    std::string errors;
};

inline void expectExactly(const TempDir& dir, const std::vector<ExactRun>& cases)
{
    for (const ExactRun& c : cases) {
        const ToolRun run = runTool(dir.path(), c.arguments);
        EXPECT_EQ(run.exitCode, c.exitCode) << c.arguments;
        EXPECT_EQ(run.output, c.output) << c.arguments;
        EXPECT_EQ(run.errors, c.errors) << c.arguments;
    }
}

/// @return the path of one of pydicom's files.
inline std::string testFile(const std::string& name)
{
    return KXDCM_PYDICOM_DATA "/test_files/" + name;
}

/// A folder with the CT image "ct.dcm": ISO_IR 100, StationName CT01_OC0, PatientID 1CT1, StudyDescription e+1, Rows and
/// Columns 128.
class WithImage : public testing::Test {
protected:
    void SetUp() override { std::filesystem::copy_file(testFile("CT_small.dcm"), dir.path() / "ct.dcm"); }

    const TempDir dir;
};

} // namespace kxtest
