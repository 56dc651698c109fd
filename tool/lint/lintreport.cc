// SPDX-License-Identifier: BSD-3-Clause
// Findings in text: the place, what it is, the line with a caret, and what to write instead.
#include "tool/lint/lintreport.h"
#include "tool/console/output.h"
#include "tool/console/table.h"
#include "tool/console/utf8.h"

#include <algorithm>
#include <fmt/format.h>

namespace kxtool {
namespace {

constexpr std::size_t kGutter = 8; // "  123 | "
constexpr std::string_view kCut = "...";

bool continuesCharacter(std::string_view text, std::size_t at)
{
    return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80;
}

/// @return where the character of UTF-8 begins that the byte is a part of; the byte itself where it is part of none.
std::size_t aligned(std::string_view text, std::size_t at)
{
    at = std::min(at, text.size());
    std::size_t begin = at;
    for (int steps = 0; steps < 3 && begin > 0 && continuesCharacter(text, begin); ++steps) --begin;
    return begin + utf8SizeAt(text.substr(begin)) > at ? begin : at;
}

/// @return whether a text is what a terminal shows of it, a column a byte: most are.
bool isPlain(std::string_view text)
{
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c < '\x7F'; });
}

std::size_t widthOf(std::string_view text)
{
    return isPlain(text) ? text.size() : displayWidth(text);
}

std::string shownLine(std::string_view text)
{
    return isPlain(text) ? std::string(text) : shownUtf8(text);
}

/// @return the text fit for a terminal, tabs as blanks.
std::string shown(std::string_view text)
{
    if (isPlain(text)) return std::string(text);
    constexpr std::string_view kTab = "    ";
    std::string spread;
    for (const char c : text) {
        if (c == '\t') spread += kTab;
        else spread += c;
    }
    return shownUtf8(spread);
}

struct Excerpt {
    std::string line;
    std::string below; // blanks and the caret
};

/// Cuts a window out of a line, so that the span is seen with what is around it.
Excerpt excerptOf(const Finding& finding, std::size_t room)
{
    const std::string_view text = finding.line->text;
    const std::size_t begin = aligned(text, finding.span.begin);
    std::size_t end = std::max(finding.span.end, begin + 1);
    while (continuesCharacter(text, end)) ++end;

    std::size_t from = 0;
    std::size_t to = text.size();
    // A very long text needs no measuring, which would take its length for each of its findings.
    if (text.size() > 4 * room || widthOf(shown(text)) > room) {
        from = begin > room / 2 ? aligned(text, begin - room / 2) : 0;
        to = aligned(text, from + room - 2 * kCut.size());
    }
    const bool begins = from == 0 && finding.line->column == 0;
    const bool ends = to == text.size() && !finding.line->isCut;
    const std::string lead = std::string(begins ? "" : kCut) + shown(text.substr(from, begin - from));
    const std::string marked = begin < to ? shown(text.substr(begin, std::min(end, to) - begin)) : "";
    const std::string rest = end < to ? shown(text.substr(end, to - end)) : "";
    const std::size_t width = std::max<std::size_t>(widthOf(marked), 1);
    return {lead + marked + rest + std::string(ends ? "" : kCut),
            std::string(widthOf(lead), ' ') + '^' + std::string(width - 1, '~')};
}

std::string counted(std::size_t count, const char* what)
{
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string placeOf(const Finding& finding)
{
    const std::string path = shownLine(finding.path().native());
    if (finding.line == nullptr) return path;
    return fmt::format("{}:{}:{}", path, finding.line->line, finding.line->column + finding.span.begin + 1);
}

class TextReport {
public:
    TextReport(const CheckRun& run, bool isColored, std::size_t width)
        : run_(run), isColored_(isColored), room_(std::max<std::size_t>(width, 40) - kGutter)
    {
    }

    void print(const Finding& finding) const
    {
        const bool isError = run_.severityOf(finding) == Severity::Error;
        const Color color = isError ? Color::Red : Color::Yellow;
        printLine(fmt::format("{} {} {} {}", paint(placeOf(finding) + ':', Color::Bold),
                              paint(isError ? "error:" : "warning:", color),
                              paint(shownLine(finding.message), Color::Bold),
                              paint(fmt::format("[{}]", infoOf(finding.check).name), Color::Dim)));
        if (finding.line != nullptr) {
            const Excerpt excerpt = excerptOf(finding, room_);
            printLine(paint(fmt::format("{:>5} | ", finding.line->line), Color::Dim) + excerpt.line);
            printLine(paint("      | ", Color::Dim) + paint(excerpt.below, color));
        }
        if (!finding.hint.empty())
            printLine(fmt::format("      {} {}", paint("= note:", Color::Cyan), shownLine(finding.hint)));
        printLine("");
    }

    void printSummary() const
    {
        const std::size_t errors = run_.countOf(Severity::Error);
        const std::size_t warnings = run_.countOf(Severity::Warning);
        std::string found;
        if (errors > 0) found = paint(counted(errors, "error"), Color::Red);
        if (errors > 0 && warnings > 0) found += " and ";
        if (warnings > 0) found += paint(counted(warnings, "warning"), Color::Yellow);
        printLine(fmt::format("{} in {}", found, counted(run_.fileCount(), "file")));
    }

private:
    std::string paint(std::string_view text, Color color) const { return colored(text, color, isColored_); }

    const CheckRun& run_;
    bool isColored_;
    std::size_t room_;
};

} // namespace

std::size_t CheckRun::fileCount() const
{
    std::size_t count = 0;
    for (const CheckedFiles& part : parts) count += part.files.size();
    return count;
}

std::size_t CheckRun::countOf(Severity severity) const
{
    const auto judge = [this](const Finding& finding) { return severityOf(finding); };
    std::size_t count = 0;
    for (const CheckedFiles& part : parts)
        count += static_cast<std::size_t>(std::ranges::count(part.findings, severity, judge));
    return count;
}

void printFindings(const CheckRun& run, bool isColored, std::size_t width)
{
    const TextReport report(run, isColored, width);
    bool isAny = false;
    for (const CheckedFiles& part : run.parts) {
        for (const Finding& finding : part.findings) report.print(finding);
        isAny = isAny || !part.findings.empty();
    }
    if (isAny) report.printSummary();
}

} // namespace kxtool
