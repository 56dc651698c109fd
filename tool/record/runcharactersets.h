// SPDX-License-Identifier: BSD-3-Clause
// The character sets that rules found and left: they may write the Specific Character Set, too.
#pragma once

#include "tool/dicom/characterset.h"

class DcmDataset;

namespace kxtool {

class Recording;
struct Step;

/// The character sets before and after a recorded run, of the dataset and of the items in which rules wrote.
class RunCharacterSets {
public:
    /// @param dataset as the run left it; must outlive this object.
    RunCharacterSets(const Recording& recording, DcmDataset& dataset);

    /// Of the dataset itself.
    const CharacterSet& before() const { return before_; }
    const CharacterSet& after() const { return after_; }

    /// At the target of a step. Items with a character set of their own are taken as the run left them.
    CharacterSet before(const Step& step) const;
    CharacterSet after(const Step& step) const;

private:
    DcmDataset& dataset_;
    CharacterSet before_;
    CharacterSet after_;
};

} // namespace kxtool
