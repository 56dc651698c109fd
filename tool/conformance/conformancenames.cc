// SPDX-License-Identifier: BSD-3-Clause
#include "tool/conformance/conformancenames.h"

#include "KXItem.h"

#include <dcmtk/dcmdata/dctag.h>
#include <fmt/format.h>

#include <algorithm>
#include <regex>

namespace kxtool {
namespace {

/// @return the name behind a keyword of the data dictionary, near enough to the standard's: keywords have lost their
///         blanks, apostrophes and small letters.
std::string nameBehind(const std::string& keyword)
{
    struct Step {
        std::regex pattern;
        const char* text;
    };
    static const Step kSteps[] = {
        {std::regex("([a-z0-9])(?=[A-Z])|([A-Z])(?=[A-Z][a-z])(?![A-Z]s([A-Z]|$))"), "$1$2 "}, // "IDs" is one word
        {std::regex("(Patient|Physician) (?=(Name|Birth|Sex|Age|Size|Weight|Address|Mother|Telephone)\\b)"), "$1's "},
        {std::regex("Operators Name"), "Operators' Name"},
        {std::regex("Contrast Bolus"), "Contrast/Bolus"},
    };
    std::string name = keyword;
    for (const Step& step : kSteps) name = std::regex_replace(name, step.pattern, step.text);
    static const std::regex kSmall(" (Of|And|To|In|The|For|With|On|By|From)(?= )");
    const std::string capitals = name;
    for (auto word = std::sregex_iterator(capitals.begin(), capitals.end(), kSmall); word != std::sregex_iterator();
         ++word)
        name[static_cast<std::size_t>(word->position(1))] |= 0x20; // the small letter
    return name;
}

std::string nameOf(const DcmTagKey& key)
{
    if (key == DcmTagKey(KXItem::kGroup, KXItem::kCreatorElement)) return "Private Creator";
    if (KXItem::isOurPrivateTagKey(key)) {
        const auto tag = std::ranges::find(KXItem::dictionary(), key.getElement(), &KXItem::PrivateTag::element);
        if (tag != KXItem::dictionary().end()) return nameBehind(tag->name) + " (private)";
    }
    DcmTag tag(key);
    if (tag.getEVR() == EVR_UN || tag.getEVR() == EVR_UNKNOWN)
        return key.isPrivate() ? "Private attribute" : "Unknown attribute";
    const std::string keyword = tag.getTagName();
    constexpr std::string_view kRetired = "RETIRED_";
    return keyword.starts_with(kRetired) ? nameBehind(keyword.substr(kRetired.size())) + " (retired)"
                                         : nameBehind(keyword);
}

DcmTagKey keyAt(const ElementPath& path, std::size_t at)
{
    return {static_cast<Uint16>(path[at]), static_cast<Uint16>(path[at + 1])};
}

std::string bracketed(const DcmTagKey& key)
{
    return fmt::format("({:04X},{:04X})", key.getGroup(), key.getElement());
}

/// @param between what stands between the elements of a path, with a place for the item's number.
std::string textAlong(const ElementPath& path, std::string (*textOf)(const DcmTagKey&), const char* before)
{
    std::string text;
    for (std::size_t i = 0; i + 1 < path.size(); i += 3) {
        if (i > 0) text += fmt::format("{} item {} > ", before, path[i - 1] + 1);
        text += textOf(keyAt(path, i));
    }
    return text;
}

} // namespace

DcmTagKey tagAt(const ElementPath& path)
{
    return keyAt(path, path.size() - 2);
}

bool areNested(const ElementPath& a, const ElementPath& b)
{
    const std::size_t common = std::min(a.size(), b.size());
    return std::equal(a.begin(), a.begin() + static_cast<std::ptrdiff_t>(common), b.begin());
}

std::string tagText(const ElementPath& path)
{
    return textAlong(path, bracketed, "");
}

std::string nameText(const ElementPath& path)
{
    return textAlong(path, nameOf, ",");
}

std::string nameAndTag(const ElementPath& path)
{
    const std::string item = itemText(path);
    return nameOf(tagAt(path)) + " " + bracketed(tagAt(path)) + (item.empty() ? "" : " in " + item);
}

std::string itemText(const ElementPath& path)
{
    if (path.size() <= 2) return {};
    return fmt::format("item {} of {}", path[path.size() - 3] + 1, nameAndTag({path.begin(), path.end() - 3}));
}

} // namespace kxtool
