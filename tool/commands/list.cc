// SPDX-License-Identifier: BSD-3-Clause
// kxmap list: which mapping file serves which AE title, in which order, and in what state it is.
#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/console/text.h"
#include "tool/lint/lint.h"
#include "tool/rules/lintnames.h"
#include "tool/rules/mappingsfolder.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using Role = MappingSlot::Role;

struct Options {
    std::string aeTitle;
    std::string mappingsFolder;
    std::string format = "text";
    ColorMode color = ColorMode::Auto;
};

struct Counts {
    std::size_t rules = 0;
    std::size_t badLines = 0;
    std::size_t warnings = 0;
};

/// One line of the list: a slot and whom it serves.
struct Row {
    MappingSlot slot;
    std::string aeTitle;          // empty for the global ones
    std::optional<Counts> counts; // none when it is not there, or cannot be read
};

struct Note {
    fs::path file;
    std::string text;
};

struct Listing {
    fs::path folder;
    std::vector<Row> inbound, outbound;
    std::vector<Note> notes;
    int exitCode = kAllGood;
};

/// The rows of a direction: those before, the AE titles', those after.
std::vector<Row> rowsOf(const fs::path& folder, Direction direction, const std::vector<std::string>& titles)
{
    const std::vector<MappingSlot> global = slotsFor(folder, direction, "");
    std::vector<Row> rows{{global.front(), "", {}}};
    for (const std::string& title : titles) rows.push_back({slotsFor(folder, direction, title)[1], title, {}});
    rows.push_back({global.back(), "", {}});
    return rows;
}

/// Reads every file once and counts.
void countAll(Listing& listing)
{
    std::vector<RuleFile> files;
    std::map<fs::path, Counts> counts;
    for (std::vector<Row>* rows : {&listing.inbound, &listing.outbound}) {
        for (const Row& row : *rows) {
            const fs::path path = listing.folder / row.slot.name;
            if (!row.slot.isThere || counts.contains(path)) continue;
            try {
                const RuleFile& file = files.emplace_back(readRuleFile(path));
                counts[path] = {file.ruleCount(), file.badCount(), 0};
            } catch (const FileError& error) {
                reportError(error.what());
                listing.exitCode = kUnusable;
            }
        }
    }
    for (const Finding& finding : lintTogether(listing.folder, files, CheckSwitches())) {
        if (finding.file != nullptr && infoOf(finding.check).severity == Severity::Warning)
            ++counts[finding.file->path].warnings;
    }
    for (std::vector<Row>* rows : {&listing.inbound, &listing.outbound}) {
        for (Row& row : *rows) {
            const auto found = counts.find(listing.folder / row.slot.name);
            if (found == counts.end()) continue;
            row.counts = found->second;
            if (found->second.badLines > 0) listing.exitCode = std::max(listing.exitCode, kShortcoming);
        }
    }
}

void noteTitles(const std::vector<Row>& rows, std::vector<Note>& notes)
{
    std::map<std::string, std::string> seen; // in lower case, and as it is
    for (const Row& row : rows) {
        if (row.aeTitle.empty()) continue;
        if (const std::string why = whyNoTitle(row.aeTitle); !why.empty())
            notes.push_back({row.slot.name, "serves nobody: " + why});
        const auto [other, isNew] = seen.emplace(lowered(row.aeTitle), row.aeTitle);
        if (isNew) continue;
        notes.push_back({row.slot.name, fmt::format("\"{}\" and \"{}\" are two AE titles: upper and lower case count",
                                                    other->second, row.aeTitle)});
    }
}

/// Notes what lies in a folder and serves nobody, whatever its rules are.
/// @param below the folder itself (""), or "global" in it.
void noteStrays(const fs::path& folder, const fs::path& below, std::vector<Note>& notes)
{
    std::error_code failure;
    std::vector<Note> found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder / below, failure)) {
        const fs::path name = below / entry.path().filename();
        const FileMeaning meaning = meaningOf(name);
        if (meaning.role == FileMeaning::Role::Unread && entry.is_directory(failure)) continue; // as "global" itself
        std::string why = whyUnread(folder, name);
        if (why.empty() && meaning.role == FileMeaning::Role::Title && meaning.title.empty()) why = whyNoTitle("");
        if (!why.empty()) found.push_back({name, "serves nobody: " + why});
    }
    std::ranges::sort(found, {}, &Note::file);
    notes.insert(notes.end(), found.begin(), found.end());
}

void noteOutbound(const std::vector<Row>& outbound, std::vector<Note>& notes)
{
    for (const Row& row : outbound) {
        if (row.aeTitle.empty() || !row.slot.isThere) continue;
        notes.push_back({row.slot.name, fmt::format("serves a sender \"{}.out\" inbound as well", row.aeTitle)});
    }
}

Listing listAll(const fs::path& folder)
{
    Listing listing{folder,
                    rowsOf(folder, Direction::Inbound, titlesIn(folder, Direction::Inbound)),
                    rowsOf(folder, Direction::Outbound, titlesIn(folder, Direction::Outbound)),
                    {},
                    kAllGood};
    for (const std::vector<Row>* rows : {&listing.inbound, &listing.outbound}) noteTitles(*rows, listing.notes);
    noteOutbound(listing.outbound, listing.notes);
    noteStrays(folder, "", listing.notes);
    noteStrays(folder, kxmap::kGlobalDirectory, listing.notes);
    return listing;
}

