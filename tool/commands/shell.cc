// SPDX-License-Identifier: BSD-3-Clause
// kxmap shell: expressions print, rules apply, and commands begin with ":".
#include "tool/commands/commands.h"
#include "tool/console/exitcodes.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/console/text.h"
#include "tool/record/runreport.h"
#include "tool/rules/ruleoptions.h"
#include "tool/shell/shellcompletion.h"
#include "tool/shell/shelleditor.h"
#include "tool/shell/shellsession.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace kxtool {
namespace {

constexpr const char* kBlanks = " \t";

constexpr std::string_view kHelp =
    "EXPRESSION      print what it comes to\n"
    "TARGET=EXPR     apply a rule, as a line of a mapping file\n"
    ":complete TEXT  what Tab offers behind TEXT\n"
    ":diff           what the rules changed, and what they made wrong\n"
    ":help           this\n"
    ":quit           leave; so does the end of the input\n"
    ":rules          the rules so far, fit for a mapping file\n"
    ":save FILE      write the file with its changes, whole or not at all; replaces an older one\n"
    ":save! FILE     the same, also in place of the file that was read\n"
    ":trace on|off   show every rule's value\n"
    ":undo           take the last rule back\n"
    ":vars           variables and custom fields";

struct ShellOptions {
    std::string file;
    ColorMode color = ColorMode::Auto;
};

void printLines(const std::string& lines)
{
    if (!lines.empty()) printLine(std::string_view(lines).substr(0, lines.size() - 1));
}

class Shell {
public:
    explicit Shell(const ShellOptions& options)
        : file_(options.file), session_(options.file), look_{outputWidth(), usesColor(options.color)},
          lines_(LineSource::make([this](std::string_view line) { return complete(line, session_.session()); }))
    {
    }

    int run()
    {
        if (lines_->isInteractive()) printLine("Expressions print, rules apply; :help tells the rest.");
        while (!isDone_) {
            std::fflush(stdout);
            const auto line = lines_->next();
            if (!line) break;
            try {
                handle(*line);
            } catch (const std::exception& error) { // LineError, FileError
                reportError(error.what());
                hasFailed_ = true;
            }
        }
        return hasFailed_ && !lines_->isInteractive() ? kShortcoming : kAllGood;
    }

private:
    void handle(const std::string& line)
    {
        const std::string_view words = trimmed(line, kBlanks);
        if (words.empty() || words.front() == '#') return;
        if (words.front() == ':') command(words);
        else if (ShellSession::looksLikeRule(line)) apply(line);
        else evaluate(line);
    }

    void evaluate(const std::string& line)
    {
        const Evaluation result = session_.evaluate(line);
        for (const std::string& note : ShellSession::notesOn(line)) printNote(note);
        for (const std::string& message : result.messages) printMessage(message);
        if (!result.failure.empty()) throw std::runtime_error(shownUtf8(result.failure));
        if (result.value) printLine(RunReport::shown(result.value, CharacterSet::of(session_.dataset())));
        else printLine(colored("NULL", Color::Dim, look_.isColored));
        if (!result.unseen.empty()) printNote(noteOnUnseen(result.unseen));
    }

    void apply(const std::string& line)
    {
        const Step& step = session_.addRule(line);
        const RunReport report(session_.recording(), session_.dataset(), {}, step.number);
        if (showsTrace_) {
            printLines(report.trace(look_));
        } else {
            const CharacterSet set = CharacterSet::of(session_.dataset());
            for (const std::string& message : step.messages) printMessage(message);
            const std::string name = placeName(step.place);
            std::string text = fmt::format("{} {}{}{}", effectName(step.effect), shownUtf8(step.place.name),
                                           name.empty() ? "" : " ", name);
            if (step.effect <= Effect::Deleted)
                text +=
                    fmt::format(": {} -> {}", RunReport::shown(step.before, set), RunReport::shown(step.after, set));
            printLine(text);
        }
        printLines(report.warnings(look_));
        if (!step.failure.empty()) {
            const std::string failure = step.failure;
            session_.undo(); // no later rule would be applied
            throw std::runtime_error(shownUtf8(failure) + "; the rule is taken back");
        }
    }

