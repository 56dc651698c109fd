// SPDX-License-Identifier: BSD-3-Clause
// Writing a temporary variable of the session.
#include "kxmap.h"

LVTempVar::LVTempVar(const std::string& variable) : name(variable) {}

void LVTempVar::assignValue(MappingSession& session, Value* value)
{
    session.setVariable(name.c_str(), value == nullptr ? nullptr : value->getString());
}
