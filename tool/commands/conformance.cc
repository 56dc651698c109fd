// SPDX-License-Identifier: BSD-3-Clause
// kxmap conformance: the coercion tables for a DICOM conformance statement, as Markdown or CSV.
#include "tool/commands/commands.h"
#include "tool/conformance/conformancetable.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/rules/mappingsfolder.h"
#include "tool/rules/ruleoptions.h"

#include "KXItem.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

struct Options {
    std::string aeTitle;
    std::string mappingsFolder;
    std::string format = "markdown";
    bool isOutbound = false;
};

/// What one AE title gets.
struct Section {
    std::string aeTitle; ///< empty: everybody without a mapping of their own
    std::vector<CoercionRow>
        dropped; ///< lines that the engine drops, as values: what they should have done is not done
    std::vector<CoercionRow> rows;
};

/// Makes the tables of a folder, and reads each mapping file once.
class SectionMaker {
public:
    SectionMaker(fs::path folder, Direction direction) : folder_(std::move(folder)), direction_(direction) {}

    Section make(const std::string& aeTitle)
    {
        Section section{aeTitle, {}, {}};
        std::vector<const RuleFile*> files;
        for (const MappingSlot& slot : slotsFor(folder_, direction_, aeTitle)) {
            if (!slot.isThere) continue;
            files.push_back(&read(folder_ / slot.name));
            for (const RuleLine& line : files.back()->lines) {
                const std::string place = fmt::format("{}:{}", shownUtf8(slot.name.native()), line.line);
                if (line.isLost())
                    section.dropped.push_back({"", "", "line is dropped", shownUtf8(line.text), "", place});
            }
        }
        section.rows = coercionTable(files, folder_);
        return section;
    }

    bool hasBadLines() const { return hasBadLines_; }

private:
    const RuleFile& read(const fs::path& path)
    {
        const auto [at, isNew] = files_.try_emplace(path);
        if (!isNew) return at->second;
        at->second = readRuleFile(path);
        for (const RuleLine& line : at->second.lines) {
            if (!line.isLost()) continue;
            reportWarning(
                fmt::format("{}:{}: the engine drops this line, so the tables leave it out", path.native(), line.line));
            hasBadLines_ = true;
        }
        return at->second;
    }

    fs::path folder_;
    Direction direction_;
    std::map<fs::path, RuleFile> files_;
    bool hasBadLines_ = false;
};

// Everything that Markdown would read as its own is spelled out; a line feed becomes a break within the cell.
std::string markdown(std::string_view text)
{
    std::string shown;
    for (const char byte : text) {
        if (byte == '\n') {
            shown += "<br>";
            continue;
        }
        if (std::string_view("\\`*_[]<>|~&").find(byte) != std::string_view::npos) shown += '\\';
        shown += byte;
    }
    return shown;
}

void printMarkdownRow(const std::vector<std::string>& cells)
{
    std::string line = "|";
    for (const std::string& cell : cells) line += cell.empty() ? " |" : " " + markdown(cell) + " |";
    printLine(line);
}

void printMarkdownSection(const Section& section, bool isOutbound)
{
    const std::string whom = section.aeTitle.empty() ? "any other AE title" : markdown(shownUtf8(section.aeTitle));
    printLine(fmt::format("\n### Datasets {} {}\n", isOutbound ? "sent to" : "received from", whom));
    if (!section.dropped.empty()) {
        std::vector<std::string> places;
        for (const CoercionRow& line : section.dropped) places.push_back(markdown(line.source));
        printLine(fmt::format("Dropped by the engine, so that they have no row: {}.\n", fmt::join(places, ", ")));
    }
    if (section.rows.empty()) return printLine("No attributes are coerced.");
    printMarkdownRow({"Attribute", "Tag", "Action", "Value", "Condition", "Rule"});
    printLine("| --- | --- | --- | --- | --- | --- |");
    for (const CoercionRow& row : section.rows)
        printMarkdownRow({row.attribute, row.tag, row.action, row.value, row.condition, row.source});
}

constexpr const char* kMarkdownHead = R"(## Attribute coercion

