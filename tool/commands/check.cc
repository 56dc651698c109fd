// SPDX-License-Identifier: BSD-3-Clause
// kxmap check: everything that is to be said of mapping files before they are installed.
#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/switches.h"
#include "tool/console/table.h"
#include "tool/lint/lintreport.h"
#include "tool/rules/mappingsfolder.h"

#include "kxmap.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kCouldNotOpen = "Coercion couldn't open file: ";
constexpr std::size_t kDefaultWidth = 120; // where standard output is no terminal

struct CheckOptions {
    std::vector<std::string> names;
    std::string mappingsFolder;
    std::vector<std::string> warnings;
    std::string format = "text";
    ColorMode color = ColorMode::Auto;
    bool asksEngine = false;
    bool listsWarnings = false;
};

// @return the library's message, "" for a good file.
std::string checkSyntax(const std::string& file)
{
    char* const message = checkSyntaxInner(file.c_str());
    if (message == errorMsgEmpty) return {};
    const std::unique_ptr<char[]> owned(message);
    return message;
}

std::string whyNotOpened(const std::string& file)
{
    std::error_code failure;
    const auto status = fs::status(file, failure);
    if (failure) return failure.message();
    return fs::is_regular_file(status) ? systemReason(EACCES) : "not a regular file";
}

// The message holds the line as the file has it, and line feeds of its own.
std::string shownLines(std::string_view text)
{
    std::string shown;
    for (std::size_t feed = 0; (feed = text.find('\n')) != std::string_view::npos; text.remove_prefix(feed + 1))
        shown += printable(text.substr(0, feed)) + '\n';
    return shown + printable(text);
}

int askEngine(const std::string& file)
{
    std::error_code failure;
    if (!fs::is_regular_file(file, failure)) { // it would read a device to its end
        reportError(fmt::format("{}: {}", printable(file), whyNotOpened(file)));
        return kUnusable;
    }
    const std::string message = checkSyntax(file);
    if (message.empty()) {
        if (verbosity() != Verbosity::Quiet) printLine(fmt::format("{}: ok", printable(file)));
        return kAllGood;
    }
    if (message.starts_with(kCouldNotOpen)) {
        reportError(fmt::format("{}: {}", printable(file), whyNotOpened(file)));
        return kUnusable;
    }
    printLine(fmt::format("{}: {}", printable(file), shownLines(message)));
    return kShortcoming;
}

bool isFolder(const std::string& name)
{
    std::error_code failure;
    return fs::is_directory(name, failure);
}

int askEngineForAll(const std::vector<std::string>& names)
{
    int exitCode = kAllGood;
    for (const std::string& name : names) {
        std::vector<fs::path> files = {name};
        if (isFolder(name)) files = mappingFilesOf(findMappingsFolder(name));
        for (const fs::path& file : files) exitCode = std::max(exitCode, askEngine(file.native()));
    }
    return exitCode;
}

/// Runs a step; what it cannot read is reported and noted.
template <typename Step>
void reading(CheckRun& run, Step step)
{
    try {
        step();
    } catch (const FileError& error) {
        reportError(error.what());
        run.unreadable.emplace_back(error.what());
    }
}

CheckedFiles checkFolder(const std::string& name, const CheckSwitches& switches, CheckRun& run)
{
    CheckedFiles part;
    reading(run, [&] {
        const fs::path folder = findMappingsFolder(name);
        for (const fs::path& file : mappingFilesOf(folder))
            reading(run, [&] { part.files.push_back(readRuleFile(file)); });
        part.findings = lintTogether(folder, part.files, switches);
    });
    return part;
}

CheckedFiles checkFile(const std::string& name, const CheckSwitches& switches, CheckRun& run)
{
    CheckedFiles part;
    reading(run, [&] { part.files.push_back(readRuleFile(name)); });
    part.findings = lintAlone(part.files, switches);
    return part;
}

