// SPDX-License-Identifier: BSD-3-Clause
// The case functions change ASCII letters only. When both texts are read in their character set, an undamaged one differs
// from the one before only in the case of ASCII letters.
#include "tool/record/lettercase.h"

#include "tool/rules/heldvalue.h"

#include <dcmtk/ofstd/ofchrenc.h>

#include <algorithm>
#include <stdexcept>

namespace kxtool {
namespace {

// For longer texts only the whole text is looked for in a value, since each changed byte is read with all the others.
constexpr std::size_t kMostBytesEach = 1024;

bool isCaseFunction(const Expression& node)
{
    return node.func == &f_toUpper || node.func == &f_toLower;
}

std::optional<std::string> textOf(Expression& expression, MappingSession& session, unsigned seed)
{
    gseed = seed;
    return HeldValue(expression.getValue(session)).text();
}

void collect(Expression& node, MappingSession& session, unsigned seed, std::vector<Recased>& found)
{
    if (isCaseFunction(node)) {
        auto before = textOf(*node.params.front(), session, seed);
        auto after = textOf(node, session, seed);
        if (before && after && !isPlainAscii(*before) && before != after && before->size() == after->size())
            found.push_back({std::move(*before), std::move(*after)});
    }
    for (Expression* argument : node.params) collect(*argument, session, seed, found);
}

bool isSameLetter(char a, char b)
{
    const bool isLetter = (a >= 'A' && a <= 'Z') || (a >= 'a' && a <= 'z');
    return a == b || (isLetter && (a ^ b) == ('a' ^ 'A'));
}

std::optional<std::string> fromShiftJis(std::string_view text)
{
    OFCharacterEncoding encoding;
    OFString converted;
    if (encoding.selectEncoding("SHIFT_JIS", "UTF-8").bad() ||
        encoding.convertString(text.data(), text.size(), converted).bad())
        return std::nullopt;
    return std::string(converted.c_str(), converted.length());
}

/// A text in UTF-8, and how it was read.
class Reading {
public:
    // Some who say ISO_IR 13 write what makes katakana and Latin letters a part of Shift-JIS.
    Reading(const CharacterSet& set, std::string_view text) : set_(set), utf8_(set.toUtf8(text))
    {
        isShiftJis_ = !utf8_ && set.terms().find("IR 13") != std::string::npos;
        if (isShiftJis_) utf8_ = fromShiftJis(text);
    }

    bool isGood() const { return utf8_.has_value(); }

    /// @return whether another text reads like this one but for the case of its ASCII letters.
    bool differsInLettersAlone(std::string_view text) const
    {
        const auto other = isShiftJis_ ? fromShiftJis(text) : set_.toUtf8(text);
        return other && std::ranges::equal(*utf8_, *other, isSameLetter);
    }

private:
    const CharacterSet& set_;
    std::optional<std::string> utf8_;
    bool isShiftJis_ = false;
};

} // namespace

bool hasCaseFunction(const Expression& expression)
{
    return isCaseFunction(expression) || std::ranges::any_of(expression.params, [](const Expression* argument) {
               return hasCaseFunction(*argument);
           });
}

std::vector<Recased> recasedTexts(Expression& expression, MappingSession& session)
{
    std::vector<Recased> found;
    const unsigned seed = gseed;
    try {
        collect(expression, session, seed, found);
    } catch (const std::logic_error&) { // applying the rule reports it
        found.clear();
    }
    gseed = seed;
    return found;
}

bool isHarmed(const Recased& text, const CharacterSet& set, std::string_view value)
{
    const Reading reading(set, text.before);
    if (!reading.isGood() || reading.differsInLettersAlone(text.after)) return false;
    if (value.find(text.after) != std::string_view::npos) return true;
    if (text.before.size() > kMostBytesEach) return false;
    for (std::size_t at = 0; at < text.before.size(); ++at) { // the value may have only a part of it
        if (text.before[at] == text.after[at]) continue;
        std::string changed = text.before;
        changed[at] = text.after[at];
        const std::size_t begin = at == 0 ? 0 : at - 1;
        if (!reading.differsInLettersAlone(changed) &&
            value.find(std::string_view(text.after).substr(begin, at + 2 - begin)) != std::string_view::npos)
            return true;
    }
    return false;
}

} // namespace kxtool