Attributes of datasets are changed {}, by the rules below in the order of the tables; each rule
sees the dataset as the ones above it left it. A row without a condition always applies; "modified" and
"removed" apply where the attribute is present, "added" where it is absent. "It" is the attribute of the
row. Braces within a value stand for the text of what they name, which is nothing where that is absent.
Rules see texts alone: attributes whose VR is one of numbers, bytes or sequences are empty to them, and so
are those of the VR UN, as private attributes often are. Such an attribute is copied whole to one of its VR.)";

void printMarkdown(const std::vector<Section>& sections, bool isOutbound)
{
    printLine(fmt::format(kMarkdownHead, isOutbound ? "before they are sent" : "when they are received"));
    for (const Section& section : sections) printMarkdownSection(section, isOutbound);
}

/// RFC 4180: quotes around all that needs them; CR LF at the ends of lines.
/// @return the cell; with an apostrophe in front where a spreadsheet would compute it.
std::string csvCell(const std::string& field)
{
    const bool isFormula = !field.empty() && std::string_view("=+-@\t\r").find(field.front()) != std::string_view::npos;
    const std::string text = (isFormula ? "'" : "") + field;
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string cell(1, '"');
    for (const char byte : text) cell += byte == '"' ? "\"\"" : byte == '\n' ? "\r\n" : std::string(1, byte);
    return cell + '"';
}

void printCsvRecord(const std::vector<std::string>& fields)
{
    std::vector<std::string> cells;
    std::ranges::transform(fields, std::back_inserter(cells), csvCell);
    printLine(fmt::format("{}\r", fmt::join(cells, ",")));
}

void printCsv(const std::vector<Section>& sections, bool isOutbound)
{
    printCsvRecord({"Direction", "AE title", "Attribute", "Tag", "Action", "Value", "Condition", "Rule"});
    for (const Section& section : sections) {
        const std::string title = section.aeTitle.empty() ? "(any other)" : shownUtf8(section.aeTitle);
        for (const auto* rows : {&section.dropped, &section.rows}) {
            for (const CoercionRow& row : *rows)
                printCsvRecord({isOutbound ? "outbound" : "inbound", title, row.attribute, row.tag, row.action,
                                row.value, row.condition, row.source});
        }
    }
}

int runConformance(const Options& options)
{
    requireDictionary();
    KXItem::registerDictionary();
    const fs::path folder = findMappingsFolder(options.mappingsFolder);
    const Direction direction = options.isOutbound ? Direction::Outbound : Direction::Inbound;
    std::vector<std::string> titles{options.aeTitle};
    if (options.aeTitle.empty()) {
        titles = titlesIn(folder, direction);
        titles.emplace_back(); // any other
    }
    SectionMaker maker(folder, direction);
    std::vector<Section> sections;
    for (const std::string& title : titles) sections.push_back(maker.make(title));
    if (options.format == "csv") printCsv(sections, options.isOutbound);
    else printMarkdown(sections, options.isOutbound);
    return maker.hasBadLines() ? kShortcoming : kAllGood;
}

} // namespace

void addConformance(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("conformance", "Write the coercion tables of a DICOM conformance statement");
    const auto options = std::make_shared<Options>();
    command->add_option("--aet", options->aeTitle, "The table of this AE title alone")->type_name("TITLE");
    command->add_flag("--outbound", options->isOutbound,
                      "What is done to datasets that are sent, not to those received");
    command->add_option("--mappings", options->mappingsFolder, "The folder of mapping files [$DICOM_VAR/mappings]")
        ->type_name("DIR");
    command->add_option("--format", options->format, "markdown or csv")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"markdown", "csv"}).description(""));
    command->footer(
        "The statement is DICOM PS3.2's. Lines that the engine drops are named on standard error and above the\n"
        "table, in CSV by rows of their own. A cell of CSV that a spreadsheet would compute begins with \"'\".\n"
        "Exit codes: 0 done, 1 done, but lines of a file are dropped, 2 a file could not be read, or usage error.");
    command->callback([=, &exitCode] { exitCode = runConformance(*options); });
}

} // namespace kxtool
