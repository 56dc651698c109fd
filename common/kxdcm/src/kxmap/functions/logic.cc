// SPDX-License-Identifier: BSD-3-Clause
// Conditions. There is no boolean type: NULL is false, any value is true, whatever its text.
#include "kxmap.h"

#include "kxmap/functions/operands.h"

using kxmap::keep;
using kxmap::truth;

// NULL(): NULL.
Value* NULL_getValue(MappingSession& /*session*/, std::list<Expression*>& /*params*/)
{
    return nullptr;
}

// or(a, b, ...): the first that is not NULL, itself. Those after it are not evaluated.
Value* or_getValue(MappingSession& session, std::list<Expression*>& params)
{
    SArgs args(session, params);
    for (std::size_t i = 0; i < params.size(); ++i, args.Next()) {
        if (Value* value = args.GetAt()) return keep(value);
    }
    return nullptr;
}

// and(a, b, ...): "true" when none is NULL. Those after the first NULL are not evaluated.
Value* and_getValue(MappingSession& session, std::list<Expression*>& params)
{
    SArgs args(session, params);
    for (std::size_t i = 0; i < params.size(); ++i, args.Next()) {
        if (args.GetAt() == nullptr) return nullptr;
    }
    return truth(true);
}

// not(a): "true" for NULL, else NULL.
Value* not_getValue(MappingSession& session, std::list<Expression*>& params)
{
    SArgs args(session, params);
    return truth(args.GetAt() == nullptr);
}

// equals(a, b): "true" when the texts are the same to the byte, or both are NULL. Both are always evaluated.
Value* equals_getValue(MappingSession& session, std::list<Expression*>& params)
{
    SArgs args(session, params);
    Value* a = args.GetAt();
    args.Next();
    Value* b = args.GetAt();
    return truth(kxmap::sameText(a, b));
}

// if(condition, then, otherwise): the one or the other, itself. The branch not taken is not evaluated.
Value* if_getValue(MappingSession& session, std::list<Expression*>& params)
{
    SArgs args(session, params);
    const bool isTrue = args.GetAt() != nullptr;
    args.Next();
    if (!isTrue) args.Next();
    return keep(args.GetAt());
}
