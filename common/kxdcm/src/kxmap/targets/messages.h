// SPDX-License-Identifier: BSD-3-Clause
// What the left-value parser reports, each followed by the text that it complains of. Kept to the letter.
#pragma once

namespace kxmap {

constexpr const char* kEmptyLeftValue = "Empty Left Value";
constexpr const char* kInvalidDicomTag = "Invalid Dicom Tag:";
constexpr const char* kInvalidItemNo = "Invalid Item No.:";
constexpr const char* kWrongParameterCount = "Number of parameters is not correct (3n+2) in lvalue: ";
constexpr const char* kUnidentifiedTag = "gtag or etag cannot be identified in lvalue:";

} // namespace kxmap
