// SPDX-License-Identifier: BSD-3-Clause
// What elements hold by the data dictionary, as far as rules see it: which have no text, and how the texts of the
// others look.
#pragma once

#include "tool/console/text.h"
#include "tool/rules/known.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// @return the VR that a new element of the tag gets; EVR_UNKNOWN when the engine makes none.
DcmEVR vrOf(const DcmTagKey& key);

/// @return whether rules see no text in elements of the VR: numbers, bytes, tags and sequences. Of an unknown VR: no.
bool isTextless(DcmEVR vr);

/// @return the most values that the tag takes; none where there is no limit, or no such tag.
std::optional<std::size_t> mostValuesOf(const DcmTagKey& key);

/// @return what is known of the tag's element in any dataset.
Known knownElement(const DcmTagKey& key);

/// @return whether a text is what datasets have there, where they hold what their VRs demand.
bool isUsual(const Known& value, std::string_view text);

/// @return whether a whole value of one VR is a value of the other; true where one of them is open.
bool fits(DcmEVR from, DcmEVR to);

/// @return whether whole numbers are read in values of the VR, to be ordered (`isOrdered`) or to be added up.
bool isNumeric(DcmEVR vr, bool isOrdered);

/// @return "Modality (0008,0060)"; without a name where the data dictionary has none.
std::string shownTag(const DcmTagKey& key);

/// @return the tag at the end of a path.
DcmTagKey tagOf(const std::vector<int>& path);

} // namespace kxtool
