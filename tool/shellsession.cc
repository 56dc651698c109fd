// SPDX-License-Identifier: BSD-3-Clause
// Rules come and go by applying all of them again to a copy of the dataset as it was read.
#include "tool/shellsession.h"

#include "tool/output.h"
#include "tool/replacement.h"
#include "tool/table.h"

#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>

#include <algorithm>
#include <fmt/format.h>
#include <stdexcept>
#include <tuple>

namespace kxtool {
namespace {

constexpr const char* kRulesName = "shell"; // where rules stand, in messages

std::string withoutFeed(std::string text)
{
    if (text.ends_with('\n')) text.pop_back();
    return text;
}

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

// As the engine has it: the text ends at a NUL, and "\r" and the like are blanks.
RuleLine parseExpression(std::string_view expression, unsigned line)
{
    RuleLine rule;
    rule.kind = RuleLine::Kind::Rule;
    rule.line = line;
    rule.text = expression.substr(0, expression.find('\0'));
    rule.target = std::make_unique<LVTempVar>(""); // no rule can name it
    rule.expression = rule.trace.parse(rule.text.c_str());
    if (!rule.expression) throw LineError(withoutFeed(rule.trace.message), rule.text, rule.trace.fault);
    return rule;
}

RuleLine parseRule(std::string_view line, unsigned number)
{
    RuleFile read = readRuleText(line, kRulesName);
    if (read.lines.size() != 1) throw LineError("Longer than a line of a mapping file may be", line.substr(0, 60), {});
    RuleLine rule = std::move(read.lines.front());
    rule.line = number;
    if (rule.kind == RuleLine::Kind::Rule) return rule;
    if (!rule.target) {
        const std::string message = rule.leftMessage.empty() ? "No target that a rule can have" : rule.leftMessage;
        throw LineError(message.substr(0, message.find('\n')), rule.text, {0, rule.equals});
    }
    const kxmap::Span& fault = rule.trace.fault;
    throw LineError(withoutFeed(rule.trace.message), rule.text,
                    {fault.begin + rule.rightBegin(), fault.end + rule.rightBegin()});
}

} // namespace

LineError::LineError(std::string_view message, std::string_view text, kxmap::Span fault)
{
    const std::size_t begin = std::min(fault.begin, text.size());
    const std::size_t end = std::clamp(fault.end, begin, text.size());
    const std::size_t indent = displayWidth(shownUtf8(text.substr(0, begin)));
    const std::size_t width = displayWidth(shownUtf8(text.substr(begin, end - begin)));
    text_ = fmt::format("{}\n  {}\n  {}{}", shownUtf8(message), shownUtf8(text), std::string(indent, ' '),
                        std::string(std::max<std::size_t>(width, 1), '^'));
}

ShellSession::ShellSession(const std::filesystem::path& file)
{
    rules_.path = kRulesName;
    if (file.empty()) empty_ = std::make_unique<DcmDataset>();
    else file_ = std::make_unique<DicomFile>(file);
    session_.dataset = file_ ? &file_->dataset() : empty_.get();
    if (session_.dataset->loadAllDataIntoMemory().bad()) throw FileError(file, "its large values cannot be read");
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

void ShellSession::applyAll()
{
    DcmDataset& dataset = *session_.dataset;
    restore(dataset, *original_);
    session_ = {};
    session_.dataset = &dataset;
    recording_ = {};
    gseed = 0;
    rules_.lines.reserve(rules_.lines.size() + 1); // evaluate() adds a line without moving those recorded
    recording_.run({&rules_}, session_, true);
}

Evaluation ShellSession::evaluate(std::string_view expression)
{
    rules_.lines.push_back(parseExpression(expression, static_cast<unsigned>(rules_.lines.size() + 1)));
    DcmDataset dataset(*original_);
    MappingSession session;
    session.dataset = &dataset;
    Recording recording;
    gseed = 0;
    recording.run({&rules_}, session, false);
    rules_.lines.pop_back();
    const Step& step = recording.steps().back();
    return {step.value, step.messages, step.failure};
}

const Step& ShellSession::addRule(std::string_view line)
{
    rules_.lines.push_back(parseRule(line, static_cast<unsigned>(rules_.lines.size() + 1)));
    applyAll();
    return recording_.steps().back();
}

std::optional<std::string> ShellSession::undo()
{
    if (rules_.lines.empty()) return std::nullopt;
    std::string text = std::move(rules_.lines.back().text);
    rules_.lines.pop_back();
    applyAll();
    return text;
}

void ShellSession::save(const std::filesystem::path& target)
{
    if (!file_) throw FileError(target, "there is nothing to save: the shell was started without a file");
    // What an earlier save has put there for other UIDs may not stay.
    if (DcmFileFormat* format = formatAround(*session_.dataset); format != nullptr && originalMeta_)
        *format->getMetaInfo() = *originalMeta_;
    Replacement replacement(target);
    file_->writeTo(replacement);
    replacement.commit();
}

} // namespace kxtool
