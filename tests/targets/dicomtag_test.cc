// SPDX-License-Identifier: BSD-3-Clause
// Writing into the dataset: which element is made, replaced, deleted or left alone, and what is said meanwhile.
#include "KXItem.h"
#include "support/fixture.h"

#include <gmock/gmock.h>

namespace {
using kxtest::LogCapture;
using kxtest::sampleDataset;
using kxtest::textOf;
using testing::ElementsAre;

/// Applies one rule. @return its messages, joined by "; ", without the closing "..Done".
std::string apply(const char* rule, DcmDataset& dataset)
{
    LogCapture log;
    MappingSession session;
    session.dataset = &dataset;
    Assignment assignment;
    EXPECT_TRUE(assignment.readCfgLine(rule)) << rule;
    log.clear();
    EXPECT_EQ(assignment.apply(session), 0) << rule;
    std::string messages;
    for (const std::string& message : log.messages()) {
        if (message == "..Done") return messages;
        messages += (messages.empty() ? "" : "; ") + message;
    }
    return messages + " (not done)";
}

/// @return all values as DCMTK prints them, "-" when the element is absent.
std::string valuesOf(DcmItem& item, const DcmTagKey& key)
{
    DcmElement* element = nullptr;
    if (item.findAndGetElement(key, element).bad()) return "-";
    if (element->ident() == EVR_SQ) return std::to_string(static_cast<DcmSequenceOfItems*>(element)->card()) + " items";
    char* text = nullptr;
    if (element->getString(text).good()) return text != nullptr ? text : "";
    OFString numbers;
    element->getOFStringArray(numbers);
    return numbers.c_str();
}

struct WriteCase {
    const char* rule;
    DcmTagKey target;
    const char* after;
    const char* messages;
};
const WriteCase kTexts[] = {
    {R"((0010,0010)="A^B")", {0x0010, 0x0010}, "A^B", R"(Applying: (0010,0010); Applying "A^B")"},
    {R"((0010,4000)="new")", {0x0010, 0x4000}, "new", R"(Applying: (0010,4000); Applying "new")"},
    {R"((0010,0010)="")", {0x0010, 0x0010}, "", R"(Applying: (0010,0010); Applying "")"},
    {R"((0018,0022)="A\\B")", {0x0018, 0x0022}, "A\\B", R"(Applying: (0018,0022); Applying "A\B")"},
    {R"((0010,0010)=NULL())", {0x0010, 0x0010}, "-", "Deleting: (0010,0010)"},
    {R"((0040,0275)=NULL())", {0x0040, 0x0275}, "-", "Deleting: (0040,0275)"},
    {R"((0010,4000)=NULL())", {0x0010, 0x4000}, "-", "Delete - did not exist: (0010,4000)"},
    {R"((0009,1001)="mine")", {0x0009, 0x1001}, "mine", R"(Applying: (0009,1001); Applying "mine")"}, // is there
    {R"((0009,1055)="mine")", {0x0009, 0x1055}, "-", "Skipping unrecognized: (0009,1055)"},
    {R"((0009,1055)=NULL())", {0x0009, 0x1055}, "-", "Delete - did not exist: (0009,1055)"},
    {R"((0008,0100)=NULL())", {0x0008, 0x0100}, "-", "Delete - did not exist: (0008,0100)"}, // it is in an item
    {R"((fffe,e000)="x")", {0xfffe, 0xe000}, "-", "Skipping unrecognized: (fffe,e000)"},
    {R"((FFFE,E00D)="x")", {0xfffe, 0xe00d}, "-", "Skipping unrecognized: (fffe,e00d)"},
    {R"((0028,0010)="256")", {0x0028, 0x0010}, "256", R"(Applying: (0028,0010); Applying "256")"},
    {R"((0028,0010)="tall")", {0x0028, 0x0010}, "512", R"(Applying: (0028,0010); Applying "tall")"},
    {R"((0028,0011)="wide")", {0x0028, 0x0011}, "", R"(Applying: (0028,0011); Applying "wide")"}, // stays, empty
    {R"((0040,0275)="x")", {0x0040, 0x0275}, "2 items", R"(Applying: (0040,0275); Applying "x")"},
};
const WriteCase kElements[] = {
    // the same VR: an exact copy, whatever the VR
    {"(0010,1000)=(0010,0020)", {0x0010, 0x1000}, "  PID-42", R"(Applying: (0010,1000); Applying "  PID-42")"},
    {"(0018,0022)=(0008,0008)",
     {0x0018, 0x0022},
     "ORIGINAL\\PRIMARY\\AXIAL",
     R"(Applying: (0018,0022); Applying "ORIGINAL\PRIMARY\AXIAL")"},
    {"(0028,0011)=(0028,0010)", {0x0028, 0x0011}, "512", "Applying: (0028,0011); Applying (NULL)"},
    {"(0028,2000)=(0042,0011)", {0x0028, 0x2000}, "01\\02\\03\\04", "Applying: (0028,2000); Applying (NULL)"},
    {"(0072,0026)=(0028,0009)", {0x0072, 0x0026}, "(0018,1063)", "Applying: (0072,0026); Applying (NULL)"},
    {"(0008,1140)=(0040,0275)", {0x0008, 0x1140}, "2 items", "Applying: (0008,1140); Applying (NULL)"},
    {"(0040,0275)=(0008,1140)", {0x0040, 0x0275}, "0 items", "Applying: (0040,0275); Applying (NULL)"},
    {"(0010,0010)=(0008,0090)", {0x0010, 0x0010}, "", "Applying: (0010,0010); Applying (NULL)"},
    // another VR: the text; what has none clears the target
    {"(0010,0020)=(0010,0010)", {0x0010, 0x0020}, "Doe^Jane", R"(Applying: (0010,0020); Applying "Doe^Jane")"},
    {"(0028,0010)=(0020,0013)", {0x0028, 0x0010}, "7", R"(Applying: (0028,0010); Applying "7")"},
    {"(0010,0020)=(0008,0090)", {0x0010, 0x0020}, "", "Applying: (0010,0020); Applying (NULL)"},
    {"(0010,0020)=(0028,0010)", {0x0010, 0x0020}, "", "Applying: (0010,0020); Applying (NULL)"},
    {"(0010,0020)=(0042,0011)", {0x0010, 0x0020}, "", "Applying: (0010,0020); Applying (NULL)"},
    {"(0010,0020)=(0009,1002)", {0x0010, 0x0020}, "", "Applying: (0010,0020); Applying (NULL)"},
    {"(0010,0020)=(0040,0275)", {0x0010, 0x0020}, "", "Applying: (0010,0020); Applying (NULL)"},
    {"(0040,0275)=(0010,0010)", {0x0040, 0x0275}, "2 items", R"(Applying: (0040,0275); Applying "Doe^Jane")"},
    // itself
    {"(0010,0010)=(0010,0010)", {0x0010, 0x0010}, "Doe^Jane", R"(Applying: (0010,0010); Applying "Doe^Jane")"},
    {"(0040,0275)=(0040,0275)", {0x0040, 0x0275}, "2 items", "Applying: (0040,0275); Applying (NULL)"},
    // inside what it replaces
    {"(0040,0275)=SEQ(0040,0275,1,0040,0007)",
     {0x0040, 0x0275},
     "2 items",
     R"(Applying: (0040,0275); Applying "Step B")"},
    {"(0040,0275)=SEQ(0040,0275,0,0040,0008)", {0x0040, 0x0275}, "2 items", "Applying: (0040,0275); Applying (NULL)"},
    // an absent source is NULL
    {"(0010,0010)=(0010,4000)", {0x0010, 0x0010}, "-", "Deleting: (0010,0010)"},
};

void check(const WriteCase& c)
{
    SCOPED_TRACE(c.rule);
    const auto dataset = sampleDataset();
    EXPECT_EQ(apply(c.rule, *dataset), c.messages);
    EXPECT_EQ(valuesOf(*dataset, c.target), c.after);
}

TEST(DicomTag, texts)
{
    for (const WriteCase& c : kTexts) check(c);
}
TEST(DicomTag, elements)
{
    for (const WriteCase& c : kElements) check(c);
}

TEST(DicomTag, copiesLeaveTheSourceAndHoldWhatItHeld)
{
    const auto dataset = sampleDataset();
    apply("(0008,1140)=(0040,0275)", *dataset);
    apply("(0040,0275)=SEQ(0040,0275,0,0040,0008)", *dataset); // the source goes with its sequence
    DcmItem* item = nullptr;
    ASSERT_TRUE(dataset->findAndGetSequenceItem(DcmTagKey(0x0008, 0x1140), item, 1).good());
    EXPECT_EQ(textOf(*item, DcmTagKey(0x0040, 0x0007)), "Step B");
    ASSERT_TRUE(dataset->findAndGetSequenceItem(DcmTagKey(0x0040, 0x0275), item, 1).good());
    EXPECT_EQ(textOf(*item, DcmTagKey(0x0008, 0x0100)), "CODE-A1");
}

TEST(DicomTag, copiesWhatIsStillInItsFile)
{
    const kxtest::TempDir folder;
    const std::string path = folder.write("study", "");
    ASSERT_TRUE(sampleDataset()->saveFile(path.c_str(), EXS_LittleEndianExplicit).good());
    DcmDataset dataset; // values of more than two bytes are read when they are asked for
    ASSERT_TRUE(dataset.loadFile(path.c_str(), EXS_LittleEndianExplicit, EGL_noChange, 2).good());
    apply("(0028,2000)=(0042,0011)", dataset);
    apply("(0008,1140)=(0040,0275)", dataset);
    EXPECT_EQ(valuesOf(dataset, DcmTagKey(0x0028, 0x2000)), "01\\02\\03\\04");
    DcmItem* item = nullptr;
    ASSERT_TRUE(dataset.findAndGetSequenceItem(DcmTagKey(0x0008, 0x1140), item, 1).good());
    EXPECT_EQ(textOf(*item, DcmTagKey(0x0040, 0x0007)), "Step B");
}

TEST(DicomTag, itselfIsNotEvenReplaced)
{
    const auto dataset = sampleDataset();
    DcmElement *before = nullptr, *after = nullptr;
    dataset->findAndGetElement(DcmTagKey(0x0040, 0x0275), before);
    apply("(0040,0275)=(0040,0275)", *dataset);
    dataset->findAndGetElement(DcmTagKey(0x0040, 0x0275), after);
    EXPECT_EQ(before, after);
}

TEST(DicomTag, valueWithoutElement)
{
    const auto dataset = sampleDataset();
    LogCapture log;
    TagValue nothing(nullptr);
    LVDicomTag(DcmTag(0x0010, 0x4000)).assignValueInner(*dataset, &nothing);
    LVDicomTag(DcmTag(0x0010, 0x0010)).assignValueInner(*dataset, &nothing);
    EXPECT_EQ(textOf(*dataset, DcmTagKey(0x0010, 0x4000)), ""); // made before it is filled
    EXPECT_EQ(textOf(*dataset, DcmTagKey(0x0010, 0x0010)), "Doe^Jane");
    EXPECT_THAT(log.messages(), ElementsAre("Applying: (0010,4000)", "Applying: (0010,0010)"));
    EXPECT_EQ(nothing.refCount, 1);
}

TEST(DicomTag, privateBlockComesWithItsCreator)
{
    const auto dataset = sampleDataset();
    const DcmTagKey creator(KXItem::kGroup, KXItem::kCreatorElement), aeTitle(KXItem::kGroup, 0x1006);
    EXPECT_EQ(apply("(0075,10fe)=x", *dataset), "Skipping unrecognized: (0075,10fe)"); // no meaning in the block
    EXPECT_EQ(apply("(0075,1006)=NULL()", *dataset), "Delete - did not exist: (0075,1006)");
    EXPECT_EQ(textOf(*dataset, creator), "-");
    EXPECT_EQ(apply("(0075,1006)=CT1", *dataset), R"(Applying: (0075,1006); Applying "CT1")");
    EXPECT_EQ(textOf(*dataset, aeTitle), "CT1");
    EXPECT_EQ(textOf(*dataset, creator), KXItem::kCreator);
    EXPECT_EQ(apply("(0075,1006)=CT2", *dataset), R"(Applying: (0075,1006); Applying "CT2")");
    EXPECT_EQ(textOf(*dataset, aeTitle), "CT2");
    apply("SEQ(0040,0275,1,0075,1006)=CT3", *dataset); // an item has a creator of its own
    DcmItem* step = nullptr;
    ASSERT_TRUE(dataset->findAndGetSequenceItem(DcmTagKey(0x0040, 0x0275), step, 1).good());
    EXPECT_EQ(textOf(*step, aeTitle), "CT3");
    EXPECT_EQ(textOf(*step, creator), KXItem::kCreator);
    apply("(0075,1006)=NULL()", *dataset);
    apply("(0075,0010)=ACME", *dataset); // somebody else's block from now on
    apply("(0075,1006)=CT4", *dataset);
    apply("(0075,1001)=(0010,0020)", *dataset); // nor a copy
    EXPECT_EQ(textOf(*dataset, DcmTagKey(KXItem::kGroup, 0x1001)), "-");
    EXPECT_EQ(textOf(*dataset, aeTitle), "-");
    EXPECT_EQ(textOf(*dataset, creator), "ACME");
}

TEST(DicomTag, withoutDatasetNothingIsWritten)
{
    MappingSession session;
    Mapping("(0010,0010)=x\n(0010,0010)=NULL()\nSEQ(0010,0010)=x\nSEQ(0040,0275,0,0040,0007)=x\n$(a)=on", "none")
        .apply(session);
    EXPECT_STREQ(session.getVariable("a"), "on");
    LogCapture log; // a path without items is a plain tag
    Mapping("SEQ(0010,0010)=x", "none").apply(session);
    for (const std::string& message : log.messages()) EXPECT_FALSE(message.starts_with("Couldn't")) << message;
}

TEST(DicomTag, silentWhenLoggingIsOff)
{
    LogCapture log(OFLogger::OFF_LOG_LEVEL);
    const auto dataset = sampleDataset();
    MappingSession session;
    session.dataset = dataset.get();
    Mapping("(0010,0010)=x\n(0010,0020)=(0010,0010)\n(0010,4000)=NULL()\n(10,10)=x", "quiet").apply(session);
    EXPECT_EQ(textOf(*dataset, DcmTagKey(0x0010, 0x0020)), "x");
    EXPECT_THAT(log.messages(), ElementsAre());
}
} // namespace
