// SPDX-License-Identifier: BSD-3-Clause
// Finding an element: the answer is that of DcmItem::search, whatever a server has done to the dataset before.
#include "support/fixture.h"

#include <dcmtk/dcmdata/dcpixseq.h>
#include <dcmtk/dcmdata/dcpxitem.h>

#include <gmock/gmock.h>

#include <random>

namespace {
using kxtest::LogCapture;
using kxtest::textOf;
using testing::Contains;

/// @return the element that DCMTK's own search finds; null for none.
DcmElement* searched(DcmItem& item, const DcmTagKey& key)
{
    DcmStack found;
    if (item.search(key, found, ESM_fromHere, OFFalse).bad()) return nullptr;
    return static_cast<DcmElement*>(found.top());
}

/// @return the element that a rule's "(gggg,eeee)" stands for; null for none.
DcmElement* referred(DcmDataset& dataset, const DcmTagKey& key)
{
    MappingSession session;
    session.dataset = &dataset;
    char line[16];
    std::snprintf(line, sizeof line, "(%04x,%04x)", key.getGroup(), key.getElement());
    const std::unique_ptr<Expression> expression(Expression::readCfgLine(line));
    const std::unique_ptr<Value> value(expression->getValue(session));
    return value ? static_cast<DcmElement*>(*value) : nullptr;
}

constexpr Uint16 kGroups[] = {0x0008, 0x0010, 0x0018, 0x0020};

/// One random thing that a server or a rule may do to a dataset.
void change(DcmDataset& dataset, std::mt19937& random)
{
    const DcmTagKey key(kGroups[random() % 4], static_cast<Uint16>(0x1000 + random() % 6));
    switch (random() % 5) {
    case 0:
        dataset.putAndInsertString(DcmTag(key, EVR_LO), "text");
        break;
    case 1:
        dataset.findAndDeleteElement(key);
        break;
    case 2: // breaks the order, and may make two of one tag
        if (dataset.card() != 0) dataset.getElement(random() % dataset.card())->setGTag(key.getGroup());
        break;
    case 3:
        searched(dataset, key);
        break; // which moves the list's place of last use
    default:
        LVDicomTag(DcmTag(key, EVR_LO)).assignValueInner(dataset, nullptr);
        break;
    }
}

TEST(Elements, areThoseOfDcmtksSearchInAnyOrder)
{
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        DcmDataset dataset;
        for (int step = 0; step < 60; ++step) {
            change(dataset, random);
            const DcmTagKey key(kGroups[random() % 4], static_cast<Uint16>(0x1000 + random() % 6));
            // Rule before search and after it: neither may depend on where the other left the list.
            DcmElement* before = referred(dataset, key);
            DcmElement* expected = searched(dataset, key);
            ASSERT_EQ(before, expected) << "seed " << seed << ", step " << step << ", tag " << key;
            ASSERT_EQ(referred(dataset, key), expected) << "seed " << seed << ", step " << step << ", tag " << key;
        }
    }
}

TEST(Elements, areWrittenWhereDcmtkFindsThem)
{
    // The operator's name is moved behind the patient's, and the list was last used at its end: the way from there to
    // (0010,0010) leads past (0032,1070).
    const auto makeDataset = [] {
        auto dataset = std::make_unique<DcmDataset>();
        dataset->putAndInsertString(DCM_OperatorsName, "first");
        dataset->putAndInsertString(DCM_PatientName, "Doe^Jane");
        dataset->putAndInsertString(DCM_PatientID, "1");
        DcmElement* moved = nullptr;
        dataset->findAndGetElement(DCM_PatientID, moved);
        moved->setGTag(0x0008); // (0008,0020), behind (0010,0010)
        return dataset;
    };
    struct Case {
        const char* rule;
        DcmTagKey key;
        const char* after;
    };
    const Case kCases[] = {
        {"(0010,0010)=NULL()", {0x0010, 0x0010}, "-"},
        {"(0010,0010)=x", {0x0010, 0x0010}, "x"},
        {"(0008,0020)=NULL()", {0x0008, 0x0020}, "-"},
        {"(0008,0020)=20240131", {0x0008, 0x0020}, "20240131"},
    };
    for (const Case& c : kCases) {
        for (const DcmTagKey& lastUsed : {DCM_OperatorsName, DCM_PatientName, DcmTagKey(0x0008, 0x0020)}) {
            const auto dataset = makeDataset();
            const auto count = dataset->card();
            searched(*dataset, lastUsed);
            MappingSession session;
            session.dataset = dataset.get();
            Mapping(c.rule, "test").apply(session);
            EXPECT_EQ(textOf(*dataset, c.key), c.after) << c.rule << " after a look at " << lastUsed;
            EXPECT_EQ(dataset->card(), c.after[0] == '-' ? count - 1 : count)
                << c.rule << " after a look at " << lastUsed;
        }
    }
}

