// SPDX-License-Identifier: BSD-3-Clause
// The argument cursor of evaluators.
#include "kxmap.h"

#include "kxmap/core/guards.h"

#include <iterator>

SArgs::~SArgs()
{
    for (Value* value : values) kxmap::ValueRef::drop(value);
}

Value* SArgs::GetAt()
{
    if (currentExpression == params.end()) return nullptr;
    if (currentValue != values.end()) return *currentValue;
    kxmap::ValueRef value((*currentExpression)->getValue(session));
    values.push_back(value.get());
    currentValue = std::prev(values.end());
    return value.release(); // `values` holds the reference
}
