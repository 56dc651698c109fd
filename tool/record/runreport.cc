// SPDX-License-Identifier: BSD-3-Clause
// Reports of recorded runs. Texts come in the dataset's character sets and leave in UTF-8.
#include "tool/record/runreport.h"

#include "KXItem.h"
#include "tool/console/table.h"
#include "tool/console/utf8.h"
#include "tool/record/report.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace kxtool {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kAbsent = "-";
constexpr const char* kNull = "NULL";

Color colorOf(char sign)
{
    return sign == '+' ? Color::Green : sign == '-' ? Color::Red : Color::Yellow;
}

Color colorOf(Effect effect)
{
    switch (effect) {
    case Effect::Set:
        return Color::Yellow;
    case Effect::Created:
        return Color::Green;
    case Effect::Deleted:
        return Color::Red;
    case Effect::Unknown:
    case Effect::Refused:
    case Effect::NoItem:
        return Color::Cyan;
    case Effect::WasAbsent:
    case Effect::NoChange:
        break;
    }
    return Color::Dim;
}

std::string whereOf(const Step& step)
{
    return shownUtf8(fmt::format("{}:{}", step.file->path.filename().native(), step.rule->line));
}

std::string rulesOf(const Change& change)
{
    std::vector<std::string> names;
    for (const Step* step : change.steps) names.push_back(whereOf(*step));
    return fmt::format("{}", fmt::join(names, ", "));
}

const char* kindName(Place::Kind kind)
{
    return kind == Place::Kind::Element ? "element" : kind == Place::Kind::CustomField ? "custom field" : "variable";
}

Json placeJson(const Place& place)
{
    Json json = {{"kind", kindName(place.kind)}, {"place", asUtf8(place.name)}};
    if (place.kind == Place::Kind::Element) json["name"] = placeName(place);
    return json;
}

Json textJson(const std::optional<std::string>& text, const CharacterSet& set)
{
    return text ? Json(asUtf8(set.readable(*text))) : Json(nullptr);
}

} // namespace

// What is no UTF-8 came from a mapping file, which has no character set: its bytes are spelled out.
std::string asUtf8(std::string_view text)
{
    return isUtf8(text) ? std::string(text) : shownUtf8(text);
}

Json ruleJson(const Step& step)
{
    return {{"file", asUtf8(step.file->path.native())}, {"line", step.rule->line}, {"text", asUtf8(step.rule->text)}};
}

std::string placeName(const Place& place)
{
    if (place.kind != Place::Kind::Element) return {};
    if (KXItem::isOurPrivateTagKey(place.tag)) {
        for (const KXItem::PrivateTag& tag : KXItem::dictionary()) {
            if (tag.element == place.tag.getElement()) return tag.name;
        }
    }
    const std::string name = DcmTag(place.tag).getTagName();
    return name == DcmTag_ERROR_TagName ? "" : name;
}

Json warningsJson(const std::vector<Consequence>& consequences)
{
    Json warnings = Json::array();
    for (const Consequence& one : consequences) {
        Json warning = {{"warning", one.name}};
        warning.update(placeJson(one.place));
        warning["text"] = one.text;
        warning["rule"] = ruleJson(*one.step);
        warnings.push_back(std::move(warning));
    }
    return warnings;
}

std::string noteOnUnseen(const std::string& unseen)
{
    return fmt::format("the element holds {}, but rules see no text in its VR", shownQuoted(unseen));
}

std::string RunReport::shown(const std::optional<std::string>& text, const CharacterSet& set)
{
    return shownReadable(text ? std::optional(set.readable(*text)) : std::nullopt);
}

std::string RunReport::shownReadable(const std::optional<std::string>& text)
{
    if (!text) return kAbsent;
    std::string shown = shownUtf8(*text);
    const bool isUnclear = shown.empty() || shown == kAbsent || shown == kNull || shown.front() == '"' ||
                           shown.front() == ' ' || shown.back() == ' ';
    return isUnclear ? '"' + shown + '"' : shown;
}

RunReport::RunReport(const Recording& recording, DcmDataset& dataset, const ConsequenceSwitches& wanted,
                     std::size_t begin)
    : recording_(recording), begin_(begin), changes_(recording.changes(begin)), sets_(recording, dataset),
      consequences_(findConsequences(recording, dataset, wanted, begin))
{
}

