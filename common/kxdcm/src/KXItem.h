// SPDX-License-Identifier: BSD-3-Clause
// The server's private block in a DICOM item: which tags it holds, how their elements are made, and how they come into
// an item together with the private creator that reserves the block.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>
#include <dcmtk/ofstd/ofcond.h>

#include <array>

class DcmElement;
class DcmItem;

/// A view of one item, made where it is needed and as short-lived; the item must outlive it.
///
/// The block is (0075,1000) to (0075,10ff), reserved by the private creator element (0075,0010) "KXDCM COERCION 1.0"
/// (DICOM PS3.5 section 7.8.1). It stands in that place or not at all, so that rules can name its tags. The group is
/// one that no vendor is known to use.
class KXItem {
public:
    static constexpr Uint16 kGroup = 0x0075;
    static constexpr Uint16 kCreatorElement = 0x0010;
    static constexpr const char* kCreator = "KXDCM COERCION 1.0";

    /// One row of the block's dictionary.
    struct PrivateTag {
        Uint16 element;
        DcmEVR vr;
        const char* name; ///< in the style of the data dictionary's keywords
    };

    using Dictionary = std::array<PrivateTag, 13>;

    /// @return every tag that has a meaning, in ascending order.
    static const Dictionary& dictionary();

    /// Tells DCMTK's global data dictionary the block's tags: once when a server starts, before it reads datasets.
    /// Without it a dataset in implicit VR is read with the block unknown, and rules see no text in it. Lasts until the
    /// process ends or the dictionary is cleared or reloaded; a second call changes nothing. Takes the dictionary's
    /// write lock.
    static void registerDictionary();

    KXItem(DcmItem& item) : item_(item) {}

    /// @return whether a key lies in the block, known to dictionary() or not. The private creator element does not: it
    ///         belongs to insertKX(), and a rule that names it writes a plain LO element.
    static bool isOurPrivateTagKey(const DcmTagKey& key);

    /// Makes an empty element of the class and VR that dictionary() gives; its tag knows the private creator.
    /// @return the caller's, to be inserted or deleted; null for a key outside the block or without a meaning.
    static DcmElement* createNewDicomElement(const DcmTagKey& key);

    /// Inserts an element of the block into the item, and first the private creator element where it is missing.
    /// Elements that stand in the block of an item without a private creator belong to nobody, and become ours. A
    /// creator that came as UN counts by its bytes.
    /// @param element in no item yet; the item owns it after success, and the caller still does after any failure.
    /// @param replaceOld whether an element of the same tag is destroyed in its favour; when not, it is a failure.
    /// @param checkInsertOrder whether DCMTK warns of an element that does not come last in the item.
    /// @return good, or one of these, and then the item is as it was: EC_IllegalCall for null, EC_InvalidTag for a tag
    ///         outside the block, a condition of its own when (0075,0010) is empty or names another creator, and what
    ///         DcmItem::insert says, EC_DoubledTag among it.
    OFCondition insertKX(DcmElement* element, bool replaceOld, bool checkInsertOrder);

private:
    DcmItem& item_;
};
