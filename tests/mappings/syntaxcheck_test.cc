// SPDX-License-Identifier: BSD-3-Clause
// The check of one file: exact texts, what is skipped, and the 2048 bytes of the message.
#include "support/fixture.h"

#include <gmock/gmock.h>

namespace {
using kxtest::LogCapture;
using kxtest::TempDir;
using testing::ElementsAre;

/// @return the verdict, released the way a caller does.
std::string verdict(const std::string& path)
{
    char* message = checkSyntaxInner(path.c_str());
    const std::string text = message;
    EXPECT_EQ(message == errorMsgEmpty, text.empty());
    if (message != errorMsgEmpty) delete[] message;
    return text;
}

struct FileCase {
    const char* bytes;
    const char* verdict;
    const char* collected;
};
constexpr FileCase kFiles[] = {
    {"", "", ""},
    {"# a=b\n\n\r\n#\n(0010,0010)=x\n$(a)=y", "", ""},
    {"\r(10,10)=x\n", "", ""}, // skipped by its first byte
    {"   # note\n", "Syntax error in line:    # note [  ]", ""},
    {"   \n", "Syntax error in line:     [  ]", ""},
    {"\t", "Syntax error in line: \t [  ]", ""},
    {" \r\n", "Syntax error in line:   [  ]", ""},
    {"note\r\n", "Syntax error in line: note [  ]", ""},
    {"note\r\r\n", "Syntax error in line: note\r [  ]", ""},
    {"note\r", "Syntax error in line: note\r [  ]", ""}, // no line feed, nothing taken
    {"(0010,0010)=x\nfirst\nsecond\n", "Syntax error in line: first [  ]", ""},
    {"(10,10)=x", "Syntax error in line: (10,10)=x [ Invalid Dicom Tag:(10,10)\n ]", "Invalid Dicom Tag:(10,10)\n"},
    {"(0010,0010)=foo(1)\n(0010,0010)=if(a)\n",
     "Syntax error in line: (0010,0010)=foo(1) [ Error: Unknown function:foo\n\n ]", "Error: Unknown function:foo\n\n"},
    {"=%s%n\n", "Syntax error in line: =%s%n [ Empty Left Value\n ]", "Empty Left Value\n"},
};

TEST(SyntaxCheck, verdicts)
{
    const TempDir folder;
    for (const FileCase& c : kFiles) {
        SCOPED_TRACE(c.bytes);
        errorlogs = "of an earlier file\n";
        EXPECT_EQ(verdict(folder.write("x.map", c.bytes)), c.verdict);
        EXPECT_EQ(errorlogs, c.collected);
    }
    EXPECT_EQ(verdict(folder.write("nul.map", std::string_view("\0note\n", 6))), "") << "skipped by its first byte";
}

TEST(SyntaxCheck, messageIsCutTo2047Bytes)
{
    const TempDir folder;
    for (const std::size_t lineBytes : {2019U, 2020U, 2021U, 2038U}) {
        const std::string line(lineBytes, 'x');
        const std::string whole = "Syntax error in line: " + line + " [  ]";
        EXPECT_EQ(verdict(folder.write("x.map", line + "\r\n")).substr(0, 2019), whole.substr(0, 2019));
        EXPECT_EQ(verdict(folder.write("x.map", line + '\n')), whole.substr(0, 2047)) << lineBytes;
    }
    const std::string rule = "(0010,0010)=";
    EXPECT_EQ(verdict(folder.write("x.map", rule + std::string(2039 - rule.size(), 'x') + '\n')), ""); // "\n" is empty
    EXPECT_EQ(verdict(folder.write("x.map", rule + std::string(2040 - rule.size(), 'x') + '\n')),
              "Syntax error in line: x [  ]");
}

TEST(SyntaxCheck, examplesAreGood)
{
    for (const auto& entry : std::filesystem::recursive_directory_iterator(KXDCM_EXAMPLES_DIR "/mappings")) {
        if (!entry.is_regular_file()) continue;
        EXPECT_EQ(verdict(entry.path()), "") << entry.path();
    }
}

TEST(SyntaxCheck, log)
{
    const TempDir folder;
    const std::string path = folder.write("x.map", "# c\n\n$(a)=x\nbad");
    LogCapture log;
    verdict(path);
    EXPECT_THAT(log.messages(), ElementsAre("Line: %s$(a)=x\n", "assign_to_lvalue(\"x\")", "Line: %sbad"));
}

TEST(SyntaxCheck, withoutAFile)
{
    LogCapture log;
    errorlogs = "of an earlier file\n";
    EXPECT_EQ(verdict("/no/such.map"), "Coercion couldn't open file: /no/such.map\n");
    EXPECT_EQ(errorlogs, "");
    EXPECT_THAT(log.messages(kxtest::kError), ElementsAre("Coercion couldn't open file: /no/such.map"));
    EXPECT_TRUE(verdict(std::string(5000, 'p')).starts_with("Coercion couldn't open file: ppp"));
}
} // namespace
