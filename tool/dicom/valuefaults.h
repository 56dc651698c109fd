// SPDX-License-Identifier: BSD-3-Clause
// What an element of a VR can hold, by DICOM PS3.5 section 6.2, and in its character set.
#pragma once

#include "tool/dicom/characterset.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// The names of faults; one object each, so that they may be compared as pointers.
namespace fault {
inline constexpr char kLength[] = "length";
inline constexpr char kForm[] = "form";
inline constexpr char kCharset[] = "charset";
inline constexpr char kMultiplicity[] = "multiplicity";
} // namespace fault

/// Something wrong, in words.
struct Fault {
    const char* name;
    std::string text; ///< "SH value has 17 characters, and SH holds 16"
};

/// One attribute's text.
struct Sample {
    std::string text; ///< as the dataset has it
    DcmTagKey key;
    DcmEVR vr;
    CharacterSet set;
};

/// Judges a text as the whole content of an element: value by value, parted by backslashes where the VR has several
/// values. Characters are those of UTF-8 when the text is well-formed UTF-8, else bytes. An empty value is good.
/// @return the first fault, kLength or kForm; none also for VRs that hold no text.
std::optional<Fault> faultOf(DcmEVR vr, std::string_view text);

/// Judges a text as what an attribute of a dataset holds.
/// @return at most one fault of each name; none for the empty text, and for VRs that hold no text.
std::vector<Fault> faultsOf(const Sample& sample);

/// @return that a text seems to be UTF-8, and how it reads in its character set.
Fault utf8Fault(const Sample& sample);

/// @return whether the VR is one of texts.
bool isText(DcmEVR vr);

/// @return whether a backslash parts values of the VR; in others it is text.
bool holdsValues(DcmEVR vr);

/// @return the most bytes that a value of ASCII has; of PN a component group. 0: no limit, or no text.
std::size_t mostBytesOf(DcmEVR vr);

} // namespace kxtool