void printGoodFiles(const CheckRun& run)
{
    for (const CheckedFiles& part : run.parts) {
        for (const RuleFile& file : part.files) {
            if (std::ranges::find(part.findings, &file, &Finding::file) == part.findings.end())
                printLine(fmt::format("{}: ok", printable(file.path.native())));
        }
    }
}

void printRun(const CheckRun& run, const CheckOptions& options)
{
    if (options.format == "json") {
        printLine(findingsAsJson(run));
    } else if (options.format == "sarif") {
        printLine(findingsAsSarif(run));
    } else {
        const std::size_t width = outputWidth();
        printFindings(run, usesColor(options.color), width == 0 ? kDefaultWidth : width);
        if (verbosity() != Verbosity::Quiet) printGoodFiles(run);
    }
}

int listWarnings()
{
    for (const CheckInfo& info : kChecks) {
        const char* kind = info.severity == Severity::Error ? "error" : info.isDefault ? "warning" : "off";
        printSwitch(info.name, kind, info.sees);
    }
    return kAllGood;
}

CheckSwitches switchesOf(const std::vector<std::string>& warnings, CheckRun& run)
{
    CheckSwitches switches;
    for (const std::string& warning : warnings) {
        if (warning == "error") run.warningsAreErrors = true;
        else if (warning == "no-error") run.warningsAreErrors = false;
        else if (!switches.set(warning))
            throw CLI::ValidationError("-W" + warning,
                                       "no warning of that name; errors cannot be switched (\"kxmap check "
                                       "--list-warnings\" lists both)");
    }
    return switches;
}

int check(CheckOptions options)
{
    if (options.listsWarnings) return listWarnings();
    if (options.asksEngine && options.format != "text")
        throw CLI::ValidationError("--format", "the engine's check has one form, its own text");
    CheckRun run;
    const CheckSwitches switches = switchesOf(options.warnings, run);
    if (!options.mappingsFolder.empty()) options.names.push_back(findMappingsFolder(options.mappingsFolder).native());
    if (options.names.empty()) {
        if (std::getenv("DICOM_VAR") == nullptr)
            throw CLI::RequiredError("FILE or DIR, or the environment variable DICOM_VAR,");
        options.names.push_back(findMappingsFolder("").native());
    }
    if (options.asksEngine) return askEngineForAll(options.names);

    for (const std::string& name : options.names)
        run.parts.push_back(isFolder(name) ? checkFolder(name, switches, run) : checkFile(name, switches, run));
    printRun(run, options);
    if (!run.unreadable.empty()) return kUnusable;
    return run.countOf(Severity::Error) + run.countOf(Severity::Warning) == 0 ? kAllGood : kShortcoming;
}

} // namespace

void addCheck(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand(
        "check", "Check mapping files: the lines that the engine drops, and rules that hardly mean what they say");
    const auto options = std::make_shared<CheckOptions>();
    command->add_option(
        "FILE", options->names,
        "Mapping files; folders of them, which are looked at as a server has them (default: \"mappings\" "
        "below DICOM_VAR)");
    command->add_option("--mappings", options->mappingsFolder, "A folder of them, as other commands name it")
        ->type_name("DIR");
    addSwitchOptions(*command, options->warnings, options->listsWarnings,
                     "-WNAME and -Wno-NAME switch a warning on and off, -Wall and -Wno-all every one of them; -Werror "
                     "makes errors of them");
    command->add_option("--format", options->format, "How findings are written: text, json or sarif")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json", "sarif"}).description(""));
    addColorOption(*command, options->color);
    command->add_flag("--engine", options->asksEngine,
                      "Say what the engine's own syntax check says: the first bad line of each file");
    command->footer("Findings go to standard output; good files are named with --verbose only.\n"
                    "Exit codes: 0 nothing found, 1 errors or warnings, 2 a file could not be read, or usage error.");
    command->callback([=, &exitCode] { exitCode = check(*options); });
}

} // namespace kxtool
