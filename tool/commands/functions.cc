// SPDX-License-Identifier: BSD-3-Clause
// kxmap functions: the reference of the language, from the file that the manual's page is made from. It is part of the
// program, so that it always describes the engine of this version.
#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/rules/lintnames.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

extern const std::string_view kFunctionsJson; // docs/functions.json, embedded by the build

namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostColumns = 100; // longer lines are hard to read
constexpr std::size_t kLabelColumns = 12;

struct Paper {
    std::size_t width;
    bool isColored;

    explicit Paper(ColorMode mode) : width(outputWidth()), isColored(usesColor(mode))
    {
        if (width == 0 || width > kMostColumns) width = kMostColumns;
    }
    std::string bold(std::string_view text) const { return colored(text, Color::Bold, isColored); }
    std::string dim(std::string_view text) const { return colored(text, Color::Dim, isColored); }
};

std::string textOf(const Json& entry, const char* field)
{
    return entry.value(field, std::string());
}

/// Prints a text in lines that begin at a column; what stands before it in the first one is there already.
void printWrapped(const Paper& paper, std::string line, std::string_view text, std::size_t column)
{
    const std::size_t room = paper.width > column + 20 ? paper.width - column : 20;
    while (text.size() > room) {
        const std::size_t blank = text.substr(0, room + 1).rfind(' ');
        const std::size_t end = blank == std::string_view::npos || blank == 0 ? room : blank;
        printLine(line + std::string(text.substr(0, end)));
        text.remove_prefix(end == blank ? end + 1 : end);
        line.assign(column, ' ');
    }
    printLine(line + std::string(text));
}

void printField(const Paper& paper, std::string_view label, std::string_view text)
{
    if (text.empty()) return;
    printWrapped(paper, "  " + paper.bold(fmt::format("{:<{}}", label, kLabelColumns)), text, kLabelColumns + 2);
}

void printArguments(const Paper& paper, const Json& entry)
{
    for (const Json& argument : entry.value("arguments", Json::array())) {
        std::string about = textOf(argument, "about");
        if (const std::string count = textOf(argument, "count"); !count.empty())
            about = fmt::format("({}) {}", count, about);
        const std::string name = textOf(argument, "name");
        if (name.size() < kLabelColumns) printField(paper, name, about);
        else {
            printLine("  " + paper.bold(name));
            printField(paper, "", about);
        }
    }
}

void printMessages(const Paper& paper, const Json& entry)
{
    std::string_view label = "Messages";
    for (const Json& message : entry.value("messages", Json::array())) {
        printField(paper, label, fmt::format("{} ({}):", textOf(message, "when"), textOf(message, "channel")));
        printField(paper, "", textOf(message, "text"));
        label = "";
    }
}

std::string outcomeOf(const Json& example)
{
    if (example.contains("refused")) {
        const std::string message = textOf(example, "refused");
        return message.empty() ? "dropped without a message" : "dropped: " + message;
    }
    return example["result"].is_null() ? "NULL" : fmt::format("\"{}\"", std::string(example["result"]));
}

void printExamples(const Paper& paper, const Json& entry)
{
    printLine("");
    for (const Json& example : entry["examples"]) {
        for (const std::string element : example.value("elements", Json::array()))
            printLine("      " + paper.dim("with " + element));
        const Json rules = example.value("rules", Json::array());
        for (const std::string rule : rules) printLine("    " + rule);
        if (rules.empty()) printLine("    " + textOf(example, "expression"));
        printLine(paper.dim("      -> ") + colored(outcomeOf(example), Color::Green, paper.isColored));
        for (const std::string message : example.value("messages", Json::array()))
            printLine("      " + paper.dim("says " + message));
    }
}

void printEntry(const Paper& paper, const Json& entry)
{
    printLine(paper.bold(textOf(entry, "signature")));
    printWrapped(paper, "  ", textOf(entry, "summary"), 2);
    printLine("");
    printArguments(paper, entry);
    printField(paper, "Result", textOf(entry, "result"));
    printField(paper, "NULL", textOf(entry, "null"));
    printField(paper, "Evaluated", textOf(entry, "evaluation"));
    printMessages(paper, entry);
    std::string_view label = "Note";
    for (const std::string quirk : entry.value("quirks", Json::array())) {
        printField(paper, label, quirk);
        label = "";
    }
    if (const std::string alias = textOf(entry, "alias"); !alias.empty())
        printField(paper, "Alias", fmt::format("{} (for people; a rule cannot call it)", alias));
    printExamples(paper, entry);
}

void printOverview(const Paper& paper, const Json& reference)
{
    std::size_t column = 0;
    for (const Json& entry : reference["entries"]) {
        if (const std::size_t size = textOf(entry, "signature").size(); size < paper.width / 2)
            column = std::max(column, size + 4);
    }
    for (const Json& family : reference["families"]) {
        printLine(paper.bold(textOf(family, "title")));
        for (const Json& entry : reference["entries"]) {
            if (entry["family"] != family["name"]) continue;
            const std::string signature = textOf(entry, "signature");
            std::string start = fmt::format("  {:<{}}", signature, column - 2);
            if (signature.size() + 4 > column) { // too long to stand beside its summary
                printLine("  " + signature);
                start.assign(column, ' ');
            }
            printWrapped(paper, start, textOf(entry, "summary"), column);
        }
        printLine("");
    }
    printLine("\"kxmap functions NAME\" explains one of them, with examples.");
}

bool isCalled(const Json& entry, const std::string& name)
{
    const Json also = entry.value("also", Json::array());
    return entry["name"] == name || textOf(entry, "alias") == name || std::ranges::find(also, Json(name)) != also.end();
}

int explain(const Paper& paper, const Json& reference, const std::string& name)
{
    bool isFound = false;
    for (const Json& entry : reference["entries"]) {
        if (!isCalled(entry, name)) continue;
        if (isFound) printLine("");
        printEntry(paper, entry);
        isFound = true;
    }
    if (isFound) return kAllGood;
    const std::string hint = hintForFunction(name);
    reportError(fmt::format("no function has the name \"{}\"{}{}", printable(name), hint.empty() ? "" : ": ", hint));
    return kShortcoming;
}

} // namespace

void addFunctions(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("functions", "Explain the functions and targets of the rules");
    const auto name = std::make_shared<std::string>();
    const auto color = std::make_shared<ColorMode>(ColorMode::Auto);
    command->add_option("NAME", *name, "A function; \"()\" stands for tags, \"root\" for whole right sides")
        ->type_name("");
    addColorOption(*command, *color);
    command->footer("Without a name: all of them, a line each.\n"
                    "Exit codes: 0 found, 1 there is no such function, 2 usage error.");
    command->callback([=, &exitCode] {
        const Json reference = Json::parse(kFunctionsJson);
        const Paper paper(*color);
        if (name->empty()) printOverview(paper, reference);
        else exitCode = explain(paper, reference, *name);
    });
}

} // namespace kxtool
