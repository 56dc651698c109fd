// SPDX-License-Identifier: BSD-3-Clause
// The two variable maps of a session.
#include "kxmap.h"

namespace {

void setOrClear(std::map<std::string, std::string>& variables, const std::string& name, const char* value)
{
    if (value == nullptr) variables.erase(name);
    else variables.try_emplace(name, value); // deliberate: the first write wins until NULL clears the name
}

} // namespace

const char* MappingSession::getVariable(const char* name) const
{
    const bool outlives = name[0] == '@';
    const auto& map = outlives ? atVariables : variables;
    const auto found = map.find(outlives ? name + 1 : name);
    return found == map.end() ? nullptr : found->second.c_str();
}

void MappingSession::setVariable(const char* name, const char* value)
{
    if (name[0] == '@') setOrClear(atVariables, name + 1, value);
    setOrClear(variables, name, value); // an "@" name too, "@" included
}
