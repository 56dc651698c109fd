// SPDX-License-Identifier: BSD-3-Clause
// Attributes by the names that a conformance statement has for them.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <string>
#include <vector>

namespace kxtool {

/// Of an element: group, element, and for one in sequence items: item, group, element, again and again. Items from 0.
using ElementPath = std::vector<int>;

/// @return the element's own tag.
DcmTagKey tagAt(const ElementPath& path);

/// @return whether the one is the other or lies within it.
bool areNested(const ElementPath& a, const ElementPath& b);

/// @return "(0010,1002) item 1 > (0010,0021)"
std::string tagText(const ElementPath& path);

/// @return "Other Patient IDs Sequence, item 1 > Issuer of Patient ID"
std::string nameText(const ElementPath& path);

/// @return for a sentence: "Issuer of Patient ID (0010,0021) in item 1 of Other Patient IDs Sequence (0010,1002)"
std::string nameAndTag(const ElementPath& path);

/// @return of the item that the element is in, for a sentence; empty for the dataset's own elements.
std::string itemText(const ElementPath& path);

} // namespace kxtool
