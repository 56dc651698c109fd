// SPDX-License-Identifier: BSD-3-Clause
// kxmap eval: the value of one expression, with a file or without one.
#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/record/runreport.h"
#include "tool/rules/ruleoptions.h"
#include "tool/shell/shellsession.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <memory>
#include <string>

namespace kxtool {
namespace {

struct EvalOptions {
    std::string expression;
    std::string file;
    bool isRaw = false;
};

int evaluate(const EvalOptions& options)
{
    ShellSession session(options.file);
    const Evaluation result = session.evaluate(options.expression);
    const CharacterSet set = CharacterSet::of(session.dataset());
    for (const std::string& note : ShellSession::notesOn(options.expression)) reportError("note: " + note);
    for (const std::string& message : result.messages) reportError(shownUtf8(set.readable(message)));
    if (!result.failure.empty()) {
        reportError(shownUtf8(result.failure));
        return kShortcoming;
    }
    if (!result.value) {
        reportError("NULL");
        return kShortcoming;
    }
    if (!result.unseen.empty()) reportError("note: " + noteOnUnseen(result.unseen));
    printLine(options.isRaw ? *result.value : shownUtf8(set.readable(*result.value)));
    return kAllGood;
}

int runEval(const EvalOptions& options)
{
    try {
        requireDictionary();
        return evaluate(options);
    } catch (const std::exception& error) { // LineError, FileError, no dictionary
        reportError(error.what());
        return kUnusable;
    }
}

} // namespace

void addEval(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("eval", "Print what an expression comes to");
    const auto options = std::make_shared<EvalOptions>();
    command->add_flag("--raw", options->isRaw, "Print the value's bytes as they are, in the file's character set");
    command->add_option("EXPR", options->expression, "The right-hand side of a rule")->type_name("")->required();
    command->add_option("FILE", options->file, "A DICOM file; without one, no element is there")->type_name("");
    command->footer(
        "The value is shown in UTF-8, bytes that do not show as \\x1B. It is what rules see: numbers, bytes and\n"
        "sequences are empty texts to them, and a note on standard error tells what such an element holds.\n"
        "Other notes there are what \"kxmap check\" would say of the expression.\n\n"
        "Examples:\n"
        "  kxmap eval 'toUpper((0010,0010))' image.dcm\n"
        "  kxmap eval 'add(1000,7)'\n\n"
        "Exit codes: 0 a value was printed; 1 NULL; 2 no expression, the file could not be read, or usage\n"
        "error.");
    command->callback([=, &exitCode] { exitCode = runEval(*options); });
}

} // namespace kxtool
