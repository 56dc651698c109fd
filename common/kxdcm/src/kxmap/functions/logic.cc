// SPDX-License-Identifier: BSD-3-Clause
// Conditions. There is no boolean type: NULL is false, any value is true, whatever its text.
#include "kxmap.h"

#include "kxmap/functions/operands.h"

using kxmap::Arguments;
using kxmap::Operand;
using kxmap::truth;

// NULL(): NULL.
Value* NULL_getValue(MappingSession& /*session*/, std::list<Expression*>& /*params*/)
{
    return nullptr;
}

// or(a, b, ...): the first that is not NULL, itself. Those after it are not evaluated.
Value* or_getValue(MappingSession& session, std::list<Expression*>& params)
{
    for (Arguments arguments(session, params); !arguments.isAtEnd();) {
        if (Value* value = arguments.nextValue()) return value;
    }
    return nullptr;
}

// and(a, b, ...): "true" when none is NULL. Those after the first NULL are not evaluated.
Value* and_getValue(MappingSession& session, std::list<Expression*>& params)
{
    for (Arguments arguments(session, params); !arguments.isAtEnd();) {
        if (arguments.next().isNull()) return nullptr;
    }
    return truth(true);
}

// not(a): "true" for NULL, else NULL.
Value* not_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return truth(Arguments(session, params).next().isNull());
}

// equals(a, b): "true" when the texts are the same to the byte, or both are NULL. Both are always evaluated.
Value* equals_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand a = arguments.next();
    Operand b = arguments.next();
    return truth(kxmap::sameText(a, b));
}

// if(condition, then, otherwise): the one or the other, itself. The branch not taken is not evaluated.
Value* if_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    const bool isTrue = !arguments.next().isNull();
    if (!isTrue) arguments.skip();
    return arguments.nextValue();
}
