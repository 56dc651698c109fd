// SPDX-License-Identifier: BSD-3-Clause
// Tables on terminals that are too narrow for them.
#ifdef KXDCM_TOOL

#include "tool/run.h"

#include <gmock/gmock.h>

#include <sstream>

using namespace kxtest;
using testing::HasSubstr;

namespace {

class ToolTable : public WithImage {
protected:
    void SetUp() override
    {
        WithImage::SetUp();
        dir.write("r.map", "(0008,1030)=\"CT of the abdomen, with contrast\"\n(0010,0020)=NULL()\n");
        dir.write("m/CT_SCANNER1.map", "(0010,0020)=\"x\"\n");
    }

    std::string outputAt(int columns, const std::string& arguments) const
    {
        return runTool(dir.path(), arguments, Setting{.environment = {{"COLUMNS", std::to_string(columns)}}}).output;
    }
};

std::size_t widestOf(const std::string& output)
{
    std::size_t widest = 0;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("  ") && line.find("warning: ") == std::string::npos)
            widest = std::max(widest, line.size());
    }
    return widest;
}

} // namespace

TEST_F(ToolTable, fitsAnyTerminal)
{
    for (const int columns : {30, 40, 60, 80, 100, 200}) {
        for (const char* arguments :
             {"try --single r.map ct.dcm", "try --trace --single r.map ct.dcm", "list --mappings m"})
            EXPECT_LE(widestOf(outputAt(columns, arguments)), static_cast<std::size_t>(columns)) << arguments;
    }
}

TEST_F(ToolTable, standsInRecordsWhereItsColumnsDoNotFit)
{
    EXPECT_THAT(outputAt(40, "try --single r.map ct.dcm"), HasSubstr("          ~\n"
                                                                     "  Tag     (0008,1030)\n"
                                                                     "  Name    StudyDescription\n"
                                                                     "  VR      LO\n"
                                                                     "  Before  e+1\n"
                                                                     "  After   CT of the abdomen, with\n"
                                                                     "          contrast\n"
                                                                     "  Rule    r.map:1\n"
                                                                     "\n"
                                                                     "          -\n"
                                                                     "  Tag     (0010,0020)\n"));
    EXPECT_THAT(outputAt(40, "list --mappings m"), HasSubstr("  AE title   CT_SCANNER1\n"
                                                             "  File       CT_SCANNER1.map\n"
                                                             "  Rules      1\n"));
    EXPECT_THAT(outputAt(80, "list --mappings m"), HasSubstr("  AE title      File "));
}

#endif
