// SPDX-License-Identifier: BSD-3-Clause
// The shared fixtures of the tests.
#include "support/fixture.h"

#include <dcmtk/oflog/appender.h>
#include <dcmtk/oflog/spi/logevent.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace kxtest {
namespace log4cplus = dcmtk::log4cplus;

class LogCapture::Recorder : public log4cplus::Appender {
public:
    ~Recorder() override { destructorImpl(); }
    void close() override { closed = true; }
    std::vector<LogEvent> events;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        events.push_back({event.getLogLevel(), event.getMessage().c_str(), event.getFile().c_str(), event.getLine(),
                          event.getFunction().c_str()});
    }
};

LogCapture::LogCapture(int minimumLevel)
    : recorder_(new Recorder), appender_(recorder_), levelBefore_(logger.getLogLevel()),
      additiveBefore_(logger.getAdditivity())
{
    logger.setAdditivity(false);
    logger.addAppender(appender_);
    logger.setLogLevel(minimumLevel);
}

LogCapture::~LogCapture()
{
    logger.setLogLevel(levelBefore_);
    logger.removeAppender(appender_);
    logger.setAdditivity(additiveBefore_);
}

std::vector<std::string> LogCapture::messages(int level) const
{
    std::vector<std::string> some;
    for (const LogEvent& event : events())
        if (level == 0 || event.level == level) some.push_back(event.message);
    return some;
}

const std::vector<LogEvent>& LogCapture::events() const
{
    return recorder_->events;
}

void LogCapture::clear()
{
    recorder_->events.clear();
}

StderrCapture::StderrCapture() : file_(std::tmpfile()), stderrBefore_(dup(STDERR_FILENO))
{
    if (file_ == nullptr || stderrBefore_ < 0) throw std::runtime_error("cannot capture standard error");
    std::fflush(stderr);
    dup2(fileno(file_), STDERR_FILENO);
}

StderrCapture::~StderrCapture()
{
    std::fflush(stderr);
    dup2(stderrBefore_, STDERR_FILENO);
    close(stderrBefore_);
    std::fclose(file_);
}

std::string StderrCapture::text()
{
    std::fflush(stderr);
    std::string all;
    char buffer[4096];
    off_t at = 0;
    for (ssize_t got; (got = pread(fileno(file_), buffer, sizeof buffer, at)) > 0; at += got)
        all.append(buffer, static_cast<std::size_t>(got));
    return all;
}

TempDir::TempDir()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "kxtest-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary folder");
    path_ = pattern;
}

TempDir::~TempDir()
{
    std::error_code ignored; // what cannot be removed is not this test's business
    std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::write(const std::string& relative, std::string_view bytes) const
{
    const std::filesystem::path full = path_ / relative;
    std::filesystem::create_directories(full.parent_path());
    std::ofstream out(full, std::ios::binary);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + full.string());
    return full.string();
}

std::string textOf(DcmItem& item, DcmTagKey key)
{
    DcmElement* element = nullptr;
    if (item.findAndGetElement(key, element).bad() || element == nullptr) return "-";
    char* text = nullptr;
    if (element->getString(text).bad() || text == nullptr) return "";
    return text;
}

Outcome evaluate(const char* expression, MappingSession& session)
{
    Outcome outcome;
    const std::size_t before = errorlogs.size();
    const std::unique_ptr<Expression> tree(Expression::readCfgLine(expression));
    outcome.parseErrors = errorlogs.substr(before);
    outcome.parsed = tree != nullptr;
    if (!tree) return outcome;
    Value* value = tree->getValue(session);
    outcome.isNull = value == nullptr;
    if (value == nullptr) return outcome;
    const char* text = value->getString();
    outcome.text = text != nullptr ? text : "(no text)";
    outcome.holders = value->refCount;
    if (--value->refCount == 0) delete value;
    return outcome;
}

testing::AssertionResult evaluatesTo(const char* expression, const char* expected, MappingSession& session)
{
    const Outcome got = evaluate(expression, session);
    if (!got.parsed) return testing::AssertionFailure() << expression << " does not parse: " << got.parseErrors;
    if (!got.isNull && got.holders != 1)
        return testing::AssertionFailure() << expression << " leaves " << got.holders << " holders";
    if (got.isNull == (expected == nullptr) && (got.isNull || got.text == expected)) return testing::AssertionSuccess();
    return testing::AssertionFailure() << expression << " gives " << (got.isNull ? "NULL" : '"' + got.text + '"')
                                       << ", not " << (expected ? '"' + std::string(expected) + '"' : "NULL");
}

testing::AssertionResult evaluatesTo(const char* expression, const char* expected)
{
    const auto dataset = sampleDataset();
    MappingSession session;
    session.dataset = dataset.get();
    return evaluatesTo(expression, expected, session);
}

void expectRules(std::span<const RuleCase> table)
{
    for (const RuleCase& row : table) EXPECT_TRUE(evaluatesTo(row.expression, row.expected));
}

testing::AssertionResult tracesTo(const char* pattern, const char* expected, const char* trace)
{
    std::string expression; // a mark is the complaint of "add" about a summand in angle brackets
    for (const char* at = pattern; *at != '\0'; ++at) {
        if (*at != '?' && *at != '!') {
            expression += *at;
            continue;
        }
        const std::string mark(1, *++at);
        const std::string complains = "add(<" + mark + ">,1)";
        expression += at[-1] == '?' ? complains : "or(" + complains + "," + mark + ")";
    }
    StderrCapture captured;
    const testing::AssertionResult result = evaluatesTo(expression.c_str(), expected);
    const std::string text = captured.text();
    std::string marks;
    for (std::size_t at = 0; (at = text.find("add: <", at)) != std::string::npos; at += 6) marks += text[at + 6];
    if (!result || marks == trace) return result;
    return testing::AssertionFailure() << pattern << " evaluates \"" << marks << "\", not \"" << trace << '"';
}

} // namespace kxtest
