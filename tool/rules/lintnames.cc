// SPDX-License-Identifier: BSD-3-Clause
// Names of functions and keywords of the data dictionary, near misses of them included.
#include "tool/rules/lintnames.h"

#include "tool/console/text.h"
#include "tool/rules/rulefile.h"

#include "kxmap.h"

#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fmt/format.h>
#include <optional>
#include <span>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kxtool {
namespace {

constexpr const char* kBlanks = " \t";

// What other languages call it.
constexpr std::pair<std::string_view, std::string_view> kElsewhere[] = {
    {"upper", "toUpper"},
    {"uppercase", "toUpper"},
    {"lower", "toLower"},
    {"lowercase", "toLower"},
    {"length", "strlen"},
    {"len", "strlen"},
    {"substring", "substr"},
    {"mid", "substr"},
    {"left", "substr"},
    {"random", "rnd"},
    {"rand", "rnd"},
    {"age", "dicomAge"},
    {"var", "$"},
    {"variable", "$"},
    {"field", "USER"},
    {"custom", "USER"},
    {"eq", "equals"},
    {"is", "equals"},
    {"join", "concat"},
    {"concatenate", "concat"},
    {"append", "concat"},
    {"plus", "add"},
    {"sum", "add"},
    {"minus", "sub"},
    {"subtract", "sub"},
    {"multiply", "mul"},
    {"divide", "div"},
    {"iif", "if"},
    {"ifelse", "if"},
    {"when", "if"},
    {"map", "translate"},
    {"switch", "translate"},
    {"case", "translate"},
    {"replace", "translate"},
    {"find", "indexof"},
    {"instr", "indexof"},
    {"includes", "contains"},
    {"nil", "NULL"},
    {"none", "NULL"},
    {"delete", "NULL"},
    {"remove", "NULL"},
    {"coalesce", "or"},
    {"default", "or"},
    {"sequence", "SEQ"},
    {"isnull", "not"},
    {"modulo", "mod"},
    {"range", "between"},
    {"hash", "codestring"},
};

std::span<const FunctionDef* const> functions()
{
    return std::span(funcList).first(std::size(funcList) - 1);
}

std::string didYouMean(std::string_view name)
{
    const auto takesNone = [name](const FunctionDef* function) {
        return name == function->name && function->numParamsOK(0);
    };
    return fmt::format("did you mean \"{}{}\"?", name, std::ranges::any_of(functions(), takesNone) ? "()" : "");
}

std::string hintForAlias(std::string_view name)
{
    std::vector<std::string> meant;
    for (const FunctionDef* function : functions()) {
        if (function->alias != nullptr && name == function->alias && name != function->name)
            meant.push_back(fmt::format("\"{}\"", function->name));
    }
    if (meant.empty()) return {};
    return fmt::format("\"{}\" is no function; write {}", name, fmt::join(meant, " or "));
}

std::string nearest(std::string_view name)
{
    const std::string wanted = lowered(name);
    std::size_t least = std::max<std::size_t>(1, name.size() / 3) + 1;
    std::string_view best;
    for (const FunctionDef* function : functions()) {
        if (*function->name == '\0' || *function->name == '$') continue;
        const std::size_t distance = editDistance(wanted, lowered(function->name));
        if (distance < least && distance < name.size()) {
            least = distance;
            best = function->name;
        }
    }
    return best.empty() ? std::string() : didYouMean(best);
}

using Keywords = std::unordered_map<std::string, DcmTagKey>;

const Keywords& keywords()
{
    static const Keywords all = [] {
        Keywords map;
        DcmDataDictionary& dictionary = dcmDataDict.wrlock(); // nothing is written; its iterators ask for it
        for (auto entry = dictionary.normalBegin(); entry != dictionary.normalEnd(); ++entry) {
            if ((*entry)->getPrivateCreator() == nullptr) map.try_emplace((*entry)->getTagName(), (*entry)->getKey());
        }
        dcmDataDict.wrunlock();
        return map;
    }();
    return all;
}

std::optional<Uint16> readComponent(std::string_view text)
{
    text = trimmed(text, kBlanks);
    if (startsWithAnyCase(text, "0x")) text.remove_prefix(2);
    return readHex(text);
}

bool isOperator(char c)
{
    return std::string_view("+-*/%=<>!&|").find(c) != std::string_view::npos;
}

// A name of several words, or one with a capital as no built-in has it: "Knee (left)".
bool looksLikeProse(std::string_view name)
{
    const bool hasLetter =
        std::ranges::any_of(name, [](char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; });
    return hasLetter && (name.find(' ') != std::string_view::npos || (name.front() >= 'A' && name.front() <= 'Z'));
}

bool isTarget(std::string_view text)
{
    const RuleFile read = readRuleText(std::string(text) + "=x", "");
    return read.lines.size() == 1 && read.lines.front().target;
}

/// @param begin where a target seems to stand. @return whether a value ends before it, so that no operator joins the two.
bool followsAValue(std::string_view text, std::size_t begin)
{
    const std::string before = lowered(trimmed(text.substr(0, begin), kBlanks));
    if (before.empty() || isOperator(before.back())) return false;
    return std::ranges::none_of(std::array{"(", ",", " and", " or", " not"},
                                [&before](std::string_view end) { return before.ends_with(end); });
}

bool holdsSecondRule(std::string_view text)
{
    for (std::size_t close = text.find(")="); close != std::string_view::npos; close = text.find(")=", close + 1)) {
        std::size_t begin = text.rfind('(', close);
        if (begin == std::string_view::npos || text.substr(close + 2).starts_with('=')) continue;
        for (const std::string_view prefix : {"$", "USER", "SEQ"}) {
            if (text.substr(0, begin).ends_with(prefix)) begin -= prefix.size();
        }
        if (followsAValue(text, begin) && isTarget(text.substr(begin, close + 1 - begin))) return true;
    }
    return false;
}

} // namespace

