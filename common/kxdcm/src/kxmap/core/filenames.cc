// SPDX-License-Identifier: BSD-3-Clause
// The names of mapping files, read and made.
#include "kxmap/core/filenames.h"

namespace {

using kxmap::Direction;
using kxmap::FileMeaning;

constexpr std::string_view kSuffix = ".map";
constexpr std::string_view kOutboundSuffix = ".out.map"; // ends in the other one: such a file is read inbound as well
constexpr std::string_view kOutboundPrefix = "out";      // of the global files

FileMeaning unread(const char* why)
{
    FileMeaning meaning;
    meaning.whyUnread = why;
    return meaning;
}

std::string_view without(std::string_view name, std::string_view suffix)
{
    return name.substr(0, name.size() - suffix.size());
}

FileMeaning meaningOfTitleFile(std::string_view name)
{
    if (!name.ends_with(kSuffix)) return unread("its name does not end in \".map\", in lower case");
    const bool isOutbound = name.ends_with(kOutboundSuffix);
    return {FileMeaning::Role::Title, isOutbound ? Direction::Outbound : Direction::Inbound,
            without(name, isOutbound ? kOutboundSuffix : kSuffix), without(name, kSuffix), nullptr};
}

FileMeaning meaningOfGlobalFile(std::string_view name)
{
    FileMeaning meaning;
    if (name.starts_with(kOutboundPrefix)) {
        meaning.direction = Direction::Outbound;
        name.remove_prefix(kOutboundPrefix.size());
    }
    if (name == "pre.map") meaning.role = FileMeaning::Role::Pre;
    else if (name == "post.map") meaning.role = FileMeaning::Role::Post;
    else return unread("only pre.map, post.map, outpre.map and outpost.map are read here");
    return meaning;
}

} // namespace

FileMeaning kxmap::meaningOf(Place place, std::string_view name)
{
    return place == Place::Global ? meaningOfGlobalFile(name) : meaningOfTitleFile(name);
}

std::string kxmap::titleFile(Direction direction, std::string_view aeTitle)
{
    return std::string(aeTitle).append(direction == Direction::Outbound ? kOutboundSuffix : kSuffix);
}

std::string kxmap::globalFile(Direction direction, std::string_view name)
{
    std::string file = std::string(kGlobalDirectory) + '/';
    if (direction == Direction::Outbound) file += kOutboundPrefix;
    return file.append(name).append(kSuffix);
}

bool kxmap::canNameFile(std::string_view aeTitle)
{
    return aeTitle.find('/') == std::string_view::npos;
}
