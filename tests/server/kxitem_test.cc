// SPDX-License-Identifier: BSD-3-Clause
// The private block: its keys, its elements, their way into an item, and what is left of them after a transfer.
#include "KXItem.h"

#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/dcmdata/dctk.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace {

const DcmTagKey kCreatorKey(0x0075, 0x0010);
const DcmTagKey kPatientID(0x0075, 0x1001);
const DcmTagKey kCount(0x0075, 0x100b);

std::unique_ptr<DcmElement> made(const DcmTagKey& key)
{
    return std::unique_ptr<DcmElement>(KXItem::createNewDicomElement(key));
}

/// Inserts as an owner should: lets go after success alone.
bool inserted(DcmItem& item, std::unique_ptr<DcmElement> element, bool replaceOld = false)
{
    const bool isIn = KXItem(item).insertKX(element.get(), replaceOld, false).good();
    if (isIn) std::ignore = element.release();
    return isIn;
}

std::string textIn(DcmItem& item, const DcmTagKey& key)
{
    OFString text;
    return item.findAndGetOFStringArray(key, text).good() ? text.c_str() : "(none)";
}

TEST(KXItem, keysOfTheBlock)
{
    for (const unsigned element : {0x1000u, 0x100bu, 0x10ffu}) {
        EXPECT_TRUE(KXItem::isOurPrivateTagKey(DcmTagKey(0x0075, static_cast<Uint16>(element)))) << element;
    }
    for (const DcmTagKey& key :
         {kCreatorKey, DcmTagKey(0x0075, 0), DcmTagKey(0x0075, 0x0fff), DcmTagKey(0x0075, 0x1100),
          DcmTagKey(0x0074, 0x1001), DcmTagKey(0x0077, 0x1001), DcmTagKey(0xffff, 0xffff)}) {
        EXPECT_FALSE(KXItem::isOurPrivateTagKey(key)) << key;
    }
}

TEST(KXItem, elementsAreTyped)
{
    const auto known = KXItem::dictionary();
    EXPECT_EQ(known.size(), 13u);
    EXPECT_TRUE(std::ranges::is_sorted(known, std::ranges::less_equal{}, &KXItem::PrivateTag::element));
    for (const KXItem::PrivateTag& row : known) {
        const DcmTagKey key(KXItem::kGroup, row.element);
        EXPECT_TRUE(KXItem::isOurPrivateTagKey(key)) << row.name;
        const auto element = made(key);
        ASSERT_TRUE(element) << row.name;
        EXPECT_EQ(element->getTag().getXTag(), key);
        EXPECT_EQ(element->getTag().getEVR(), row.vr) << row.name;
        EXPECT_EQ(element->ident(), row.vr) << row.name << " has the class of its VR";
        EXPECT_STREQ(element->getTag().getPrivateCreator(), KXItem::kCreator);
    }
    for (const DcmTagKey& key : {DcmTagKey(0x0075, 0x1000), DcmTagKey(0x0075, 0x10ff), kCreatorKey,
                                 DcmTagKey(0x0071, 0x1001), DcmTagKey(0xfffe, 0xe000)}) {
        EXPECT_FALSE(made(key)) << key;
    }
}

TEST(KXItem, insertReservesTheBlockOnce)
{
    DcmItem item;
    EXPECT_TRUE(inserted(item, made(kCount)));
    EXPECT_EQ(textIn(item, kCreatorKey), "KXDCM COERCION 1.0");
    EXPECT_TRUE(inserted(item, made(kPatientID)));
    EXPECT_FALSE(inserted(item, made(kPatientID))) << "stands there already";
    EXPECT_EQ(item.card(), 3u);

    auto other = made(kPatientID);
    ASSERT_TRUE(other->putString("new").good());
    EXPECT_TRUE(inserted(item, std::move(other), true));
    EXPECT_EQ(textIn(item, kPatientID), "new");
    EXPECT_EQ(item.card(), 3u);
}

TEST(KXItem, foreignElementsAreRefused)
{
    DcmItem item;
    EXPECT_TRUE(KXItem(item).insertKX(nullptr, false, false).bad());
    EXPECT_FALSE(inserted(item, std::make_unique<DcmLongString>(DcmTag(0x0010, 0x0020))));
    EXPECT_FALSE(inserted(item, std::make_unique<DcmLongString>(DcmTag(kCreatorKey))));
    EXPECT_EQ(item.card(), 0u);
}

TEST(KXItem, saysThatTheBlockIsAnothers)
{
    DcmItem item;
    ASSERT_TRUE(item.putAndInsertString(DcmTag(kCreatorKey, EVR_LO), "OTHER").good());
    const auto element = made(kPatientID);
    const OFCondition refused = KXItem(item).insertKX(element.get(), false, false);
    EXPECT_EQ(refused.code(), 1);
    EXPECT_STREQ(refused.text(), "Private block reserved by another creator");
}

