// SPDX-License-Identifier: BSD-3-Clause
// What evaluators share: an operand's text, handing an operand on, and the two truth values.
#pragma once

#include "kxmap.h"

#include <cstring>

namespace kxmap {

/// @return the value's own text; null for NULL and for a value without text.
inline const char* textOf(Value* value)
{
    return value == nullptr ? nullptr : value->getString();
}

/// Takes one more reference to an operand, for the caller of the evaluator.
inline Value* keep(Value* value)
{
    if (value != nullptr) ++value->refCount;
    return value;
}

/// Whether both are NULL, or both are values of the same text, to the byte. Without text equals without text.
inline bool sameText(Value* a, Value* b)
{
    if (a == nullptr || b == nullptr) return a == b;
    const char* textA = a->getString();
    const char* textB = b->getString();
    if (textA == nullptr || textB == nullptr) return textA == textB;
    return std::strcmp(textA, textB) == 0;
}

/// @return a new "true", or null.
inline Value* truth(bool isTrue)
{
    return isTrue ? new StringValue("true") : nullptr;
}

} // namespace kxmap
