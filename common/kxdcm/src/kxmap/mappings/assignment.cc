// SPDX-License-Identifier: BSD-3-Clause
// One rule line: parsed into its two sides, and applied.
#include "kxmap.h"

#include "kxmap/core/guards.h"

#include <cstring>

Assignment::Assignment() : lvalue(nullptr), expression(nullptr) {}

Assignment::~Assignment()
{
    delete expression;
    delete lvalue;
}

bool Assignment::readCfgLine(const char* line)
{
    const char* equals = std::strchr(line, '=');
    if (equals == nullptr) return false;
    std::unique_ptr<Expression>(std::exchange(expression, nullptr)).reset();
    std::unique_ptr<LVObject>(std::exchange(lvalue, nullptr)).reset();

    std::string left(line, equals);
    lvalue = parseLV(left);
    if (lvalue == nullptr) return false;
    expression = Expression::readCfgLine(equals + 1);
    return expression != nullptr;
}

int Assignment::apply(MappingSession& session)
{
    if (expression == nullptr || lvalue == nullptr) return 1;
    const kxmap::ValueRef value(expression->getValue(session));
    lvalue->assignValue(session, value.get()); // NULL, too: the target decides what that means
    OFLOG_DEBUG(logger, "..Done");
    return 0;
}
