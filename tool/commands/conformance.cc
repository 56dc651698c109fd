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

/// A line that the engine drops: what it should have done is not done.
struct DroppedLine {
    std::string source; ///< "global/pre.map:12"
    std::string text;
};

/// What one AE title gets.
struct Section {
    std::string aeTitle; ///< empty: everybody without a mapping of their own
    std::vector<DroppedLine> dropped;
    std::vector<CoercionRow> rows;
};

/// Reads each mapping file once, and says what is dropped of it.
class FileStore {
public:
    const RuleFile& get(const fs::path& path)
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
    bool hasBadLines() const { return hasBadLines_; }

private:
    std::map<fs::path, RuleFile> files_;
    bool hasBadLines_ = false;
};

Section sectionFor(const fs::path& folder, Direction direction, const std::string& aeTitle, FileStore& store)
{
    Section section{aeTitle, {}, {}};
    std::vector<const RuleFile*> files;
    for (const MappingSlot& slot : slotsFor(folder, direction, aeTitle)) {
        if (!slot.isThere) continue;
        files.push_back(&store.get(folder / slot.name));
        for (const RuleLine& line : files.back()->lines) {
            if (line.isLost())
                section.dropped.push_back(
                    {fmt::format("{}:{}", shownUtf8(slot.name.native()), line.line), shownUtf8(line.text)});
        }
    }
    section.rows = coercionTable(files, folder);
    return section;
}

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
    for (const std::string& cell : cells) line += cell.empty() ? " |" : " " + cell + " |";
    printLine(line);
}

std::string headOf(const Section& section, bool isOutbound)
{
    const char* movement = isOutbound ? "sent to" : "received from";
    if (section.aeTitle.empty()) return fmt::format("Datasets {} any other AE title", movement);
    return fmt::format("Datasets {} {}", movement, markdown(shownUtf8(section.aeTitle)));
}

void printMarkdownSection(const Section& section, bool isOutbound)
{
    printLine("");
    printLine("### " + headOf(section, isOutbound));
    printLine("");
    if (!section.dropped.empty()) {
        std::string places;
        for (const DroppedLine& line : section.dropped) places += (places.empty() ? "" : ", ") + markdown(line.source);
        printLine(fmt::format("Dropped by the engine, so that they have no row: {}.", places));
        printLine("");
    }
    if (section.rows.empty()) {
        printLine("No attributes are coerced.");
        return;
    }
    printMarkdownRow({"Attribute", "Tag", "Action", "Value", "Condition", "Rule"});
    printMarkdownRow({"---", "---", "---", "---", "---", "---"});
    for (const CoercionRow& row : section.rows) {
        printMarkdownRow({markdown(row.attribute), markdown(row.tag), row.action, markdown(row.value),
                          markdown(row.condition), markdown(row.source)});
    }
}

void printMarkdown(const std::vector<Section>& sections, bool isOutbound)
{
    printLine("## Attribute coercion");
    printLine("");
    printLine(
        fmt::format("Attributes of datasets are changed {}, by the rules below in the order of the tables; each rule",
                    isOutbound ? "before they are sent" : "when they are received"));
    printLine(
        "sees the dataset as the ones above it left it. A row without a condition always applies; \"modified\" and");
    printLine("\"removed\" apply where the attribute is present, \"added\" where it is absent. \"It\" is the attribute "
              "of the");
    printLine(
        "row. Braces within a value stand for the text of what they name, which is nothing where that is absent.");
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
        const char* direction = isOutbound ? "outbound" : "inbound";
        const std::string title = section.aeTitle.empty() ? "(any other)" : shownUtf8(section.aeTitle);
        for (const DroppedLine& line : section.dropped)
            printCsvRecord({direction, title, "", "", "line is dropped", line.text, "", line.source});
        for (const CoercionRow& row : section.rows) {
            printCsvRecord(
                {direction, title, row.attribute, row.tag, row.action, row.value, row.condition, row.source});
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
    FileStore store;
    std::vector<Section> sections;
    for (const std::string& title : titles) sections.push_back(sectionFor(folder, direction, title, store));
    if (options.format == "csv") printCsv(sections, options.isOutbound);
    else printMarkdown(sections, options.isOutbound);
    return store.hasBadLines() ? kShortcoming : kAllGood;
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
