// SPDX-License-Identifier: BSD-3-Clause
// Elements and custom fields are reported, variables are not, since they end with the run. The members of a change
// are those of "kxmap try --format json".
#include "tool/record/report.h"

#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/console/text.h"
#include "tool/console/utf8.h"
#include "tool/record/runreport.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <optional>
#include <string_view>

namespace kxtool {
namespace {

using Json = nlohmann::ordered_json;

bool isReported(const Change& change)
{
    return change.place.kind != Place::Kind::Variable;
}

Json jsonOf(const Change& change, const RunCharacterSets& sets)
{
    const auto [before, after] = readable(change, sets);
    const bool isElement = change.place.kind == Place::Kind::Element;
    const std::string place = asUtf8(change.place.name);
    Json json = {{"sign", std::string(1, change.sign())},
                 {"kind", isElement ? "element" : "custom field"},
                 {"place", place},
                 {"target", place}}; // an older name of "place", kept for readers of reports
    if (isElement) json["name"] = placeName(change.place);
    json["vr"] = change.vr;
    json["before"] = before ? Json(*before) : Json();
    json["after"] = after ? Json(*after) : Json();
    json["rules"] = Json::array();
    for (const Step* step : change.steps) json["rules"].push_back(ruleJson(*step));
    return json;
}

void addName(Json& json, const char* key, const std::filesystem::path& file)
{
    json[key] = file.native();
    if (!isUtf8(file.native())) json[std::string(key) + "_bytes"] = percentEncoded(file.native());
}

Json messagesOf(const Recording& recording, const CharacterSet& set)
{
    Json messages = Json::array();
    for (const Step& step : recording.steps()) {
        for (const std::string& message : step.messages)
            messages.push_back({{"rule", ruleJson(step)}, {"text", set.readable(message)}});
    }
    return messages;
}

std::string shown(const std::optional<std::string>& text)
{
    return text ? fmt::format("[{}]", printable(*text)) : "absent";
}

} // namespace

std::string jsonLine(const FileReport& file, const Recording* recording, DcmDataset* dataset)
{
    Json json = Json::object();
    addName(json, "input", file.input);
    addName(json, "output", file.output);
    json["status"] = file.status;
    if (!file.error.empty()) json["error"] = file.error;
    json["ms"] = std::round(file.milliseconds * 1000) / 1000;
    if (file.otherNames > 0) json["other_names"] = file.otherNames;
    if (recording != nullptr) {
        const RunCharacterSets sets(*recording, *dataset);
        Json changes = Json::array();
        for (const Change& change : recording->changes()) {
            if (isReported(change)) changes.push_back(jsonOf(change, sets));
        }
        json["changes"] = std::move(changes);
        json["warnings"] = warningsJson(findConsequences(*recording, *dataset, {}, 0));
        Json messages = messagesOf(*recording, sets.after());
        if (!messages.empty()) json["messages"] = std::move(messages);
    }
    return json.dump(-1, ' ', false, Json::error_handler_t::replace); // file names need not be UTF-8
}

std::string changeLines(const std::filesystem::path& file, const Recording& recording, DcmDataset& dataset)
{
    const RunCharacterSets sets(recording, dataset);
    std::string lines;
    for (const Change& change : recording.changes()) {
        if (!isReported(change)) continue;
        const auto [before, after] = readable(change, sets);
        lines += fmt::format("{}: {} {}{}{} {} -> {}", printable(file.native()), change.sign(), change.place.name,
                             change.vr.empty() ? "" : " ", change.vr, shown(before), shown(after));
        for (const Step* step : change.steps) lines.append(" ").append(printable(placeOfRule(*step)));
        lines += '\n';
    }
    return lines;
}

ReadableChange readable(const Change& change, const RunCharacterSets& sets)
{
    ReadableChange texts;
    if (change.before) texts.before = sets.before(*change.steps.front()).readable(*change.before);
    if (change.after) texts.after = sets.after(*change.steps.back()).readable(*change.after);
    return texts;
}

std::string placeOfRule(const Step& step)
{
    return fmt::format("{}:{}", step.file->path.native(), step.rule->line);
}

} // namespace kxtool
