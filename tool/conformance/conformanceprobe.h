// SPDX-License-Identifier: BSD-3-Clause
// What attributes of the data dictionary's VR hold once a value is written to them: the engine itself is asked.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <optional>
#include <string>

namespace kxtool {

/// What becomes of an attribute that a rule writes to. Texts are as shownText() has them.
struct Written {
    std::optional<std::string> ifAbsent;  ///< what it then holds; none: it is not made
    std::optional<std::string> ifPresent; ///< what it then holds; none: what it held before
};

Written writeText(const DcmTagKey& target, const std::string& text);

/// @param source what is copied, holding some value of its VR.
/// @param isText whether its text alone is copied.
Written writeElement(const DcmTagKey& target, const DcmTagKey& source, bool isText);

/// @return whether the attribute then holds the text itself, or the number that it means.
bool holds(const std::optional<std::string>& written, const std::string& text);

/// @return whether the engine can make such an element: the dictionary, or the server's block, has the tag.
bool canBeMade(const DcmTagKey& key);

/// @return whether rules see a text in elements of this tag; so where nothing is known of them.
bool isSeenAsText(const DcmTagKey& key);

/// @return the VR of such an element; "ox" and the like where a dataset tells it, as that of pixel values; empty for none.
std::string vrNameOf(const DcmTagKey& key);

/// @return whether it is a VR of the standard, not one that a dataset tells.
bool isSettledVr(const DcmTagKey& key);

} // namespace kxtool
