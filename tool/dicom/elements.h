// SPDX-License-Identifier: BSD-3-Clause
// Elements of a dataset: finding, showing and comparing them.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcitem.h>

#include <memory>
#include <string>

namespace kxtool {

/// @param item null for one that is not there.
/// @return the item's own element of that tag; null for none.
DcmElement* elementOf(DcmItem* item, const DcmTagKey& key);

/// @param element null for none. @return a copy; null for none.
std::unique_ptr<DcmElement> copyOf(DcmElement* element);

/// @return the element's text, also for numbers; for others a description: "<4 bytes>", "<2 items>", and of
///         encapsulated pixel data "<3 fragments>".
std::string shownText(DcmElement& element);

/// @param element null for none.
/// @return the element as it is read from a file of that transfer syntax, without the padding of texts; null for none.
///         Elements of bytes, and those that cannot be written, are copied as they are.
std::unique_ptr<DcmElement> readBack(DcmElement* element, E_TransferSyntax syntax);

/// @return whether rules see the element's text, which may be empty. They see none in numbers, bytes, tags and sequences.
bool hasText(DcmElement& element);

/// @return the standard's name of the element's VR.
std::string vrOf(const DcmElement& element);

/// Compares two elements to the byte, but for trailing padding: VR and value, and all that sequences hold. DCMTK's own
/// `compare` takes some different texts for equal: those with leading blanks, and those of one length.
/// @param a and b null for an absent element.
bool isSameElement(DcmElement* a, DcmElement* b);

} // namespace kxtool