/// @return a title that has a file and is hardly different; empty without one.
std::string titleNear(const fs::path& folder, const std::string& title)
{
    std::string best;
    std::size_t least = 1 + std::max<std::size_t>(1, title.size() / 4);
    for (Direction direction : {Direction::Inbound, Direction::Outbound}) {
        for (const std::string& other : titlesIn(folder, direction)) {
            const std::size_t steps = lowered(other) == lowered(title) ? 0 : editDistance(other, title);
            if (steps >= least) continue;
            least = steps;
            best = other;
        }
    }
    return best;
}

Listing listOne(const fs::path& folder, const std::string& title)
{
    Listing listing{folder,
                    rowsOf(folder, Direction::Inbound, {title}),
                    rowsOf(folder, Direction::Outbound, {title}),
                    {},
                    kAllGood};
    noteTitles(listing.inbound, listing.notes);
    noteOutbound(listing.outbound, listing.notes);
    if (listing.inbound[1].slot.isThere || listing.outbound[1].slot.isThere) return listing;
    const std::string near = titleNear(folder, title);
    listing.notes.push_back({listing.inbound[1].slot.name, near.empty() ? "there is no mapping for this AE title alone"
                                                                        : "did you mean \"" + near + "\"?"});
    return listing;
}

std::string servedBy(const Row& row)
{
    if (row.slot.role == Role::Pre) return "(all, first)";
    return row.slot.role == Role::Post ? "(all, last)" : shownUtf8(row.aeTitle);
}

std::string shownFile(const fs::path& file)
{
    const std::string name = shownUtf8(file.native());
    return name.find(' ') == std::string::npos ? name : '"' + name + '"';
}

void printRows(std::string_view head, const std::vector<Row>& rows, bool isColored)
{
    Table table({{"AE title"}, {"File"}, {"Rules", true}, {"Bad lines", true}, {"Warnings", true}});
    for (const Row& row : rows) {
        const std::string name = shownFile(row.slot.name);
        if (!row.counts) {
            const char* state = row.slot.isThere ? "cannot be read" : "not there";
            const Color color = row.slot.isThere ? Color::Red : Color::Dim;
            table.addRow({{servedBy(row), color}, {fmt::format("{} ({})", name, state), color}});
            continue;
        }
        const Counts& counts = *row.counts;
        table.addRow({{servedBy(row)},
                      {name},
                      {std::to_string(counts.rules)},
                      {std::to_string(counts.badLines), counts.badLines > 0 ? Color::Red : Color::Plain},
                      {std::to_string(counts.warnings), counts.warnings > 0 ? Color::Yellow : Color::Plain}});
    }
    printLine(colored(head, Color::Bold, isColored));
    printLine(table.text(outputWidth(), isColored, 2)); // an empty line follows its last one
}

void printText(const Listing& listing, bool isColored)
{
    printLine(shownUtf8(listing.folder.native()));
    printLine("");
    printRows("Inbound, in the order of a run", listing.inbound, isColored);
    printRows("Outbound, in the order of a run", listing.outbound, isColored);
    for (const Note& note : listing.notes) printLine(fmt::format("{}: {}", shownFile(note.file), shownUtf8(note.text)));
}

Json jsonOf(const std::vector<Row>& rows)
{
    Json array = Json::array();
    for (const Row& row : rows) {
        Json item = {{"role", row.slot.role == Role::Pre    ? "pre"
                              : row.slot.role == Role::Post ? "post"
                                                            : "aeTitle"},
                     {"aeTitle", row.aeTitle.empty() ? Json() : Json(row.aeTitle)},
                     {"file", row.slot.name.native()},
                     {"isThere", row.slot.isThere}};
        if (row.counts) {
            item["rules"] = row.counts->rules;
            item["badLines"] = row.counts->badLines;
            item["warnings"] = row.counts->warnings;
        }
        array.push_back(item);
    }
    return array;
}

void printJson(const Listing& listing)
{
    Json notes = Json::array();
    for (const Note& note : listing.notes) notes.push_back({{"file", note.file.native()}, {"text", note.text}});
    const Json whole = {{"folder", listing.folder.native()},
                        {"inbound", jsonOf(listing.inbound)},
                        {"outbound", jsonOf(listing.outbound)},
                        {"notes", notes}};
    printLine(whole.dump(2, ' ', false, Json::error_handler_t::replace));
}

int runList(const Options& options)
{
    const fs::path folder = findMappingsFolder(options.mappingsFolder);
    Listing listing = options.aeTitle.empty() ? listAll(folder) : listOne(folder, options.aeTitle);
    countAll(listing);
    if (options.format == "json") printJson(listing);
    else printText(listing, usesColor(options.color));
    return listing.exitCode;
}

} // namespace

void addList(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("list", "Show which mapping file serves which AE title");
    const auto options = std::make_shared<Options>();
    command->add_option("--aet", options->aeTitle, "Show what this AE title would get")->type_name("TITLE");
    command->add_option("--mappings", options->mappingsFolder, "The folder of mapping files [$DICOM_VAR/mappings]")
        ->type_name("DIR");
    command->add_option("--format", options->format, "text or json")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json"}).description(""));
    addColorOption(*command, options->color);
    command->footer(
        "Exit codes: 0 all files good, 1 lines of a file are dropped, 2 a file could not be read, or usage error.");
    command->callback([=, &exitCode] { exitCode = runList(*options); });
}

} // namespace kxtool
