// SPDX-License-Identifier: BSD-3-Clause
// Writes to what identifies an object, its series, study and patient, and to what tells how its pixels are to be read.
#include "tool/lint/ruleview.h"
#include "tool/lint/vrtext.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <fmt/format.h>

namespace kxtool {
namespace {

const DcmTagKey* findIn(std::span<const DcmTagKey> keys, const DcmTagKey& key)
{
    const auto found = std::ranges::find(keys, key);
    return found == keys.end() ? nullptr : &*found;
}

bool isUid(const DcmTagKey& key)
{
    static const DcmTagKey kUids[] = {DCM_SOPClassUID, DCM_StudyInstanceUID, DCM_SeriesInstanceUID,
                                      DCM_FrameOfReferenceUID, DCM_SOPInstanceUID};
    return findIn(kUids, key) != nullptr;
}

/// What readers of the pixels go by.
bool isOfPixels(const DcmTagKey& key)
{
    static const DcmTagKey kPixels[] = {DCM_SamplesPerPixel,
                                        DCM_PhotometricInterpretation,
                                        DCM_PlanarConfiguration,
                                        DCM_NumberOfFrames,
                                        DCM_Rows,
                                        DCM_Columns,
                                        DCM_BitsAllocated,
                                        DCM_BitsStored,
                                        DCM_HighBit,
                                        DCM_PixelRepresentation,
                                        DCM_PixelData,
                                        DCM_FloatPixelData,
                                        DCM_DoubleFloatPixelData};
    return findIn(kPixels, key) != nullptr;
}

bool holdsChance(const Expression& node)
{
    return wayOf(node) == Way::Drawn ||
           std::ranges::any_of(node.params, [](const auto* one) { return holdsChance(*one); });
}

/// One of the values that a rule may write.
struct Leaf {
    const Expression& node;
    bool isConditional; ///< a choice or a table decides
    bool isDefault;     ///< the target itself is taken before it, where it is there
    bool isAsked;       ///< the target itself decides: one value takes the place of another
};

class ObjectCheck {
public:
    ObjectCheck(const RuleView& view, const DcmTagKey& key) : view_(view), key_(key) {}

    void visit(const Leaf& leaf)
    {
        bool isPassed = false;
        bool isDefault = leaf.isDefault;
        for (std::size_t i = 0; !isLiteral(leaf.node) && i < leaf.node.params.size(); ++i) {
            if (!isPassedOn(leaf.node, i)) continue;
            isPassed = true;
            const Expression& argument = argumentOf(leaf.node, i);
            if (!isUnreachable(view_, leaf.node, i))
                visit({argument, leaf.isConditional || isDecided(leaf.node), isDefault || isMissing(leaf.node, i),
                       leaf.isAsked || (isDecided(leaf.node) && reads(*leaf.node.params.front()))});
            isDefault = isDefault || (wayOf(leaf.node) == Way::FirstPresent && isItself(argument));
        }
        if (isPassed || isItself(leaf.node)) return;
        if (isUid(key_)) judgeUid(leaf);
        else if (isOfPixels(key_)) judgePixels(leaf);
        else if (!leaf.isConditional && isGone(view_.of(leaf.node))) tellDeleted(leaf);
    }

private:
    bool isItself(const Expression& node) const { return pathOf(unwrapped(node)) == view_.target; }

    bool reads(const Expression& node) const
    {
        return isItself(node) || std::ranges::any_of(node.params, [this](const auto* one) { return reads(*one); });
    }

    static bool isDecided(const Expression& call)
    {
        return wayOf(call) == Way::Choice || wayOf(call) == Way::Table || wayOf(call) == Way::Found;
    }

    /// @return whether an argument is taken where the target itself is missing.
    bool isMissing(const Expression& call, std::size_t index) const
    {
        if (wayOf(call) != Way::Choice) return false;
        const Expression& condition = unwrapped(*call.params.front());
        if (wayOf(condition) == Way::Not) return index == 1 && isItself(*condition.params.front());
        return index == 2 && isItself(condition);
    }

    bool isGone(const Known& value) const
    {
        return value.isNever() || (key_ == DCM_Modality && value.text && value.text->empty());
    }

    void tellDeleted(const Leaf& leaf) const
    {
        view_.tell(Check::Identity, leaf.node,
                   fmt::format("{} is gone with this: datasets have to have it", shownTag(key_)));
    }

    void tellUid(const Leaf& leaf, const char* what) const
    {
        view_.tell(Check::Identity, leaf.node, fmt::format("{}: {}", shownTag(key_), what));
    }

    void judgeUid(const Leaf& leaf) const
    {
        const Known& value = view_.of(leaf.node);
        if (value.isNever()) return tellDeleted(leaf);
        if (value.text && value.text->empty()) return tellUid(leaf, "an empty UID identifies nothing");
        const bool isShared = !leaf.isAsked && (key_ == DCM_StudyInstanceUID || key_ == DCM_SeriesInstanceUID);
        if (value.isConstant() && (!leaf.isConditional || leaf.isDefault || isShared))
            return tellUid(leaf, "one UID for all that this rule sees makes one object, series or study of them");
        if (holdsChance(leaf.node)) return tellUid(leaf, "chance makes no UID: it may give the same number again");
        if (wayOf(leaf.node) == Way::Part && value.usual.vr == EVR_UNKNOWN && !leaf.isConditional)
            return tellUid(leaf, "a part of a UID may be the same for several");
        const bool isOther = pathOf(leaf.node) && value.usual.vr == EVR_UI && key_ != DCM_FrameOfReferenceUID;
        if (isOther && !leaf.isDefault) tellUid(leaf, "the UID of something else: what was apart becomes one");
    }

    void judgePixels(const Leaf& leaf) const
    {
        const bool isNull = view_.of(leaf.node).isNever();
        if (leaf.isDefault && !isNull) return; // for datasets that lack it
        view_.tell(Check::Pixels, leaf.node,
                   fmt::format("{}: {}", shownTag(key_),
                               isNull ? "without it the pixels cannot be read"
                                      : "another value does not change the pixels: they are read wrongly then"));
    }

    const RuleView& view_;
    const DcmTagKey& key_;
};

} // namespace

void lintObject(const RuleView& view, const DcmTagKey& key)
{
    const bool isTold = key == DCM_SOPInstanceUID; // any write to it is
    if (view.target.size() != 2 || isTold) return;
    if (isUid(key) || isOfPixels(key) || key == DCM_PatientID || key == DCM_Modality)
        ObjectCheck(view, key).visit({view.root(), false, false, false});
}

} // namespace kxtool
