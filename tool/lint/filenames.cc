// SPDX-License-Identifier: BSD-3-Clause
#include "tool/lint/filenames.h"

#include "tool/console/text.h"
#include "tool/rules/lintnames.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace kxtool {
namespace {

template <std::size_t Count>
bool isOneOf(const std::array<std::string_view, Count>& words, std::string_view word)
{
    return std::ranges::find(words, word) != words.end();
}

/// What follows the last dot, hyphen, underscore or blank.
std::string_view lastWord(std::string_view title)
{
    const std::size_t mark = title.find_last_of(".-_ ");
    return mark == std::string_view::npos ? std::string_view() : title.substr(mark + 1);
}

bool isCopy(std::string_view title)
{
    constexpr std::array<std::string_view, 9> kOld = {"old",   "bak", "orig",     "copy",  "save",
                                                      "saved", "tmp", "disabled", "backup"};
    const std::string all = lowered(title);
    const std::string last = lowered(lastWord(title));
    const bool isNumbered = title.ends_with(')') && title.rfind(" (") != std::string_view::npos;
    return all.starts_with("copy of ") || isNumbered || isOneOf(kOld, last);
}

} // namespace

std::optional<NameSlip> slipInTitle(std::string_view title)
{
    constexpr std::array<std::string_view, 4> kGlobals = {"pre", "post", "outpre", "outpost"};
    constexpr std::array<std::string_view, 6> kEverybody = {"global", "default", "all", "any", "common", "*"};
    const std::string serves = fmt::format("the file serves the AE title \"{}\" alone", title);
    const std::string all = lowered(title);
    const std::string last = lowered(lastWord(title));
    if (isOneOf(kGlobals, all)) return NameSlip{serves, fmt::format("for all titles it is global/{}.map", all)};
    if (isOneOf(kEverybody, all))
        return NameSlip{serves, "for all titles there are global/pre.map and global/post.map"};
    if (last == "map") return NameSlip{serves, "the suffix stands twice"};
    if (title.find_first_of("*?,;") != std::string_view::npos)
        return NameSlip{serves, "there are no wildcards and lists: each title has a file of its own"};
    if (title.find_first_of("@:") != std::string_view::npos)
        return NameSlip{serves, "a title stands alone, without host and port"};
    // "STORE_OUT" may well be a title.
    const bool isSmall = lastWord(title) == last || title.ends_with("." + std::string(lastWord(title)));
    if (isSmall && (last == "in" || last == "inbound"))
        return NameSlip{serves, fmt::format("inbound files have no such word: {}.map",
                                            title.substr(0, title.size() - last.size() - 1))};
    if (isSmall && (last == "out" || last == "outbound") && !title.ends_with(".out"))
        return NameSlip{serves, fmt::format("outbound files are named {}.out.map",
                                            title.substr(0, title.size() - last.size() - 1))};
    if (isCopy(title))
        return NameSlip{serves, "a copy belongs elsewhere, or under a name that does not end in \".map\""};
    return std::nullopt;
}

NameSlip slipInFolder(std::string_view name)
{
    const bool isGlobal = editDistance(lowered(name), "global") <= 1;
    return {"the engine reads no mapping files in this folder",
            isGlobal ? "its name is \"global\", in lower case"
                     : "files of AE titles lie in the mappings folder itself, the others in global"};
}

std::optional<NameSlip> slipInSuffix(std::string_view name)
{
    const std::string all = lowered(name);
    const std::size_t suffix = all.rfind(".map");
    if (suffix == std::string::npos) return std::nullopt;
    const std::string message = "the engine passes over it: names end in \".map\", in lower case";
    const std::string rest = all.substr(suffix + 4);
    if (rest == ".out")
        return NameSlip{message, fmt::format("an outbound file is named {}.out.map", name.substr(0, suffix))};
    return NameSlip{message, rest.empty() || rest == ".txt" || rest == "s" || rest == "ping"
                                 ? fmt::format("rename it to {}.map", name.substr(0, suffix))
                                 : ""};
}

} // namespace kxtool
