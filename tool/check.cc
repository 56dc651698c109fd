// SPDX-License-Identifier: BSD-3-Clause
// kxmap check: what the library's syntax check says of mapping files.
#include "tool/commands.h"
#include "tool/exitcodes.h"
#include "tool/output.h"

#include "kxmap.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {
namespace {

constexpr std::string_view kCouldNotOpen = "Coercion couldn't open file: ";

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
    const auto status = std::filesystem::status(file, failure);
    if (failure) return failure.message();
    if (std::filesystem::is_directory(status)) return systemReason(EISDIR);
    return std::filesystem::is_regular_file(status) ? systemReason(EACCES) : "not a regular file";
}

int checkFile(const std::string& file)
{
    std::string message = checkSyntax(file);
    if (message.empty()) {
        if (verbosity() != Verbosity::Quiet) printLine(fmt::format("{}: ok", file));
        return kAllGood;
    }
    if (message.starts_with(kCouldNotOpen)) {
        reportError(fmt::format("{}: {}", file, whyNotOpened(file)));
        return kUnusable;
    }
    printLine(fmt::format("{}: {}", file, message));
    return kShortcoming;
}

} // namespace

void addCheck(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("check", "Check the syntax of mapping files, up to the first bad line");
    const auto files = std::make_shared<std::vector<std::string>>();
    command->add_option("FILE", *files, "Mapping files")->required();
    command->footer("Findings go to standard output; good files are named with --verbose only.\n"
                    "Exit codes: 0 all files good, 1 a file has a fault, 2 a file could not be read, or usage error.");
    command->callback([=, &exitCode] {
        for (const std::string& file : *files) exitCode = std::max(exitCode, checkFile(file));
    });
}

} // namespace kxtool
