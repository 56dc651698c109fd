// SPDX-License-Identifier: BSD-3-Clause
// Elements by their names, and what became of them and of variables in the course of a run.
#include "tool/conformance/conformancewords.h"
#include "tool/console/table.h"

#include "KXItem.h"

#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/dcmdata/dctag.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace kxtool {
namespace {

DcmTagKey keyAt(const std::vector<int>& path, std::size_t at)
{
    return {static_cast<Uint16>(path[at]), static_cast<Uint16>(path[at + 1])};
}

std::string tagOf(const DcmTagKey& key)
{
    return fmt::format("({:04X},{:04X})", key.getGroup(), key.getElement());
}

// The words that begin with each capital of a keyword: "IssuerOfPatientID", "OtherPatientIDsSequence".
std::vector<std::string> splitKeyword(std::string_view keyword)
{
    const auto isUpper = [&keyword](std::size_t at) {
        return at < keyword.size() && keyword[at] >= 'A' && keyword[at] <= 'Z';
    };
    const auto isLower = [&keyword](std::size_t at) {
        return at < keyword.size() && keyword[at] >= 'a' && keyword[at] <= 'z';
    };
    std::vector<std::string> words;
    for (std::size_t i = 0; i < keyword.size(); ++i) {
        const bool isPlural = isUpper(i) && i + 1 < keyword.size() && keyword[i + 1] == 's' && !isLower(i + 2); // IDs
        const bool beginsWord = isUpper(i) && (!isUpper(i - 1) || (isLower(i + 1) && !isPlural));
        if (i == 0 || beginsWord) words.emplace_back();
        if (keyword[i] != ' ') words.back() += keyword[i];
    }
    return words;
}

/// @return the name behind a keyword of the data dictionary, near enough to the standard's: keywords have lost their
///         blanks, apostrophes and small words.
std::string wordsOf(std::string_view keyword)
{
    constexpr std::array kSmall = {"Of", "And", "To", "In", "The", "For", "With", "On", "By", "From"};
    constexpr std::array kOwners = {"Patient", "Physician"};
    constexpr std::array kOwned = {"Name", "Birth", "Sex", "Age", "Size", "Weight", "Address", "Mother", "Telephone"};
    const auto isOneOf = [](const auto& list, const std::string& word) {
        return std::ranges::find(list, word) != list.end();
    };
    std::string text;
    const std::vector<std::string> words = splitKeyword(keyword);
    for (std::size_t i = 0; i < words.size(); ++i) {
        std::string word = words[i];
        if (i > 0 && isOneOf(kSmall, word)) word[0] = static_cast<char>(word[0] - 'A' + 'a');
        const std::string next = i + 1 < words.size() ? words[i + 1] : "";
        if (isOneOf(kOwners, word) && isOneOf(kOwned, next)) word += "'s";
        if (word == "Operators" && next == "Name") word += "'";
        text += word;
        if (!next.empty()) text += word == "Contrast" && next == "Bolus" ? '/' : ' ';
    }
    return text;
}

std::string nameOf(const DcmTagKey& key)
{
    if (key.getGroup() == KXItem::kGroup && key.getElement() == KXItem::kCreatorElement) return "Private Creator";
    if (KXItem::isOurPrivateTagKey(key)) {
        for (const KXItem::PrivateTag& tag : KXItem::dictionary()) {
            if (tag.element == key.getElement()) return wordsOf(tag.name) + " (private)";
        }
    }
    DcmTag tag(key);
    if (tag.getEVR() != EVR_UN && tag.getEVR() != EVR_UNKNOWN) {
        std::string_view keyword = tag.getTagName();
        constexpr std::string_view kRetired = "RETIRED_";
        if (!keyword.starts_with(kRetired)) return wordsOf(keyword);
        return wordsOf(keyword.substr(kRetired.size())) + " (retired)";
    }
    return key.getGroup() % 2 == 1 ? "Private attribute" : "Unknown attribute";
}

/// @return the texts of a call's arguments; none when one is no text.
std::optional<std::vector<std::string>> textsOf(const Expression& call)
{
    std::vector<std::string> texts;
    for (const Expression* parameter : call.params) {
        if (parameter->func != nullptr) return std::nullopt;
        texts.emplace_back(parameter->text == nullptr ? "" : parameter->text);
    }
    return texts;
}

bool areNested(const std::string& a, const std::string& b)
{
    return a == b || (a.starts_with(b) && a[b.size()] == '[') || (b.starts_with(a) && b[a.size()] == '[');
}

} // namespace

