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

/// @return the element's text, numbers included; what is neither, in words: "<4 bytes>", "<2 items>", and of
///         encapsulated pixel data "<3 fragments>".
std::string shownText(DcmElement& element);

/// @param element null for none.
/// @return the element as a reader finds it in a file of that transfer syntax, where padding is no part of a text; null
///         for none. What holds bytes, and what cannot be written, is copied as it is.
std::unique_ptr<DcmElement> readBack(DcmElement* element, E_TransferSyntax syntax);

/// @return whether rules see the element's text, be it empty: they see none in numbers, bytes, tags and sequences.
bool hasText(DcmElement& element);

/// @return the standard's name of the element's VR.
std::string vrOf(const DcmElement& element);

/// Compares two elements to the byte, but for trailing padding: VR and value, and all that sequences hold. DCMTK's own
/// `compare` lets leading blanks, and texts of one length, pass for the same.
/// @param a null where there is none; and so is b.
bool isSameElement(DcmElement* a, DcmElement* b);

} // namespace kxtool
