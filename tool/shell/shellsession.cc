// SPDX-License-Identifier: BSD-3-Clause
// A rule is taken back by applying all others again to a copy of the dataset as it was read.
#include "tool/shell/shellsession.h"

#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/console/utf8.h"
#include "tool/lint/lint.h"
#include "tool/system/replacement.h"

#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <tuple>

namespace kxtool {
namespace {

constexpr const char* kRulesName = "shell"; // where rules stand, in messages

DcmFileFormat* formatAround(DcmDataset& dataset)
{
    return dynamic_cast<DcmFileFormat*>(dataset.getParent());
}

// DCMTK's own assignment takes the dataset out of the file that holds it.
void restore(DcmDataset& dataset, DcmDataset& original)
{
    std::ignore = dataset.clear();
    for (unsigned long index = 0; index < original.card(); ++index) {
        std::unique_ptr<DcmElement> copy(static_cast<DcmElement*>(original.getElement(index)->clone()));
        if (dataset.insert(copy.get()).bad()) throw std::runtime_error("the dataset could not be copied");
        std::ignore = copy.release(); // the dataset owns it now
    }
}

using LintLine = void (*)(const Site&);

std::vector<Finding> findingsOf(const RuleLine& line, LintLine lint)
{
    static const RuleFile file{kRulesName, {}};
    Findings findings{CheckSwitches()};
    lint({file, line, findings});
    return findings.take();
}

/// @param line a bad one. @param prefix what of its text was not typed.
LineError explained(const RuleLine& line, std::size_t prefix = 0)
{
    const std::string_view typed = std::string_view(line.text).substr(prefix);
    const std::vector<Finding> findings = findingsOf(line, lintError);
    if (findings.empty()) return {line.message(), typed, {}};
    const Finding& first = findings.front();
    return {first.message, typed, {first.span.begin - prefix, first.span.end - prefix}, first.hint};
}

constexpr std::string_view kSomeTarget = "$(x)="; // an expression is read, and judged, as if it were a rule's

// As the engine has it: the text ends at a NUL, and "\r" and the like are blanks.
RuleLine readExpression(std::string_view expression)
{
    RuleLine line;
    line.text = std::string(kSomeTarget) + std::string(expression.substr(0, expression.find('\0')));
    line.equals = kSomeTarget.size() - 1;
    line.target = std::make_unique<LVTempVar>("x");
    line.expression = line.trace.parse(line.right().data()); // the text's end is the line's
    line.kind = line.expression ? RuleLine::Kind::Rule : RuleLine::Kind::Bad;
    return line;
}

RuleLine parseExpression(std::string_view expression)
{
    if (expression.find_first_not_of(" \t\r\n") == std::string_view::npos)
        throw LineError("there is no expression", {}, {}, "\"\" is the empty text, NULL() the absent value");
    RuleLine line = readExpression(expression);
    if (!line.expression) throw explained(line, kSomeTarget.size());
    return line;
}

RuleLine parseRule(std::string_view line, unsigned number)
{
    RuleFile read = readRuleText(line, kRulesName);
    if (read.lines.size() != 1) throw LineError("Longer than a line of a mapping file may be", line.substr(0, 60), {});
    RuleLine rule = std::move(read.lines.front());
    rule.line = number;
    if (rule.kind != RuleLine::Kind::Rule) throw explained(rule);
    return rule;
}

} // namespace

LineError::LineError(std::string_view message, std::string_view text, kxmap::Span fault, std::string_view hint)
{
    const std::size_t begin = std::min(fault.begin, text.size());
    const std::size_t end = std::clamp(fault.end, begin, text.size());
    const std::size_t indent = displayWidth(shownUtf8(text.substr(0, begin)));
    const std::size_t width = displayWidth(shownUtf8(text.substr(begin, end - begin)));
    text_ = shownUtf8(message);
    if (!text.empty())
        text_ += fmt::format("\n  {}\n  {}{}", shownUtf8(text), std::string(indent, ' '),
                             std::string(std::max<std::size_t>(width, 1), '^'));
    if (!hint.empty()) text_ += "\n  note: " + shownUtf8(hint);
}

ShellSession::ShellSession(const std::filesystem::path& file) : source_{kRulesName, {}}
{
    if (file.empty()) empty_ = std::make_unique<DcmDataset>();
    else file_ = std::make_unique<DicomFile>(file);
    session_.dataset = file_ ? &file_->dataset() : empty_.get();
    if (file_) file_->requireUnchanged(); // all of it is in memory now
    original_ = std::make_unique<DcmDataset>(*session_.dataset);
    if (DcmFileFormat* format = formatAround(*session_.dataset))
        originalMeta_ = std::make_unique<DcmMetaInfo>(*format->getMetaInfo());
    applyAll();
}

ShellSession::~ShellSession() = default;

bool ShellSession::looksLikeRule(std::string_view line)
{
    const std::size_t equals = line.find('=');
    return equals != std::string_view::npos && line.substr(0, equals).find('"') == std::string_view::npos;
}

std::vector<std::string> ShellSession::notesOn(std::string_view expression)
{
    std::vector<std::string> notes;
    const RuleLine line = readExpression(expression);
    if (line.kind != RuleLine::Kind::Rule) return notes;
    const RuleFile read = looksLikeRule(expression) ? readRuleText(expression, kRulesName) : RuleFile();
    if (!read.lines.empty() && read.lines.front().target)
        return {fmt::format("this is a rule, not an expression; its right side alone is {}",
                            shownUtf8(read.lines.front().right()))};
    for (const Finding& finding : findingsOf(line, lintRightSide))
        notes.push_back(shownUtf8(finding.message) + (finding.hint.empty() ? "" : "; " + shownUtf8(finding.hint)));
    return notes;
}

void ShellSession::applyAll()
{
    DcmDataset& dataset = *session_.dataset;
    restore(dataset, *original_);
    session_ = {};
    session_.dataset = &dataset;
    gseed = 0;
    recording_.begin(session_);
    for (const RuleLine& rule : rules_) recording_.apply(source_, rule);
}

Evaluation ShellSession::evaluate(std::string_view expression)
{
    const RuleLine line = parseExpression(expression);
    const unsigned seed = gseed;
    Evaluation evaluation = kxtool::evaluate(*line.expression, session_);
    gseed = seed;
    return evaluation;
}

const Step& ShellSession::addRule(std::string_view line)
{
    rules_.push_back(parseRule(line, static_cast<unsigned>(rules_.size() + 1)));
    recording_.apply(source_, rules_.back());
    return recording_.steps().back();
}

std::optional<std::string> ShellSession::undo()
{
    if (rules_.empty()) return std::nullopt;
    std::string text = std::move(rules_.back().text);
    rules_.pop_back();
    applyAll();
    return text;
}

void ShellSession::save(const std::filesystem::path& target)
{
    if (!file_) throw FileError(target, "there is nothing to save: the shell was started without a file");
    // What an earlier save has put there for other UIDs may not stay.
    if (DcmFileFormat* format = formatAround(*session_.dataset); format != nullptr && originalMeta_)
        *format->getMetaInfo() = *originalMeta_;
    Replacement replacement(target, file_->path());
    warnOfDropped(target, file_->writeTo(replacement));
    std::error_code failure;
    const bool isSource = std::filesystem::equivalent(target, file_->path(), failure);
    if (isSource && !hasReplacedSource_) file_->requireUnchanged();
    replacement.commit();
    hasReplacedSource_ = hasReplacedSource_ || isSource;
    if (!replacement.lost().empty())
        reportWarning(
            fmt::format("{}: could not keep its {}", printable(target.native()), fmt::join(replacement.lost(), ", ")));
    if (replacement.otherNames() > 0)
        reportWarning(
            fmt::format("{}: has other names (hard links); the old content stays there", printable(target.native())));
}

} // namespace kxtool
