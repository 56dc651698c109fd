// SPDX-License-Identifier: BSD-3-Clause
#include "tool/record/runcharactersets.h"

#include "tool/record/recorder.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdeftag.h>

#include <tuple>

namespace kxtool {

RunCharacterSets::RunCharacterSets(const Recording& recording, DcmDataset& dataset)
    : dataset_(dataset), before_(CharacterSet::of(dataset)), after_(before_)
{
    const auto original = recording.originals().find(DCM_SpecificCharacterSet);
    if (original == recording.originals().end()) return;
    OFString terms;
    if (original->second) std::ignore = original->second->getOFStringArray(terms);
    before_ = CharacterSet(std::string(terms.c_str(), terms.length()));
}

CharacterSet RunCharacterSets::before(const Step& step) const
{
    const CharacterSet there = after(step);
    return there.terms() == after_.terms() ? before_ : there;
}

CharacterSet RunCharacterSets::after(const Step& step) const
{
    const auto* nested = dynamic_cast<const LVSeqDicomTag*>(step.rule->target.get());
    if (nested == nullptr) return after_;
    std::list<int> path(nested->path);
    DcmItem* item = getParentItem(path, &dataset_);
    return item == nullptr ? after_ : CharacterSet::of(*item);
}

} // namespace kxtool