std::string RunReport::changes(const Look& look) const
{
    Table table({{""},
                 {"Tag", false, true, 15},
                 {"Name", false, true, 12},
                 {"VR"},
                 {"Before", false, true, 10},
                 {"After", false, true, 10},
                 {"Rule", false, true, 20}});
    for (const Change& change : changes_) {
        const auto [before, after] = readable(change, sets_);
        const Color color = colorOf(change.sign());
        const auto cell = [](const std::optional<std::string>& text) {
            return Table::Cell{shownReadable(text), text ? Color::Plain : Color::Dim};
        };
        table.addRow({{std::string(1, change.sign()), color},
                      {shownUtf8(change.place.name), color},
                      {placeName(change.place)},
                      {change.vr, Color::Dim},
                      cell(before),
                      cell(after),
                      {rulesOf(change), Color::Dim}});
    }
    return table.text(look.width, look.isColored, 2);
}

std::string RunReport::trace(const Look& look) const
{
    Table table(
        {{"Rule"}, {"Target", false, true, 15}, {"Name", false, true, 12}, {"Value", false, true, 16}, {"Effect"}});
    for (std::size_t index = begin_; index < recording_.steps().size(); ++index) {
        const Step& step = recording_.steps()[index];
        const std::string value = step.value ? shown(step.value, sets_.after(step)) : kNull;
        table.addRow({{whereOf(step), Color::Dim},
                      {shownUtf8(step.place.name)},
                      {placeName(step.place)},
                      {step.failure.empty() ? value : "", step.value ? Color::Plain : Color::Dim},
                      {step.failure.empty() ? effectName(step.effect) : "failed",
                       step.failure.empty() ? colorOf(step.effect) : Color::Red}});
        for (const std::string& message : step.messages)
            table.addRow({{}, {}, {}, {shownUtf8(sets_.after(step).readable(message)), Color::Cyan}});
        if (!step.failure.empty()) table.addRow({{}, {}, {}, {shownUtf8(step.failure), Color::Red}});
    }
    return table.text(look.width, look.isColored, 2);
}

std::string RunReport::warnings(const Look& look) const
{
    std::string text;
    for (const Consequence& one : consequences_) {
        const std::string name = placeName(one.place);
        text += fmt::format("  {} {}: {}{}{} {} [{}]\n", colored("warning:", Color::Yellow, look.isColored),
                            whereOf(*one.step), shownUtf8(one.place.name), name.empty() ? "" : " ", name + ":",
                            one.text, one.name);
    }
    return text;
}

std::string RunReport::summary() const
{
    const auto count = [this](char sign) {
        return std::ranges::count_if(changes_, [sign](const Change& change) {
            return change.sign() == sign && change.place.kind != Place::Kind::Variable; // these do not last
        });
    };
    std::string text = fmt::format("{} added, {} changed, {} deleted", count('+'), count('~'), count('-'));
    const std::size_t warnings = consequences_.size();
    if (warnings > 0) text += fmt::format("; {} warning{}", warnings, warnings == 1 ? "" : "s");
    return text;
}

Json RunReport::changeJson(const Change& change) const
{
    const auto [before, after] = readable(change, sets_);
    Json json = {{"sign", std::string(1, change.sign())}};
    json.update(placeJson(change.place));
    json["vr"] = change.vr;
    json["before"] = before ? Json(*before) : Json(nullptr);
    json["after"] = after ? Json(*after) : Json(nullptr);
    json["rules"] = Json::array();
    for (const Step* one : change.steps) json["rules"].push_back(ruleJson(*one));
    return json;
}

Json RunReport::stepJson(const Step& step) const
{
    Json json = {{"rule", ruleJson(step)}};
    json.update(placeJson(step.place));
    json["value"] = textJson(step.value, sets_.after(step));
    json["effect"] = step.failure.empty() ? effectName(step.effect) : "failed";
    json["before"] = textJson(step.before, sets_.before(step));
    json["after"] = textJson(step.after, sets_.after(step));
    json["messages"] = Json::array();
    for (const std::string& message : step.messages) json["messages"].push_back(textJson(message, sets_.after(step)));
    return json;
}

Json RunReport::json(bool withTrace) const
{
    Json json = {{"changes", Json::array()}};
    for (const Change& change : changes_) json["changes"].push_back(changeJson(change));
    if (withTrace) {
        json["trace"] = Json::array();
        for (const Step& step : recording_.steps()) json["trace"].push_back(stepJson(step));
    }
    json["warnings"] = warningsJson(consequences_);
    json["failure"] = recording_.failure().empty() ? Json(nullptr) : Json(asUtf8(recording_.failure()));
    return json;
}

} // namespace kxtool
