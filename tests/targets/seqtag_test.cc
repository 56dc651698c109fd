// SPDX-License-Identifier: BSD-3-Clause
// Writing into sequence items: the walk to the item, and what happens when there is none.
#include "support/fixture.h"

#include <dcmtk/dcmdata/dcpath.h>
#include <gmock/gmock.h>

namespace {
using kxtest::LogCapture;
using kxtest::sampleDataset;
using kxtest::textOf;
using testing::ElementsAre;

/// @return the text of an element at a path in DCMTK's notation, "-" when there is none.
std::string textAt(DcmDataset& dataset, const char* path)
{
    DcmPathProcessor processor;
    OFList<DcmPath*> found;
    if (processor.findOrCreatePath(&dataset, path, OFFalse).bad()) return "-";
    processor.getResults(found);
    char* text = nullptr;
    const auto* element = dynamic_cast<DcmElement*>(found.front()->back()->m_obj);
    if (element == nullptr) return "-";
    std::ignore = const_cast<DcmElement*>(element)->getString(text); // numbers have no text
    return text != nullptr ? text : "";
}

struct SeqCase {
    const char* rule;
    const char* path;
    const char* after;
    const char* message;
};
constexpr SeqCase kCases[] = {
    {"SEQ(0040,0275,0,0040,0007)=x", "(0040,0275)[0].(0040,0007)", "x", "Applying: (0040,0007)"},
    {"SEQ(0040,0275,1,0040,0007)=x", "(0040,0275)[1].(0040,0007)", "x", "Applying: (0040,0007)"},
    {"SEQ(0040,0275,-1,0040,0007)=x", "(0040,0275)[0].(0040,0007)", "x", "Applying: (0040,0007)"},
    {"SEQ(0040,0275,1,0040,0009)=x", "(0040,0275)[1].(0040,0009)", "x", "Applying: (0040,0009)"},
    {"SEQ(0040,0275,0,0040,0007)=NULL()", "(0040,0275)[0].(0040,0007)", "-", "Deleting: (0040,0007)"},
    {"SEQ(0040,0275,1,0040,0009)=NULL()", "(0040,0275)[1].(0040,0009)", "-", "Delete - did not exist: (0040,0009)"},
    {"SEQ(0040,0275,0,0040,0008,1,0008,0100)=x", "(0040,0275)[0].(0040,0008)[1].(0008,0100)", "x",
     "Applying: (0008,0100)"},
    {"SEQ(0040,0275,0,0040,0007)=(0010,0010)", "(0040,0275)[0].(0040,0007)", "Doe^Jane", "Applying: (0040,0007)"},
    {"SEQ(0040,0275,1,0040,0007)=SEQ(0040,0275,0,0040,0007)", "(0040,0275)[1].(0040,0007)", "Step A",
     "Applying: (0040,0007)"},
    {"SEQ(0010,0010)=x", "(0010,0010)", "x", "Applying: (0010,0010)"},
    // nowhere to go: nothing is made on the way
    {"SEQ(0040,0275,2,0040,0007)=x", "(0040,0275)[2].(0040,0007)", "-",
     "Couldn't find parentitem for the LVSeqDicomTag: (0040,0007)="},
    {"SEQ(0008,1140,0,0008,1155)=x", "(0008,1140)[0].(0008,1155)", "-", // no items
     "Couldn't find parentitem for the LVSeqDicomTag: (0008,1155)="},
    {"SEQ(0008,1115,0,0008,1155)=x", "(0008,1115)[0].(0008,1155)", "-", // no sequence
     "Couldn't find parentitem for the LVSeqDicomTag: (0008,1155)="},
    {"SEQ(0010,0010,0,0040,0007)=NULL()", "(0010,0010)", "Doe^Jane", // no sequence either
     "Couldn't find parentitem for the LVSeqDicomTag: (0040,0007)="},
    {"SEQ(0040,0275,1,0040,0008,0,0008,0100)=x", "(0040,0275)[1].(0040,0008)", "-",
     "Couldn't find parentitem for the LVSeqDicomTag: (0008,0100)="},
};

TEST(SeqDicomTag, writes)
{
    for (const SeqCase& c : kCases) {
        SCOPED_TRACE(c.rule);
        const auto dataset = sampleDataset();
        MappingSession session;
        session.dataset = dataset.get();
        LogCapture log;
        Assignment assignment;
        ASSERT_TRUE(assignment.readCfgLine(c.rule));
        for (int round = 1; round <= 2; ++round) { // the whole path again the second time
            log.clear();
            EXPECT_EQ(assignment.apply(session), 0);
            ASSERT_FALSE(log.messages().empty());
            const bool isGone = round == 2 && std::string_view(c.message).starts_with("Deleting");
            EXPECT_TRUE(isGone || log.messages().front() == c.message) << log.messages().front();
            EXPECT_EQ(textAt(*dataset, c.path), c.after);
        }
    }
}

TEST(SeqDicomTag, getParentItemTakesTheWayOffThePath)
{
    const auto dataset = sampleDataset();
    std::list<int> path = {0x10040, 0x50275, 0, 0x0040, 0x0008, 1, 0x0008, 0x0100}; // 16 bits of each count
    const LVSeqDicomTag original(DcmTag(0x0008, 0x0100), path);
    const LVSeqDicomTag copy(original);
    DcmItem* item = getParentItem(path, dataset.get());
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(textOf(*item, DcmTagKey(0x0008, 0x0100)), "CODE-A1");
    EXPECT_THAT(path, ElementsAre(0x0008, 0x0100));
    EXPECT_EQ(getParentItem(path, item), item);
    EXPECT_THAT(copy.path, ElementsAre(0x10040, 0x50275, 0, 0x0040, 0x0008, 1, 0x0008, 0x0100));
    EXPECT_EQ(copy.tag, DcmTagKey(0x0008, 0x0100));
}
} // namespace
