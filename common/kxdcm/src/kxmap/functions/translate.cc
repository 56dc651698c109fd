// SPDX-License-Identifier: BSD-3-Clause
// Recoding through a table that is written in the rule.
#include "kxmap.h"

#include "kxmap/functions/operands.h"

// translate(value, default, from1, to1, ...): the first "to" whose "from" equals the value (as "equals" has it, NULL
// with NULL), else the default. The default and the "to" of every pair looked at are evaluated, whether they are taken
// or not.
Value* translate_getValue(MappingSession& session, std::list<Expression*>& params)
{
    SArgs args(session, params);
    const auto next = [&args] {
        Value* value = args.GetAt();
        args.Next();
        return value;
    };
    Value* value = next();
    Value* otherwise = next();
    while (args.currentExpression != params.end()) {
        Value* from = next();
        Value* to = next();
        if (kxmap::sameText(value, from)) return kxmap::keep(to);
    }
    return kxmap::keep(otherwise);
}
