// SPDX-License-Identifier: BSD-3-Clause
// Completion by the kind of word that the cursor stands behind. Keywords become tags, since rules know only these.
#include "tool/shell/shellcompletion.h"

#include "tool/console/text.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>
#include <fmt/format.h>
#include <map>

namespace kxtool {

const std::vector<std::string> kShellCommands = {":complete", ":diff",  ":help",  ":quit", ":rules",
                                                 ":save",     ":save!", ":trace", ":undo", ":vars"};

namespace {

/// What may stand there, and what it means.
using Candidates = std::map<std::string, std::string>;

constexpr std::size_t kTagTextBytes = 11; // "(0010,0010)"

bool isWordByte(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '@';
}

bool isInQuotes(std::string_view line)
{
    bool isInside = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '"') isInside = !isInside;
        else if (isInside && line[at] == '\\') ++at;
    }
    return isInside;
}

/// Calls `visit(key, keyword)` for every attribute of the standard with one tag.
template <class Visit>
void forEachKeyword(Visit visit)
{
    DcmDataDictionary& dictionary = dcmDataDict.wrlock(); // its iterators want it writable
    for (auto at = dictionary.normalBegin(); at != dictionary.normalEnd(); ++at) {
        const DcmDictEntry& entry = **at;
        if (entry.getPrivateCreator() == nullptr && entry.getGroup() >= 0x0008)
            visit(entry.getKey(), entry.getTagName());
    }
    dcmDataDict.wrunlock();
}

std::string commonBegin(const Candidates& candidates)
{
    std::string common = candidates.begin()->first;
    for (const auto& [text, meaning] : candidates) {
        const auto [end, other] = std::ranges::mismatch(common, text);
        common.erase(end, common.end());
    }
    return common;
}

/// A single candidate is inserted; of several their common beginning, unless that is shorter than what was typed.
Completion completionOf(std::size_t begin, std::string_view word, const Candidates& candidates)
{
    Completion completion{begin, std::string(word), {}};
    if (candidates.empty()) return completion;
    if (candidates.size() == 1) {
        completion.text = candidates.begin()->first;
        return completion;
    }
    if (const std::string common = commonBegin(candidates); common.size() >= word.size()) completion.text = common;
    for (const auto& [text, meaning] : candidates)
        completion.offers.push_back(meaning.empty() ? text : fmt::format("{}  {}", text, meaning));
    return completion;
}

Completion completeCommand(std::string_view line)
{
    Candidates candidates;
    for (const std::string& command : kShellCommands) {
        if (command.starts_with(line)) candidates.emplace(command, "");
    }
    return completionOf(0, line, candidates);
}

// "(0010,00": those of the dataset, and when it has none of them, the dictionary's.
Completion completeTag(std::size_t begin, std::string_view word, const MappingSession& session)
{
    Candidates candidates;
    const auto add = [&](const DcmTagKey& key, const char* name) {
        const std::string text = keyText(key);
        if (startsWithAnyCase(text, word)) candidates.emplace(text, name);
    };
    if (session.dataset != nullptr) {
        for (unsigned long index = 0; index < session.dataset->card(); ++index) {
            DcmTag tag(session.dataset->getElement(index)->getTag());
            add(tag, tag.getTagName());
        }
    }
    if (candidates.empty()) forEachKeyword(add);
    return completionOf(begin, word, candidates);
}

template <class Names>
Completion completeName(std::size_t begin, std::string_view word, const Names& names, char sign)
{
    Candidates candidates;
    for (const auto& [name, text] : names) {
        const std::string typed = sign == '\0' ? name : sign + name;
        if (typed.starts_with(word)) candidates.emplace(typed + ")", "");
    }
    return completionOf(begin, word, candidates);
}

// A function or a keyword; a keyword that is complete, or the only one, becomes its tag.
Completion completeWord(std::size_t begin, std::string_view word)
{
    Candidates candidates;
    for (const FunctionDef* const* function = funcList; *function != nullptr; ++function) {
        const std::string_view name = (*function)->name;
        if (!name.empty() && startsWithAnyCase(name, word)) candidates.emplace(std::string(name) + "(", "");
    }
    constexpr std::string_view kOthers[] = {"USER("}; // a target, too
    for (const std::string_view name : kOthers) {
        if (startsWithAnyCase(name, word)) candidates.emplace(name, "");
    }
    forEachKeyword([&](const DcmTagKey& key, const char* keyword) {
        if (!startsWithAnyCase(keyword, word)) return;
        candidates.emplace(keyword, keyText(key));
    });
    // Letters as typed count where any candidate has them.
    if (std::ranges::any_of(candidates, [word](const auto& one) { return one.first.starts_with(word); }))
        std::erase_if(candidates, [word](const auto& one) { return !one.first.starts_with(word); });
    const bool isComplete = candidates.contains(std::string(word));
    if (candidates.size() != 1 && !isComplete) return completionOf(begin, word, candidates);
    const auto& [text, tag] = isComplete ? *candidates.find(std::string(word)) : *candidates.begin();
    return {begin, tag.empty() ? text : tag, {}};
}

} // namespace

Completion complete(std::string_view line, const MappingSession& session)
{
    if (line.starts_with(':')) return completeCommand(line);
    if (isInQuotes(line)) return {line.size(), "", {}};
    std::size_t begin = line.size();
    while (begin > 0 && isWordByte(line[begin - 1])) --begin;
    const std::string_view word = line.substr(begin);
    const std::string_view before = line.substr(0, begin);
    if (before.ends_with("$(")) {
        if (word.starts_with('@')) return completeName(begin, word, session.atVariables, '@');
        return completeName(begin, word, session.variables, '\0');
    }
    if (before.ends_with("USER(")) return completeName(begin, word, session.customFields.fields(), '\0');
    // A tag begins at its bracket; "f(00" may be a call's first argument, and then it is no tag in the dataset.
    const std::size_t bracket = line.rfind('(');
    const bool isTag = bracket != std::string_view::npos && line.size() - bracket < kTagTextBytes &&
                       line.size() > bracket + 1 && (bracket == 0 || !isWordByte(line[bracket - 1])) &&
                       line.substr(bracket + 1).find_first_not_of("0123456789abcdefABCDEF,") == std::string_view::npos;
    if (isTag) return completeTag(bracket, line.substr(bracket), session);
    if (word.empty()) return {line.size(), "", {}};
    return completeWord(begin, word);
}

} // namespace kxtool
