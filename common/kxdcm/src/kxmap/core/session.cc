// SPDX-License-Identifier: BSD-3-Clause
// The two variable maps of a session.
#include "kxmap.h"

const char* MappingSession::getVariable(const char* name) const
{
    const bool outlives = name[0] == '@';
    const auto& map = outlives ? atVariables : variables;
    const auto found = map.find(outlives ? name + 1 : name);
    return found == map.end() ? nullptr : found->second.c_str();
}

void MappingSession::setVariable(const char* name, const char* value)
{
    const bool outlives = name[0] == '@'; // written to both maps, to `variables` with its "@"
    const std::string fullName(name);
    const std::string bareName(outlives ? name + 1 : "");
    if (value == nullptr) {
        variables.erase(fullName);
        if (outlives) atVariables.erase(bareName);
        return;
    }
    // Both entries are made before a map is changed, and merge() allocates nothing: when memory is exhausted, both maps
    // are as they were.
    std::map<std::string, std::string> entry;
    std::map<std::string, std::string> outlivingEntry;
    entry.emplace(fullName, value);
    if (outlives) outlivingEntry.emplace(bareName, value);
    // Deliberate: the first write wins; only NULL clears the name for a later rule. merge() keeps what is there.
    variables.merge(entry);
    atVariables.merge(outlivingEntry);
}