/// "(gggg,eeee)=text" of each element, in their order.
std::string inOrder(DcmItem& item)
{
    std::string all;
    for (DcmObject* object = item.nextInContainer(nullptr); object != nullptr; object = item.nextInContainer(object)) {
        OFString text;
        static_cast<DcmElement*>(object)->getOFString(text, 0);
        all.append(object->getTag().toString().c_str()).append("=").append(text.c_str()).append(" ");
    }
    return all;
}

long countOf(DcmItem& item, const DcmTagKey& key)
{
    long count = 0;
    for (unsigned long i = 0; i < item.card(); ++i) count += item.getElement(i)->getTag() == key ? 1 : 0;
    return count;
}

// The reference removes the old element and has DCMTK insert the copy, as one may who has memory enough.
TEST(Elements, copiesStandWhereDcmtksInsertionPutsThem)
{
    for (unsigned seed = 0; seed < 500; ++seed) {
        std::mt19937 random(seed);
        const auto randomKey = [&random] {
            return DcmTagKey(kGroups[random() % 4], static_cast<Uint16>(0x1000 + random() % 6));
        };
        DcmDataset dataset;
        for (int i = 0; i < 9; ++i) dataset.putAndInsertString(DcmTag(randomKey(), EVR_LO), std::to_string(i).c_str());
        for (unsigned i = 0; i < seed % 3; ++i) // breaks the order
            dataset.getElement(random() % dataset.card())->setGTag(kGroups[random() % 4]);
        const DcmTagKey targetKey = dataset.getElement(random() % dataset.card())->getTag();
        const DcmTagKey sourceKey = dataset.getElement(random() % dataset.card())->getTag();
        if (targetKey == sourceKey || countOf(dataset, targetKey) > 1) continue;

        DcmDataset reference(dataset);
        const std::string before = inOrder(reference);
        ASSERT_EQ(before, inOrder(dataset));
        std::unique_ptr<DcmElement> copy(static_cast<DcmElement*>(searched(reference, sourceKey)->clone()));
        const std::unique_ptr<DcmElement> old(reference.remove(searched(reference, targetKey)));
        const_cast<DcmTag&>(copy->getTag()) = old->getTag();
        ASSERT_TRUE(reference.insert(copy.get(), false, false).good());
        std::ignore = copy.release();

        MappingSession session;
        session.dataset = &dataset;
        TagValue value(searched(dataset, sourceKey));
        LVDicomTag(DcmTag(targetKey)).assignValue(session, &value);
        EXPECT_EQ(inOrder(dataset), inOrder(reference)) << before << ": " << targetKey << '=' << sourceKey;
    }
}

// A DcmPixelSequence counts as a sequence for DCMTK's search; its items hold bytes and no elements.
TEST(Elements, areNotInTheItemsOfCompressedPixelData)
{
    DcmDataset dataset;
    auto sequence = std::make_unique<DcmPixelSequence>(DcmTag(DCM_PixelData, EVR_OB));
    for (int i = 0; i < 2; ++i) {
        auto item = std::make_unique<DcmPixelItem>(DcmTag(DCM_Item, EVR_OB));
        ASSERT_TRUE(sequence->insert(item.get()).good());
        std::ignore = item.release(); // the sequence's
    }
    ASSERT_TRUE(dataset.insert(sequence.get()).good());
    std::ignore = sequence.release(); // the dataset's
    MappingSession session;
    session.dataset = &dataset;
    std::list<int> path = {0x7fe0, 0x0010, 1, 0x0010, 0x0010};
    EXPECT_EQ(getParentItem(path, &dataset), nullptr);
    LogCapture log;
    Mapping("SEQ(7fe0,0010,0,0010,0010)=x\n(0010,0010)=SEQ(7fe0,0010,1,0010,0010)", "test").apply(session);
    EXPECT_EQ(dataset.card(), 1U);
    EXPECT_THAT(log.messages(), Contains("Couldn't find parentitem for the LVSeqDicomTag: (0010,0010)="));
}
} // namespace
