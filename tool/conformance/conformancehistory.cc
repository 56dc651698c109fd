// SPDX-License-Identifier: BSD-3-Clause
#include "tool/conformance/conformancehistory.h"

#include <algorithm>

namespace kxtool {

std::vector<const History::Source*> History::variable(const std::string& name, std::size_t moment) const
{
    std::vector<const Source*> sources;
    const auto found = variables_.find(name);
    if (found == variables_.end()) return sources;
    const auto next = std::ranges::upper_bound(fileBegins_, moment);
    const std::size_t begin = name.starts_with('@') || next == fileBegins_.begin() ? 0 : *std::prev(next);
    for (const Source& source : found->second) {
        if (source.moment < begin || source.moment >= moment) continue;
        if (source.known.isNever()) sources.clear(); // whatever was there
        sources.push_back(&source);
    }
    return sources;
}

// The first write wins, and NULL clears the name for a later one.
const History::Source* History::onlySourceOf(const std::string& name, std::size_t moment) const
{
    const Source* only = nullptr;
    for (const Source* source : variable(name, moment)) {
        if (source->known.isNever() || (only != nullptr && only->known.isAlways() && source->known.isAlways()))
            continue;
        if (only != nullptr) return nullptr;
        only = source;
    }
    return only;
}

const History::Source* History::field(const std::string& name, std::size_t moment) const
{
    const auto found = fields_.find(name);
    if (found == fields_.end()) return nullptr;
    const auto next = std::ranges::lower_bound(found->second, moment, {}, &Source::moment);
    return next == found->second.begin() ? nullptr : &*std::prev(next);
}

bool History::isWrittenSince(const ElementPath& path, std::size_t moment) const
{
    const auto found = elements_.find({path[0], path[1]});
    return found != elements_.end() && std::ranges::any_of(found->second, [&](const auto& write) {
               return write.second.moment >= moment && areNested(write.first, path);
           });
}

std::string History::stateOf(const ElementPath& path, std::size_t moment) const
{
    if (!isWrittenSince(path, moment)) return {};
    const auto& writes = elements_.at({path[0], path[1]});
    const auto last = std::find_if(writes.rbegin(), writes.rend(), [&](const auto& write) {
        return write.second.moment < moment && areNested(write.first, path);
    });
    return last == writes.rend() ? " before coercion" : " as set at " + last->second.place;
}

} // namespace kxtool