const char* hintForInfix(std::string_view text)
{
    return holdsSecondRule(text) ? "this looks like two rules: write each on a line of its own" : kNoOperators;
}

std::size_t editDistance(std::string_view a, std::string_view b)
{
    constexpr std::size_t kMost = 32;
    if (a.size() > kMost || b.size() > kMost) return a == b ? 0 : kMost;
    std::array<std::array<std::size_t, kMost + 1>, kMost + 1> cost; // of the first i and j letters
    for (std::size_t i = 0; i <= a.size(); ++i) cost[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) cost[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t change = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, change});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost[a.size()][b.size()];
}

std::string hintForFunction(std::string_view name)
{
    const std::string_view word = trimmed(name, kBlanks);
    const auto isNamed = [](std::string_view wanted) {
        return std::ranges::any_of(functions(), [wanted](const FunctionDef* f) { return wanted == f->name; });
    };
    if (word != name && isNamed(word)) return "remove the blank before \"(\"";
    if (std::string hint = hintForAlias(word); !hint.empty()) return hint;
    if (looksInfix(name)) return hintForInfix(name);
    if (word.starts_with('"'))
        return "a text that ends in \")\" is taken for a call: quote all of it, or part it with a comma";
    const std::string wanted = lowered(word);
    for (const FunctionDef* function : functions()) {
        if (wanted == lowered(function->name)) return didYouMean(function->name);
    }
    for (const auto& [other, ours] : kElsewhere) {
        if (wanted == other) return didYouMean(ours);
    }
    if (const std::string tag = tagOfKeyword(word); !tag.empty()) return fmt::format("write {} for {}", tag, word);
    if (word.starts_with('$') || word.starts_with('@')) return "a variable is read with $(name)";
    if (std::string hint = nearest(word); !hint.empty() || !looksLikeProse(name)) return hint;
    return "a text that ends in \")\" is taken for a call: put it in quotes where it is meant";
}

std::string tagOfKeyword(std::string_view word)
{
    const auto found = keywords().find(std::string(word));
    return found == keywords().end() ? std::string() : keyText(found->second);
}

std::string tagMeantBy(std::string_view text)
{
    text = trimmed(text, kBlanks);
    while (!text.empty() && std::string_view("([{").find(text.front()) != std::string_view::npos) text.remove_prefix(1);
    while (!text.empty() && std::string_view(")]}:").find(text.back()) != std::string_view::npos) text.remove_suffix(1);
    text = trimmed(text, kBlanks);
    std::string word(text);
    std::erase(word, ' ');
    if (std::string tag = tagOfKeyword(word); !tag.empty()) return tag;
    const std::size_t comma = text.find_first_of(",;.:|/ ");
    const bool isSplit = comma != std::string_view::npos;
    if (!isSplit && text.size() != 8) return {};
    const auto group = readComponent(text.substr(0, isSplit ? comma : 4));
    const auto element = readComponent(text.substr(isSplit ? comma + 1 : 4));
    return group && element ? keyText({*group, *element}) : std::string();
}

bool looksInfix(std::string_view text)
{
    if (text.starts_with('=') || text.starts_with('!')) return true;
    for (const std::string_view pair : {"==", "!=", "&&", "||", ">=", "<="}) {
        if (text.find(pair) != std::string_view::npos) return true;
    }
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        if (!isOperator(text[i])) continue;
        if (text[i - 1] == ' ' && text[i + 1] == ' ') return true;
        const std::string_view before = trimmed(text.substr(0, i), kBlanks);
        if (before.ends_with(')') || before.ends_with('"')) return true;
    }
    return false;
}

} // namespace kxtool
