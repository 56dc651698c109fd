// SPDX-License-Identifier: BSD-3-Clause
// Findings for programs: our own JSON, and SARIF (OASIS, version 2.1.0) for code review tools.
#include "tool/console/text.h"
#include "tool/console/utf8.h"
#include "tool/lint/lintreport.h"

#include <cctype>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace kxtool {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kFormatVersion = 1; // raised when a field changes its meaning or goes

const char* nameOf(Severity severity)
{
    return severity == Severity::Error ? "error" : "warning";
}

std::string dump(const Json& json)
{
    return json.dump(2, ' ', false, Json::error_handler_t::replace);
}

template <typename See>
void forEachFinding(const CheckRun& run, See see)
{
    for (const CheckedFiles& part : run.parts) {
        for (const Finding& finding : part.findings) see(finding);
    }
}

Json jsonOf(const CheckRun& run, const Finding& finding)
{
    Json json = {{"name", infoOf(finding.check).name},
                 {"severity", nameOf(run.severityOf(finding))},
                 {"file", finding.path().native()},
                 {"message", finding.message}};
    if (!finding.hint.empty()) json["hint"] = finding.hint;
    if (finding.line == nullptr) return json;
    json["line"] = finding.line->line;
    json["column"] = finding.line->column + finding.span.begin + 1;
    json["endColumn"] = finding.line->column + std::max(finding.span.end, finding.span.begin + 1) + 1;
    json["source"] = finding.line->text;
    if (const std::string engine = finding.line->message(); !engine.empty()) json["engine"] = engine;
    return json;
}

std::string uriOf(const std::filesystem::path& path)
{
    return (path.is_absolute() ? "file://" : "") + percentEncoded(path.native());
}

Json regionOf(const Finding& finding)
{
    const std::string_view text = finding.line->text;
    const std::size_t begin = std::min(finding.span.begin, text.size());
    const std::size_t end = std::clamp(finding.span.end, begin, text.size());
    const std::size_t first = finding.line->column + characterCount(text.substr(0, begin)) + 1;
    const std::size_t size = std::max<std::size_t>(1, characterCount(text.substr(begin, end - begin)));
    return {{"startLine", finding.line->line}, {"startColumn", first}, {"endColumn", first + size}};
}

Json sarifRules()
{
    Json rules = Json::array();
    for (const CheckInfo& info : kChecks) {
        rules.push_back({{"id", info.name},
                         {"shortDescription", {{"text", info.sees}}},
                         {"defaultConfiguration", {{"enabled", info.isDefault}, {"level", nameOf(info.severity)}}}});
    }
    return rules;
}

Json sarifResult(const CheckRun& run, const Finding& finding)
{
    Json place = {{"artifactLocation", {{"uri", uriOf(finding.path())}}}};
    if (finding.line != nullptr) place["region"] = regionOf(finding);
    const std::string text = finding.hint.empty() ? finding.message : finding.message + "\n" + finding.hint;
    Json location = {{"physicalLocation", std::move(place)}};
    return {{"ruleId", infoOf(finding.check).name},
            {"ruleIndex", static_cast<std::size_t>(finding.check)},
            {"level", nameOf(run.severityOf(finding))},
            {"message", {{"text", text}}},
            {"locations", Json::array({std::move(location)})}};
}

} // namespace

std::string findingsAsJson(const CheckRun& run)
{
    Json json = {{"version", kFormatVersion}, {"files", Json::array()}, {"findings", Json::array()}};
    for (const CheckedFiles& part : run.parts) {
        for (const RuleFile& file : part.files)
            json["files"].push_back({{"file", file.path.native()}, {"rules", file.ruleCount()}});
    }
    forEachFinding(run, [&](const Finding& finding) { json["findings"].push_back(jsonOf(run, finding)); });
    json["errors"] = run.countOf(Severity::Error);
    json["warnings"] = run.countOf(Severity::Warning);
    json["unreadable"] = run.unreadable;
    return dump(json);
}

std::string findingsAsSarif(const CheckRun& run)
{
    Json results = Json::array();
    forEachFinding(run, [&](const Finding& finding) { results.push_back(sarifResult(run, finding)); });
    Json invocation = {{"executionSuccessful", run.unreadable.empty()}};
    for (const std::string& message : run.unreadable)
        invocation["toolExecutionNotifications"].push_back({{"level", "error"}, {"message", {{"text", message}}}});
    Json one;
    one["tool"]["driver"] = {{"name", "kxmap"}, {"version", KXDCM_VERSION}, {"rules", sarifRules()}};
    one["columnKind"] = "unicodeCodePoints";
    one["invocations"] = Json::array({std::move(invocation)});
    one["results"] = std::move(results);
    Json json = {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"}, {"version", "2.1.0"}};
    json["runs"] = Json::array({std::move(one)});
    return dump(json);
}

} // namespace kxtool
