// SPDX-License-Identifier: BSD-3-Clause
// Whether a text is a value that its VR can hold (DICOM PS3.5 section 6.2) in its character set.
#pragma once

#include "tool/record/chartext.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// The names of faults; constants, so that they may be compared as pointers.
namespace fault {
constexpr const char* kLength = "length";
constexpr const char* kForm = "form";
constexpr const char* kCharset = "charset";
constexpr const char* kMultiplicity = "multiplicity";
} // namespace fault

/// One attribute's text, before or after.
struct Sample {
    std::string text; // as the dataset has it
    DcmTagKey key;
    DcmEVR vr;
    CharacterSet set;
};

/// Something wrong, in words.
struct Fault {
    const char* name;
    std::string text;
};

/// @return at most one fault of each name; none for the empty text, and for VRs that hold no text.
std::vector<Fault> faultsOf(const Sample& sample);

/// @return that a text seems to be UTF-8, and how it reads in its character set.
Fault utf8Fault(const Sample& sample);

/// @return whether the VR is one of texts.
bool isText(DcmEVR vr);

} // namespace kxtool
