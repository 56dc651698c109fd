// SPDX-License-Identifier: BSD-3-Clause
// What the parser reports. Texts are kept to the letter, slips included: administrators search for them.
#pragma once

#include "kxmap/core/limits.h"

namespace kxmap {

constexpr const char* kErrorPrefix = "Error: ";
constexpr const char* kMismatchedCall = "Mismatched ()\n";
constexpr const char* kMismatchedBracket = "bracket mismatch"; // alone without a line feed
constexpr const char* kMismatchedQuotes = "Mismatcehd quotes\n";
constexpr const char* kUnknownFunction = "Unknown function:"; // then the name and a line feed
constexpr const char* kDoesNotTake = " does not take ";       // between the function's name and the count
constexpr const char* kArguments = "arguments";               // a blank before it in the message, none in the log
static_assert(kMaxNesting == 1024);                           // the number in the next text
constexpr const char* kNestedTooDeeply = "Expression nested too deeply: more than 1024 calls within calls\n";

} // namespace kxmap
