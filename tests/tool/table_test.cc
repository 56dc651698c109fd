// SPDX-License-Identifier: BSD-3-Clause
// Tables, and terminals that are too narrow for them.
#ifdef KXDCM_TOOL

#include "tool/console/table.h"
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

std::vector<kxtool::Table::Cell> cells(const std::vector<std::string>& texts)
{
    std::vector<kxtool::Table::Cell> all;
    for (const std::string& text : texts) all.push_back({text});
    return all;
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

TEST(ToolTableWidths, columnsGiveWayFromTheWidest)
{
    const std::string a(20, 'a');
    const std::string b(12, 'b');
    struct Case {
        std::size_t width;
        std::size_t indent;
        std::vector<std::size_t>
            widths; // of the lines that the two texts are broken into; empty: side by side they do not fit
    };
    const Case cases[] = {
        {0, 0, {20, 12}}, {37, 0, {20, 12}}, {36, 0, {19, 12}}, {29, 0, {12, 12}}, {28, 0, {11, 12}}, {25, 0, {8, 12}},
        {22, 0, {8, 9}},  {21, 0, {8, 8}},   {20, 0, {}},       {1, 0, {}},        {39, 2, {20, 12}}, {38, 2, {19, 12}},
    };
    for (const Case& c : cases) {
        kxtool::Table table({{"A", false, true}, {"B", false, true}, {"N", true}});
        table.addRow(cells({a, b, "1"}));
        const std::string text = table.text(c.width, false, c.indent);
        if (c.widths.empty()) {
            EXPECT_EQ(text.find("A  "), 0U) << text;
            EXPECT_TRUE(c.width < 4 || text.ends_with("\nN  1\n")) << text;
            continue;
        }
        const std::string first = text.substr(text.find('\n') + 1);
        const std::string indent(c.indent, ' ');
        EXPECT_EQ(first.substr(0, first.find('\n')),
                  indent + std::string(c.widths[0], 'a') + "  " + std::string(c.widths[1], 'b') + "  1")
            << c.width << "\n"
            << text;
    }
}

TEST(ToolTableWidths, numbersAndNarrowColumnsStayWhole)
{
    kxtool::Table table({{"Name", false, true, 4}, {"Count", true}});
    EXPECT_EQ(table.text(0, false), "");
    table.addRow(cells({"one two", "7"}));
    table.addRow(cells({"three", "123456"}));
    EXPECT_EQ(table.text(0, false), "Name      Count\none two       7\nthree    123456\n");
    EXPECT_EQ(table.text(13, false), "Name    Count\none         7\ntwo\nthree  123456\n");
    EXPECT_EQ(table.text(0, true).substr(0, 12), "\x1B[1mName\x1B[0m");
    table.addRow(cells({"", "8"}));
    table.addRow(cells({"\xE5\xB1\xB1"})); // fewer cells, a wide character
    EXPECT_EQ(table.text(0, false),
              "Name      Count\none two       7\nthree    123456\n              8\n\xE5\xB1\xB1\n");
}

#endif
