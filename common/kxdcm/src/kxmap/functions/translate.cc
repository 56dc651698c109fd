// SPDX-License-Identifier: BSD-3-Clause
// Recoding through a table that is written in the rule.
#include "kxmap.h"

#include "kxmap/functions/operands.h"

using kxmap::Arguments;
using kxmap::Operand;

// translate(value, default, from1, to1, ...): the first "to" whose "from" equals the value (as "equals" has it, NULL
// with NULL), else the default. The default and the "to" of every pair looked at are evaluated, whether they are taken
// or not.
Value* translate_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand value = arguments.next();
    Operand otherwise = arguments.next();
    while (!arguments.isAtEnd()) {
        Operand from = arguments.next();
        Operand to = arguments.next();
        if (kxmap::sameText(value, from)) return to.release();
    }
    return otherwise.release();
}
