// SPDX-License-Identifier: BSD-3-Clause
#include "tool/lint/foreign.h"

#include "tool/rules/builtins.h"
#include "tool/rules/lintnames.h"

#include "kxmap.h"

#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fmt/format.h>
#include <memory>

namespace kxtool {
namespace {

using kxmap::Span;
constexpr auto kNone = std::string_view::npos;

bool isAlnum(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool isAlpha(char c)
{
    return std::isalpha(static_cast<unsigned char>(c)) != 0;
}

bool isHex(std::string_view text)
{
    return !text.empty() &&
           std::ranges::all_of(text, [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; });
}

/// @return whether it is "gggg,eeee".
bool isTagBody(std::string_view text)
{
    return text.size() == 9 && text[4] == ',' && isHex(text.substr(0, 4)) && isHex(text.substr(5));
}

bool isInDictionary(std::string_view tagBody)
{
    unsigned group = 0;
    unsigned element = 0;
    if (std::sscanf(std::string(tagBody).c_str(), "%4x,%4x", &group, &element) != 2) return false;
    const DcmTag tag(static_cast<Uint16>(group), static_cast<Uint16>(element));
    return tag.getEVR() != EVR_UNKNOWN && tag.getEVR() != EVR_UN;
}

/// @return behind the ")" that closes the "(" at a position, quoted text aside; npos for none.
std::size_t closeOf(std::string_view text, std::size_t open)
{
    int depth = 0;
    bool inQuote = false;
    for (std::size_t i = open; i < text.size(); ++i) {
        if (text[i] == '"') inQuote = !inQuote;
        else if (!inQuote && text[i] == '(') ++depth;
        else if (!inQuote && text[i] == ')' && --depth == 0) return i + 1;
    }
    return kNone;
}

/// @return how many arguments a call has, by its commas outside brackets and quotes.
int countArguments(std::string_view between)
{
    if (between.empty()) return 0;
    int count = 1;
    int depth = 0;
    bool inQuote = false;
    for (const char c : between) {
        if (c == '"') inQuote = !inQuote;
        else if (inQuote) continue;
        else if (c == '(') ++depth;
        else if (c == ')') --depth;
        else if (c == ',' && depth == 0) ++count;
    }
    return count;
}

bool isName(std::string_view text)
{
    if (text.starts_with('@')) text.remove_prefix(1);
    return !text.empty() && std::ranges::all_of(text, isAlnum);
}

bool isPath(std::string_view text)
{
    return std::ranges::count(text, ',') >= 1 && text.find_first_not_of("0123456789abcdefABCDEF, ") == kNone;
}

/// @param name what stands before the bracket. @param between what stands in it. @param isAll of the text.
/// @return whether the two are a call. Words of everyday, "if (needed)", are one only as a whole.
bool isCall(std::string_view name, std::string_view between, bool isAll)
{
    if (name == "USER") return isName(between);
    if (name == "SEQ") return isPath(between);
    const Builtin* builtin = builtinNamed(name);
    if (builtin == nullptr || !builtin->function->numParamsOK(countArguments(between))) return false;
    return isAll ||
           std::ranges::any_of(name, [](char c) { return std::isupper(static_cast<unsigned char>(c)) != 0; }) ||
           (builtin->reads.count > 1 && name.size() > 3);
}

/// What stands at a "(".
std::optional<Unread> referenceAt(std::string_view text, std::size_t open)
{
    const std::size_t close = closeOf(text, open);
    if (close == kNone) return std::nullopt;
    std::size_t begin = open;
    if (open > 0 && text[open - 1] == '$') --begin;
    else
        while (begin > 0 && isAlpha(text[begin - 1])) --begin;
    const std::string_view name = text.substr(begin, open - begin);
    const std::string_view between = text.substr(open + 1, close - open - 2);
    const bool isAll = begin == 0 && close == text.size();
    const bool isRead = name == "$" ? isName(between) : !name.empty() && isCall(name, between, isAll);
    if (isRead) return Unread{{begin, close}, std::string(text.substr(begin, close - begin))};
    if (isTagBody(between)) return Unread{{open, close}, std::string(text.substr(open, close - open))};
    return std::nullopt;
}

/// Something between two marks: "{{id}}".
struct Marks {
    std::string_view open, close;
};

std::optional<Unread> placeholderBetween(std::string_view text, const Marks& marks,
                                         const std::function<bool(const std::string&)>& isSet)
{
    for (std::size_t at = text.find(marks.open); at != kNone; at = text.find(marks.open, at + 1)) {
        const std::size_t begin = at + marks.open.size();
        const std::size_t end =
            marks.close.empty()
                ? begin + static_cast<std::size_t>(std::ranges::find_if_not(text.substr(begin), isAlnum) -
                                                   text.substr(begin).begin())
                : text.find(marks.close, begin);
        if (end == kNone || end == begin) continue;
        const std::string name(text.substr(begin, end - begin));
        const Span span{at, end + marks.close.size()};
        const bool isNumber = marks.open == "{" && name.size() <= 2 && name.find_first_not_of("0123456789") == kNone;
        if (isNumber) return Unread{span, "concat(a,b)"};
        if (!isName(name)) continue;
        if (const std::string tag = isKeyword(name) ? tagOfKeyword(name) : ""; !tag.empty()) return Unread{span, tag};
        if (isSet(name) || isSet("@" + name)) return Unread{span, fmt::format("$({}{})", isSet(name) ? "" : "@", name)};
        if (marks.open == "${" || marks.open == "{{") return Unread{span, fmt::format("$({})", name)};
    }
    return std::nullopt;
}

std::optional<Unread> printfPlaceholder(std::string_view text)
{
    for (std::size_t at = text.find('%'); at != kNone; at = text.find('%', at + 1)) {
        const std::size_t letter = text.find_first_not_of("0123456789", at + 1); // behind a width
        if (letter >= text.size() || std::string_view("sd").find(text[letter]) == kNone) continue;
        const bool isWord = letter + 1 < text.size() && isAlnum(text[letter + 1]);
        const bool isShare = at > 0 && std::isdigit(static_cast<unsigned char>(text[at - 1])) != 0;
        if (!isWord && !isShare) return Unread{{at, letter + 1}, "concat(a,b)"};
    }
    return std::nullopt;
}

} // namespace

std::optional<Unread> findReference(std::string_view text)
{
    if (isTagBody(text) && isInDictionary(text)) return Unread{{0, text.size()}, fmt::format("({})", text)};
    if (isKeyword(text)) return Unread{{0, text.size()}, tagOfKeyword(text)};
    for (std::size_t open = text.find('('); open != kNone; open = text.find('(', open + 1)) {
        if (auto reference = referenceAt(text, open)) return reference;
    }
    return std::nullopt;
}

std::optional<Unread> findPlaceholder(std::string_view text, const std::function<bool(const std::string&)>& isSet)
{
    if (text.starts_with('@') || text.starts_with(':')) {
        const std::string name(text.substr(1));
        if (isSet(name) || isSet("@" + name))
            return Unread{{0, text.size()}, fmt::format("$({}{})", isSet(name) ? "" : "@", name)};
    }
    constexpr Marks kMarks[] = {{"${", "}"}, {"{{", "}}"}, {"{", "}"}, {"%", "%"}, {"$", ""}};
    for (const Marks& marks : kMarks) {
        if (auto placeholder = placeholderBetween(text, marks, isSet)) return placeholder;
    }
    return printfPlaceholder(text);
}

std::size_t findComment(std::string_view text)
{
    const auto isEdge = [text](std::size_t i) { return i >= text.size() || text[i] == ' ' || text[i] == '\t'; };
    std::size_t first = kNone;
    for (const std::string_view mark : {"#", "//", ";", "/*"}) {
        for (std::size_t at = text.find(mark); at != kNone; at = text.find(mark, at + 1)) {
            if (!isEdge(at - 1) || !isEdge(at + mark.size())) continue;
            first = std::min(first, at);
            break;
        }
    }
    return first;
}

bool isInForeignQuotes(std::string_view text)
{
    constexpr std::pair<std::string_view, std::string_view> kQuotes[] = {
        {"'", "'"},
        {"`", "`"},
        {"\xE2\x80\x9C", "\xE2\x80\x9D"}, // typographic, of several languages
        {"\xE2\x80\x9E", "\xE2\x80\x9C"},
        {"\xE2\x80\x98", "\xE2\x80\x99"},
        {"\xC2\xAB", "\xC2\xBB"},
    };
    return std::ranges::any_of(kQuotes, [text](const auto& quotes) {
        return text.size() >= quotes.first.size() + quotes.second.size() && text.starts_with(quotes.first) &&
               text.ends_with(quotes.second);
    });
}

bool isPattern(std::string_view text)
{
    constexpr std::size_t kStem = 3; // letters before a wildcard: "T2*" is the name of a sequence
    const auto isStem = [](std::string_view stem) {
        return stem.size() >= kStem && std::ranges::all_of(stem.substr(stem.size() - kStem), isAlpha);
    };
    if ((text.ends_with('*') || text.ends_with('%')) && isStem(text.substr(0, text.size() - 1))) return true;
    for (const std::string_view mark : {".*", ".+", "\\d", "\\w", "\\s", "[0-9]", "[a-z]", "[A-Z]", "(?i"}) {
        if (text.find(mark) != kNone) return true;
    }
    const bool isAnchored = text.size() > 2 && text.starts_with('^') && text.ends_with('$');
    const std::size_t slash = text.starts_with('/') ? text.find_last_of('/') : 0;
    const bool isSlashed = slash > 1 && slash != kNone && text.find_first_not_of("gim", slash + 1) == kNone &&
                           std::ranges::any_of(text, isAlpha);
    const std::size_t bar = text.find('|');
    const bool isAlternative = bar != kNone && bar > 0 && text.back() != '|' && text.find("||") == kNone &&
                               std::ranges::all_of(text, [](char c) { return isAlnum(c) || c == '|' || c == ' '; });
    return isAnchored || isSlashed || isAlternative;
}

bool isKeyword(std::string_view word)
{
    bool hasStep = false;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (!isAlnum(word[i])) return false;
        hasStep = hasStep || (i > 0 && std::islower(static_cast<unsigned char>(word[i - 1])) != 0 &&
                              std::isupper(static_cast<unsigned char>(word[i])) != 0);
    }
    return hasStep && !tagOfKeyword(word).empty();
}

} // namespace kxtool
