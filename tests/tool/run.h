// SPDX-License-Identifier: BSD-3-Clause
// Runs kxmap and looks at what it left.
#pragma once

#include "support/fixture.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
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

/// What a run finds beside its arguments. Its standard input is at its end, and DICOM_VAR is unset.
struct Setting {
    std::vector<std::pair<const char*, std::string>> environment = {};
    std::string input = {}; ///< a file that is standard input
};

/// Calls kxmap within this process, as far as a call can do what a shell would: words, quotation marks, `*`. Afterwards
/// the process is as before.
/// @param arguments as typed into a shell; a redirection, a pipe and the like have a shell run the built kxmap.
/// @param folder the current folder meanwhile.
ToolRun runTool(const std::filesystem::path& folder, const std::string& arguments, const Setting& setting = {});

/// Runs the built kxmap as a shell does, for what a call cannot show: signals, limits, pipes, another user.
/// @param prelude shell commands that come first, ended by ";", or the beginning of the command.
ToolRun runTool(const std::filesystem::path& folder, const std::string& arguments, const std::string& prelude);

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