DcmTagKey ElementRef::tag() const
{
    return keyAt(path, path.size() - 2);
}

std::string ElementRef::key() const
{
    std::string text;
    for (std::size_t i = 0; i + 1 < path.size(); i += 3) {
        if (i > 0) text += fmt::format("[{}].", path[i - 1]);
        text += tagOf(keyAt(path, i));
    }
    return text;
}

std::string ElementRef::tagText() const
{
    std::string text;
    for (std::size_t i = 0; i + 1 < path.size(); i += 3) {
        if (i > 0) text += fmt::format(" item {} > ", path[i - 1] + 1);
        text += tagOf(keyAt(path, i));
    }
    return text;
}

std::string ElementRef::name() const
{
    std::string text;
    for (std::size_t i = 0; i + 1 < path.size(); i += 3) {
        if (i > 0) text += fmt::format(", item {} > ", path[i - 1] + 1);
        text += nameOf(keyAt(path, i));
    }
    return text;
}

std::string ElementRef::words() const
{
    const DcmTagKey key = tag();
    const std::string item = itemWords();
    return fmt::format("{} {}{}{}", nameOf(key), tagOf(key), item.empty() ? "" : " in ", item);
}

std::string ElementRef::itemWords() const
{
    if (path.size() <= 2) return {};
    const ElementRef sequence{{path.begin(), path.end() - 3}};
    return fmt::format("item {} of {}", path[path.size() - 3] + 1, sequence.words());
}

bool ElementRef::isKnown() const
{
    const DcmTagKey key = tag();
    if (KXItem::isOurPrivateTagKey(key)) return nameOf(key) != "Private attribute";
    const DcmEVR vr = DcmTag(key).getEVR();
    return vr != EVR_UNKNOWN && vr != EVR_UN;
}

bool ElementRef::isWholeNumber() const
{
    const DcmTagKey key = tag();
    const DcmDictEntry* entry = dcmDataDict.rdlock().findEntry(key, nullptr);
    const bool isOne = entry != nullptr && entry->getEVR() == EVR_IS && entry->getVMMax() == 1;
    dcmDataDict.rdunlock();
    return isOne;
}

std::optional<ElementRef> elementOf(const Expression& expression)
{
    const bool isTag = expression.func == &f_empty && expression.params.size() == 2;
    if (!isTag && expression.func != &f_seq) return std::nullopt;
    const auto texts = textsOf(expression);
    if (!texts) return std::nullopt;
    ElementRef element;
    for (std::size_t i = 0; i < texts->size(); ++i) {
        unsigned int component = 0;
        int item = 0;
        if (i % 3 == 2 ? std::sscanf((*texts)[i].c_str(), "%d", &item) != 1
                       : std::sscanf((*texts)[i].c_str(), "%4X", &component) != 1)
            return std::nullopt;
        element.path.push_back(i % 3 == 2 ? std::max(item, 0) : static_cast<int>(component));
    }
    return element;
}

std::string quotedText(const char* text)
{
    return '"' + shownUtf8(text == nullptr ? "" : text) + '"';
}

std::vector<const History::Source*> History::variable(const std::string& name, std::size_t moment) const
{
    std::size_t begin = 0;
    for (const std::size_t fileBegin : fileBegins_) {
        if (fileBegin <= moment && !name.starts_with('@')) begin = fileBegin;
    }
    std::vector<const Source*> sources;
    if (const auto found = variables_.find(name); found != variables_.end()) {
        for (const Source& source : found->second) {
            if (begin <= source.moment && source.moment < moment) sources.push_back(&source);
        }
    }
    return sources;
}

const History::Source* History::field(const std::string& name, std::size_t moment) const
{
    const Source* last = nullptr;
    if (const auto found = fields_.find(name); found != fields_.end()) {
        for (const Source& source : found->second) {
            if (source.moment < moment) last = &source;
        }
    }
    return last;
}

std::string History::stateOf(const ElementRef& element, std::size_t moment) const
{
    const std::string key = element.key();
    const Source* before = nullptr;
    bool isWrittenSince = false;
    for (const auto& [place, sources] : writes_) {
        if (!areNested(place, key)) continue;
        for (const Source& source : sources) {
            if (source.moment >= moment) isWrittenSince = true;
            else if (before == nullptr || before->moment < source.moment) before = &source;
        }
    }
    if (!isWrittenSince) return {};
    return before == nullptr ? " before coercion" : " as set at " + before->place;
}

} // namespace kxtool
