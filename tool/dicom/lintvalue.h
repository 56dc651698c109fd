// SPDX-License-Identifier: BSD-3-Clause
// What an element of a VR can hold, by DICOM PS3.5 section 6.2.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <optional>
#include <string>
#include <string_view>

namespace kxtool {

/// What is wrong with a text as an element's value.
struct ValueFault {
    enum class Kind { TooLong, Form };
    Kind kind;
    std::string message; ///< "SH holds 16 characters a value, and this one has 17"
};

/// Judges a text as the whole content of an element: value by value, parted by backslashes where the VR has several
/// values. Characters are those of UTF-8 when the text is well-formed UTF-8, else bytes. An empty value is good.
/// @return the first fault; none also for VRs that hold no text.
std::optional<ValueFault> faultOf(DcmEVR vr, std::string_view text);

/// @return whether a backslash parts values of the VR; in others it is text.
bool holdsValues(DcmEVR vr);

/// @return the most bytes that a value of ASCII has; of PN a component group. 0: no limit, or no text.
std::size_t mostBytesOf(DcmEVR vr);

/// @return the characters of a text: of UTF-8 when it is well-formed, else bytes.
std::size_t characterCount(std::string_view text);

} // namespace kxtool
