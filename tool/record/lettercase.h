// SPDX-License-Identifier: BSD-3-Clause
// The case functions change single bytes. In character sets with more than one byte for a letter, and in escape sequences,
// they also change bytes that are no letters, which damages the text.
#pragma once

#include "tool/dicom/characterset.h"

#include <string>
#include <string_view>
#include <vector>

class Expression;
struct MappingSession;

namespace kxtool {

/// A text of more than ASCII that a case function changed; both are of one length.
struct Recased {
    std::string before;
    std::string after;
};

/// @return whether a rule calls "toUpper" or "toLower".
bool hasCaseFunction(const Expression& expression);

/// Evaluates the calls of the case functions in a rule. What the built-ins report meanwhile is the caller's to take away;
/// `gseed` is as before.
/// @return what they would change; calls that the rule does not come to are among them.
std::vector<Recased> recasedTexts(Expression& expression, MappingSession& session);

/// @param value what the rule came to. @return whether it holds something of the text in which not only letters were
///         changed. A text that is not in its character set is not judged.
bool isHarmed(const Recased& text, const CharacterSet& set, std::string_view value);

} // namespace kxtool