TEST(KXItem, onlyOurCreatorIsOurs)
{
    const std::vector<std::pair<const char*, bool>> cases = {{"KXDCM COERCION 1.0", true},
                                                             {" KXDCM COERCION 1.0  ", true},
                                                             {"", false},
                                                             {"OTHER", false},
                                                             {"KXDCM COERCION 1.01", false},
                                                             {"kxdcm coercion 1.0", false},
                                                             {"KXDCM COERCION 1.0\\OTHER", false}};
    for (const auto& [creator, isOurs] : cases) {
        DcmItem item;
        ASSERT_TRUE(item.putAndInsertString(DcmTag(kCreatorKey, DcmVR(EVR_LO)), creator).good());
        EXPECT_EQ(inserted(item, made(kPatientID)), isOurs) << creator;
        EXPECT_EQ(item.card(), isOurs ? 2u : 1u) << creator;

        DcmItem unknown; // as it comes from somebody who did not know the block: the same bytes as UN, padded
        const std::string bytes = std::string(creator) + (std::string_view(creator).size() % 2 == 0 ? "" : " ");
        auto asUn = std::make_unique<DcmOtherByteOtherWord>(DcmTag(kCreatorKey, DcmVR(EVR_UN)));
        ASSERT_TRUE(asUn->putUint8Array(reinterpret_cast<const Uint8*>(bytes.data()), bytes.size()).good());
        ASSERT_TRUE(unknown.insert(asUn.get()).good());
        std::ignore = asUn.release(); // the item's
        EXPECT_EQ(inserted(unknown, made(kPatientID)), isOurs) << "UN " << creator;
        EXPECT_EQ(unknown.card(), isOurs ? 2u : 1u) << "UN " << creator;
    }
}

TEST(KXItem, failureTakesTheReservationBack)
{
    DcmItem item; // with an element of the block, but nobody's
    ASSERT_TRUE(item.putAndInsertString(DcmTag(kPatientID, DcmVR(EVR_LO)), "orphan").good());
    EXPECT_FALSE(inserted(item, made(kPatientID)));
    EXPECT_EQ(item.card(), 1u);
    EXPECT_EQ(textIn(item, kPatientID), "orphan");
    EXPECT_TRUE(inserted(item, made(kPatientID), true));
    EXPECT_EQ(item.card(), 2u);
}

/// Writes the dataset in a transfer syntax and reads it back, all in memory.
std::unique_ptr<DcmDataset> transferred(DcmDataset& dataset, E_TransferSyntax syntax)
{
    std::vector<char> bytes(4096);
    DcmOutputBufferStream out(bytes.data(), static_cast<offile_off_t>(bytes.size()));
    dataset.transferInit();
    EXPECT_TRUE(dataset.write(out, syntax, EET_ExplicitLength, nullptr).good());
    dataset.transferEnd();
    void* written = nullptr;
    offile_off_t length = 0;
    out.flushBuffer(written, length);

    DcmInputBufferStream in;
    in.setBuffer(written, length);
    in.setEos();
    auto copy = std::make_unique<DcmDataset>();
    copy->transferInit();
    EXPECT_TRUE(copy->read(in, syntax).good());
    copy->transferEnd();
    return copy;
}

TEST(KXItem, surviveTransfers)
{
    DcmDataset dataset;
    for (const DcmTagKey& key : {kPatientID, kCount}) {
        auto element = made(key);
        ASSERT_TRUE(element->putString("4711").good());
        ASSERT_TRUE(inserted(dataset, std::move(element)));
    }
    ASSERT_TRUE(inserted(dataset, made(DcmTagKey(0x0075, 0x100d))));
    KXItem::registerDictionary(); // implicit VR leaves the VRs to the reader
    KXItem::registerDictionary();
    const DcmDictEntry* entry = dcmDataDict.rdlock().findEntry(kPatientID, KXItem::kCreator);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->getVMMin(), 1);
    EXPECT_EQ(entry->getVMMax(), 1);
    dcmDataDict.rdunlock();
    for (const E_TransferSyntax syntax : {EXS_LittleEndianExplicit, EXS_BigEndianExplicit, EXS_LittleEndianImplicit}) {
        const auto copy = transferred(dataset, syntax);
        EXPECT_EQ(copy->card(), 4u) << syntax;
        EXPECT_EQ(textIn(*copy, kCreatorKey), KXItem::kCreator) << syntax;
        EXPECT_EQ(textIn(*copy, kPatientID), "4711") << syntax;
        Uint16 count = 0;
        EXPECT_TRUE(copy->findAndGetUint16(kCount, count).good()) << syntax;
        EXPECT_EQ(count, 4711) << syntax;
        DcmSequenceOfItems* changes = nullptr;
        EXPECT_TRUE(copy->findAndGetSequence(DcmTagKey(0x0075, 0x100d), changes).good()) << syntax;
        EXPECT_TRUE(inserted(*copy, made(DcmTagKey(0x0075, 0x1003)))) << "the reservation is known again, " << syntax;
    }
}

} // namespace
