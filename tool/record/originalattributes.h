// SPDX-License-Identifier: BSD-3-Clause
// Original Attributes Sequence (DICOM PS3.3 section C.12.1.1.9): the record in a dataset of what was changed in it.
#pragma once

#include "tool/record/recorder.h"

#include <string>
#include <vector>

namespace kxtool {

/// What an item says beside the values.
struct ModificationNotes {
    std::string source;            ///< who provided the values; may be empty
    std::string system;            ///< who changed them; not empty
    std::string reason = "COERCE"; ///< or "CORRECT"
};

/// @return empty, or why a text cannot be a value of VR LO.
std::string whyNoLongString(const std::string& text);

/// @return a name for this system: the program and the host.
std::string thisSystem();

/// @return the names of the attributes that tell who the patient is and that these rules write: their values would be kept.
std::vector<std::string> patientAttributesIn(const RulesInOrder& files);

/// Adds one item with the values that the rules replaced or removed, and sets Instance Coercion DateTime, which is
/// listed like what the rules have changed: undoing all that an item lists yields the dataset before. Does nothing to
/// a dataset in which nothing was changed. An attribute that was added, or whose value was none of its VR, is listed
/// without a value; a sequence in which something was changed is listed whole, as it was; a private attribute together
/// with its private creator.
/// @param recording of this dataset.
/// @return empty, or why the item could not be added.
std::string addOriginalAttributes(DcmDataset& dataset, const Recording& recording, const ModificationNotes& notes);

} // namespace kxtool
