// SPDX-License-Identifier: BSD-3-Clause
// Mapping files: their pieces of 2039 bytes, texts in memory, and the application in one pass.
#include "support/fixture.h"

#include <gmock/gmock.h>

#include <cstring>

namespace {
using kxtest::LogCapture;
using kxtest::TempDir;
using kxtest::textOf;
using testing::ElementsAre;

const DcmTagKey kComments(0x0010, 0x4000);
const std::string kRule = "(0010,4000)=";

struct Study {
    std::unique_ptr<DcmDataset> dataset = kxtest::sampleDataset();
    MappingSession session;
    Study() { session.dataset = dataset.get(); }
};

std::unique_ptr<Mapping> load(const std::string& path, const char* name = "file")
{
    std::FILE* file = std::fopen(path.c_str(), "rt");
    auto mapping = std::make_unique<Mapping>(file, name);
    std::fclose(file);
    return mapping;
}

TEST(Mapping, linesComeInPieces)
{
    struct PieceCase {
        std::size_t lineBytes;
        std::size_t keptBytes;
        std::size_t pieces;
    };
    constexpr PieceCase kCases[] = {// without the line feed
                                    {2037, 2037, 1}, {2038, 2038, 1}, {2039, 2039, 2},
                                    {2040, 2039, 2}, {4077, 2039, 2}, {4078, 2039, 3}};
    const TempDir folder;
    for (const PieceCase& c : kCases) {
        SCOPED_TRACE(c.lineBytes);
        const std::string text = kRule + std::string(c.lineBytes - kRule.size(), 'a') + '\n';
        const std::string path = folder.write("long.map", text);
        LogCapture log;
        Study file, single, memory;
        load(path)->apply(file.session);
        std::size_t pieces = 0;
        for (const std::string& message : log.messages()) pieces += message.starts_with("Line: ") ? 1 : 0;
        EXPECT_EQ(pieces, c.pieces);
        EXPECT_TRUE(Mapping::applyStatic(path.c_str(), single.session, nullptr));
        Mapping(text.c_str(), "memory").apply(memory.session); // as long as it likes
        EXPECT_EQ(textOf(*file.dataset, kComments).size(), c.keptBytes - kRule.size());
        EXPECT_EQ(textOf(*single.dataset, kComments).size(), c.keptBytes - kRule.size());
        EXPECT_EQ(textOf(*memory.dataset, kComments).size(), c.lineBytes - kRule.size());
    }
}

TEST(Mapping, laterPiecesAreRulesOfTheirOwn)
{
    const TempDir folder;
    std::string text = kRule + std::string(2039 - kRule.size(), 'a') + "(0010,0010)=piece";
    text.resize(3000, 'b');
    Study run;
    const auto mapping = load(folder.write("long.map", text)); // no line feed at all
    EXPECT_EQ(mapping->assignments.size(), 2U);
    mapping->apply(run.session);
    EXPECT_EQ(textOf(*run.dataset, DcmTagKey(0x0010, 0x0010)).substr(0, 6), "pieceb");
}

TEST(Mapping, messagesOfTheReaders)
{
    const TempDir folder;
    const char* text = "#c\n(0010,0010)=x\r\n\n$(a)=y";
    const std::string path = folder.write("x.map", text);
    LogCapture log;
    EXPECT_EQ(load(path, "CT")->assignments.size(), 2U);
    EXPECT_THAT(log.messages(),
                ElementsAre("Creating mapping 'CT':", "Line: #c\n", "Line: (0010,0010)=x\r\n", "lvalue: (  10,  10)",
                            "assign_to_lvalue(\"x\")", "Line: \n", "Line: $(a)=y", "assign_to_lvalue(\"y\")"));
    log.clear();
    EXPECT_EQ(Mapping(text, "CT").assignments.size(), 2U);
    EXPECT_THAT(log.messages(),
                ElementsAre("Creating mapping 'CT':", "Line: #c", "Line: (0010,0010)=x\r", "lvalue: (  10,  10)",
                            "assign_to_lvalue(\"x\")", "Line: ", "Line: $(a)=y", "assign_to_lvalue(\"y\")"));
    log.clear();
    const Mapping lastLine("(0010,0010)\n", "M"), nothing("", "E");
    EXPECT_THAT(log.messages(), ElementsAre("Creating mapping 'M':", "Line: (0010,0010)", "Creating mapping 'E':"));
}

TEST(Mapping, names)
{
    for (const std::size_t bytes : {0U, 1U, 126U, 127U, 128U, 500U}) {
        const std::string name(bytes, 'N');
        EXPECT_EQ(std::strlen(Mapping("", name.c_str()).name), std::min<std::size_t>(bytes, 127)) << bytes;
    }
}

TEST(Mapping, badLinesAreDroppedAndOrderCounts)
{
    errorlogs.clear();
    Mapping rules("(0010,0010)=one\n(0010,0010) =two\n(0010,0020)=foo()\n(0010,4000)=(0010,0010)\n", "rules");
    EXPECT_EQ(errorlogs, "Invalid Dicom Tag:(0010,0010) \nError: Unknown function:foo\n\n");
    Study run;
    rules.apply(run.session);
    EXPECT_EQ(textOf(*run.dataset, kComments), "one");
    EXPECT_EQ(textOf(*run.dataset, DcmTagKey(0x0010, 0x0020)), "  PID-42");
}

TEST(Mapping, plainVariablesEndWithTheMapping)
{
    Study run;
    run.session.setVariable("old", "1");
    run.session.setVariable("@kept", "1");
    EXPECT_EQ(Mapping("", "none").apply(run.session), 0); // even without a rule
    EXPECT_TRUE(run.session.variables.empty());
    EXPECT_STREQ(run.session.getVariable("@kept"), "1");
}

TEST(Mapping, applyStatic)
{
    const TempDir folder;
    const std::string path = folder.write("once.map", "(0010,0010)=x\nnothing\n(10,10)=x\n(0010,0020)=foo()\n"
                                                      "(0010,0020)=or($(old),fresh)\nUSER(f)=NULL()\n$(@a)=1");
    Study run;
    run.session.setVariable("old", "1");
    run.session.setVariable("@kept", "1");
    LVTempVar present("present");
    std::list<LVObject*> written = {&present};
    LogCapture log;
    EXPECT_TRUE(Mapping::applyStatic(path.c_str(), run.session, &written));
    for (const std::string& message : log.messages()) {
        EXPECT_FALSE(message.starts_with("Line: ") || message.starts_with("Creating")) << message;
    }
    EXPECT_EQ(textOf(*run.dataset, DcmTagKey(0x0010, 0x0020)), "fresh");
    EXPECT_STREQ(run.session.getVariable("@kept"), "1");
    ASSERT_EQ(written.size(), 5U);
    EXPECT_EQ(written.front(), &present);
    written.pop_front();
    EXPECT_NE(dynamic_cast<LVTempVar*>(written.back()), nullptr);
    written.front()->assignValue(run.session, nullptr); // they work on
    EXPECT_EQ(textOf(*run.dataset, DcmTagKey(0x0010, 0x0010)), "-");
    for (const LVObject* target : written) delete target;
}

TEST(Mapping, applyStaticWithoutAFile)
{
    Study run;
    run.session.setVariable("old", "1");
    std::list<LVObject*> written;
    LogCapture log;
    errorlogs.clear();
    EXPECT_FALSE(Mapping::applyStatic("/no/such.map", run.session, &written));
    EXPECT_THAT(log.messages(kxtest::kError), ElementsAre("Coercion couldn't open file: /no/such.map"));
    EXPECT_EQ(log.messages().size(), 1U);
    EXPECT_EQ(errorlogs, "");
    EXPECT_STREQ(run.session.getVariable("old"), "1"); // untouched
    EXPECT_TRUE(written.empty());
}
} // namespace
