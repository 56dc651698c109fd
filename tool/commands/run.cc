// SPDX-License-Identifier: BSD-3-Clause
// One call of kxmap: the options that all commands share, and the way to each command.
#include "tool/commands/run.h"

#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/rules/lintnames.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <string_view>

namespace kxtool {
namespace {

constexpr CommandAdder* kCommands[] = {addApply, addCheck,     addTry,  addEval,
                                       addShell, addFunctions, addList, addConformance};

/// @return what to say of a command line that names none of the commands; empty where it names nothing at all.
std::string whyNoCommand(CLI::App& app, std::span<const char* const> arguments)
{
    const auto isOption = [](const char* word) { return *word == '-'; };
    const auto word = std::find_if_not(arguments.begin() + 1, arguments.end(), isOption);
    if (word == arguments.end()) return {};
    std::string best;
    std::size_t least = std::max<std::size_t>(1, std::string_view(*word).size() / 3) + 1;
    for (const CLI::App* command : app.get_subcommands(nullptr)) {
        const std::size_t distance = editDistance(*word, command->get_name());
        if (distance >= least) continue;
        least = distance;
        best = command->get_name();
    }
    return fmt::format("there is no command {}{}", shownQuoted(*word),
                       best.empty() ? "" : fmt::format("; did you mean \"{}\"?", best));
}

// A full disk must not pass for success because it was met at the last byte.
int finishOutput(int exitCode)
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return exitCode;
    reportError(fmt::format("standard output: {}", systemReason(errno)));
    return kUnusable;
}

int parseAndRun(std::span<const char* const> arguments)
{
    int exitCode = kAllGood;
    CLI::App app("Rewrites attributes of DICOM files by the rules of mapping files.", "kxmap");
    app.set_version_flag("--version", "kxmap " KXDCM_VERSION);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.get_formatter()->label("Subcommands", "Commands");
    app.require_subcommand(1);
    app.fallthrough(); // the shared options may stand behind the command
    bool isVerbose = false;
    bool isDebug = false;
    app.add_flag("-v,--verbose", isVerbose, "Say what is done, and show the libraries' own messages");
    app.add_flag("-d,--debug", isDebug, "Show every step of every rule as well");
    // Commands run as the last part of parsing; the loggers are set by then.
    app.parse_complete_callback([&isVerbose, &isDebug] {
        setVerbosity(isDebug ? Verbosity::Debug : isVerbose ? Verbosity::Verbose : Verbosity::Quiet);
    });
    app.footer("\"kxmap COMMAND --help\" explains a command.\n"
               "Environment: DICOM_VAR, the folder that holds \"mappings\"; DCMDICTPATH, DCMTK's data dictionary.");
    for (CommandAdder* add : kCommands) add(app, exitCode);
    try {
        app.parse(static_cast<int>(arguments.size()), arguments.data());
        return exitCode;
    } catch (const CLI::Success& request) { // --help, --version
        app.exit(request);
        return kAllGood;
    } catch (const CLI::ParseError& error) {
        const std::string why = app.get_subcommands().empty() ? whyNoCommand(app, arguments) : std::string();
        reportError(fmt::format("{}\nRun \"kxmap --help\" for help.", why.empty() ? error.what() : why));
        return kUnusable;
    }
}

} // namespace

int runKxmap(std::span<const char* const> arguments)
{
    try {
        return finishOutput(parseAndRun(arguments));
    } catch (const std::exception& error) {
        reportError(error.what());
        return kUnusable;
    }
}

} // namespace kxtool
