// SPDX-License-Identifier: BSD-3-Clause
// kxmap's entry: the options that all commands share, and the way to each command. The locale stays "C", as in a server
// that does not ask for another.
#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/rules/lintnames.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <tuple>
#include <unistd.h>

namespace {

using namespace kxtool;

constexpr CommandAdder* kCommands[] = {addApply, addCheck,     addTry,  addEval,
                                       addShell, addFunctions, addList, addConformance};

/// @return what to say of a command line that names none of the commands; empty where it names nothing at all.
std::string whyNoCommand(CLI::App& app, int argc, char** argv)
{
    if (argc < 2) return {};
    const auto isOption = [](const char* word) { return *word == '-'; };
    const char* const* const word = std::find_if_not(argv + 1, argv + argc, isOption);
    if (word == argv + argc) return {};
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

int parseAndRun(int argc, char** argv)
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
        app.parse(argc, argv);
        return exitCode;
    } catch (const CLI::Success& request) { // --help, --version
        app.exit(request);
        return kAllGood;
    } catch (const CLI::ParseError& error) {
        const std::string why = app.get_subcommands().empty() ? whyNoCommand(app, argc, argv) : std::string();
        reportError(fmt::format("{}\nRun \"kxmap --help\" for help.", why.empty() ? error.what() : why));
        return kUnusable;
    }
}

// Where one of them was closed, a file opened later would get its number, and what is printed.
void reserveStandardDescriptors()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0) // to be used the wrong way, so that it fails as if closed
            std::ignore = open("/dev/null", descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

int run(int argc, char** argv)
{
    try {
        return finishOutput(parseAndRun(argc, argv));
    } catch (const std::exception& error) {
        reportError(error.what());
        return kUnusable;
    }
}

} // namespace

int main(int argc, char** argv)
{
    reserveStandardDescriptors();
    std::signal(SIGXFSZ, SIG_IGN); // a file over the size limit is then a write error with a reason
    const int exitCode = run(argc, argv);
#ifdef NDEBUG
    // DCMTK takes its dictionary down entry by entry, which takes a third of a short run; leak checkers, which look when
    // that is done, find it in builds for debugging.
    std::fflush(nullptr);
    std::_Exit(exitCode);
#else
    return exitCode;
#endif
}
