// SPDX-License-Identifier: BSD-3-Clause
// What the engine makes of values, by asking it: a rule's value written into an attribute that stands in memory alone.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <optional>
#include <string>

class Expression;

namespace kxtool {

/// What becomes of an attribute that a rule writes to. Texts are as shownText() has them.
struct Written {
    std::optional<std::string> ifAbsent;  ///< what it then holds; none: it is not made
    std::optional<std::string> ifPresent; ///< what it then holds; none: what it held before
};

/// @param target one that the engine can make.
Written writeText(const DcmTagKey& target, const std::string& text);

/// @param source what is copied, holding some value of its VR.
/// @param isText whether its text alone is copied, since a variable or a custom field was between.
Written writeElement(const DcmTagKey& target, const DcmTagKey& source, bool isText);

/// @return whether the attribute then holds the text itself, or the number that it means.
bool holds(const std::optional<std::string>& written, const std::string& text);

/// @return whether rules see a text in elements of this tag.
bool isSeenAsText(const DcmTagKey& key);

/// @return whether a dataset tells the VR of such elements, as that of pixel values: the dictionary does not.
bool hasOpenVr(const DcmTagKey& key);

/// @return the VR that the data dictionary, or the server's block, gives the tag.
std::string vrOf(const DcmTagKey& key);

/// What an expression comes to whatever the dataset.
struct Constant {
    std::optional<std::string> text; ///< none: NULL
};

/// @return none for what reads the dataset, variables or custom fields, and for what is random.
std::optional<Constant> constantOf(const Expression& expression);

} // namespace kxtool