    void command(std::string_view line)
    {
        const std::size_t end = std::min(line.find_first_of(kBlanks), line.size());
        const std::string_view name = line.substr(0, end);
        const std::string argument(trimmed(line.substr(end), kBlanks));
        if (name == ":quit") isDone_ = true;
        else if (name == ":help") printLine(kHelp);
        else if (name == ":diff") showChanges();
        else if (name == ":undo") undo();
        else if (name == ":vars") showVariables();
        else if (name == ":rules") showRules();
        else if (name == ":trace") setTrace(argument);
        else if (name == ":save" || name == ":save!") save(argument, name == ":save!");
        else if (name == ":complete") showCompletion(argument);
        else throw std::runtime_error(fmt::format("{}: no such command; :help tells them", shownUtf8(name)));
    }

    void showChanges()
    {
        const RunReport report(session_.recording(), session_.dataset());
        printLine(report.summary());
        printLines(report.changes(look_));
        printLines(report.warnings(look_));
    }

    void undo()
    {
        const auto text = session_.undo();
        if (!text) throw std::runtime_error("there is no rule to take back");
        printLine("taken back: " + shownUtf8(*text));
    }

    void showVariables()
    {
        const CharacterSet set = CharacterSet::of(session_.dataset());
        Table table({{"Name"}, {"Text", false, true}});
        const auto add = [&](const std::string& name, const std::string& text) {
            table.addRow({{shownUtf8(name)}, {RunReport::shown(text, set)}});
        };
        const MappingSession& session = session_.session();
        for (const auto& [name, text] : session.variables) add("$(" + name + ")", text);
        for (const auto& [name, text] : session.atVariables) add("$(@" + name + ")", text);
        for (const auto& [name, text] : session.customFields.fields()) add("USER(" + name + ")", text);
        printLines(table.text(look_.width, look_.isColored, 2));
    }

    void showRules()
    {
        for (const RuleLine& rule : session_.rules())
            printLine(lines_->isInteractive() ? shownUtf8(rule.text) : rule.text);
    }

    void setTrace(const std::string& argument)
    {
        if (argument != "on" && argument != "off") throw std::runtime_error(":trace takes on or off");
        showsTrace_ = argument == "on";
    }

    void save(const std::string& argument, bool mayReplaceSource)
    {
        if (argument.empty()) throw std::runtime_error(":save takes a file");
        std::error_code failure;
        if (!mayReplaceSource && std::filesystem::equivalent(argument, file_, failure))
            throw std::runtime_error(
                fmt::format("{0}: this file was read; \":save! {0}\" replaces it", shownUtf8(argument)));
        session_.save(argument);
        printLine("saved " + shownUtf8(argument));
    }

    void showCompletion(const std::string& argument)
    {
        const Completion completion = complete(argument, session_.session());
        printLine(argument.substr(0, completion.begin) + completion.text);
        for (const std::string& offer : completion.offers) printLine("  " + offer);
    }

    void printNote(const std::string& note) { printLine(colored("note: " + note, Color::Dim, look_.isColored)); }

    void printMessage(const std::string& message)
    {
        const CharacterSet set = CharacterSet::of(session_.dataset());
        printLine(colored(shownUtf8(set.readable(message)), Color::Cyan, look_.isColored));
    }

    const std::string file_;
    ShellSession session_;
    Look look_;
    std::unique_ptr<LineSource> lines_;
    bool showsTrace_ = false;
    bool isDone_ = false;
    bool hasFailed_ = false;
};

int runShell(const ShellOptions& options)
{
    try {
        requireDictionary();
        return Shell(options).run();
    } catch (const std::exception& error) { // the file, the dictionary
        reportError(error.what());
        return kUnusable;
    }
}

} // namespace

void addShell(CLI::App& app, int& exitCode)
{
    CLI::App* command = app.add_subcommand("shell", "Try expressions and rules one after the other");
    const auto options = std::make_shared<ShellOptions>();
    addColorOption(*command, options->color);
    command->add_option("FILE", options->file, "A DICOM file; without one, an empty dataset")->type_name("");
    command->footer(
        std::string(kHelp) +
        "\n\n"
        "Tab completes functions, keywords of the data dictionary (they become tags), tags, and names of\n"
        "variables and fields. Nothing is written before :save. Where standard input is no terminal, its lines\n"
        "are read without a prompt. A line with \"=\" and no quote before it is a rule.\n\n"
        "Environment: with XDG_STATE_HOME set, the history is kept in $XDG_STATE_HOME/kxmap/history; it may\n"
        "hold patients' data.\n\n"
        "Exit codes: 0; 1 when standard input is no terminal and a line failed; 2 the file could not be read,\n"
        "or usage error.");
    command->callback([=, &exitCode] { exitCode = runShell(*options); });
}

} // namespace kxtool
