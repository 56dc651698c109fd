// SPDX-License-Identifier: BSD-3-Clause
// From a mapping file to its lines, in the pieces that the engine reads and with what its parsers say of them.
#include "tool/rules/rulefile.h"

#include "tool/console/output.h"
#include "tool/system/descriptor.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace kxtool {
namespace {

constexpr std::size_t kPieceBytes = kxmap::kLineBufferBytes - 1;
constexpr std::size_t kReadBytes = 64 * 1024;
constexpr std::size_t kMostFileBytes = 64 * 1024 * 1024; // each line takes some hundred bytes of memory beside its own

// The engine's own lines would repeat what is shown here, and `errorlogs` is where a left side's message lands.
class EngineListened {
public:
    EngineListened() : level_(logger.getLogLevel())
    {
        logger.setLogLevel(OFLogger::OFF_LOG_LEVEL);
        errorlogs.clear();
    }
    ~EngineListened()
    {
        errorlogs.clear();
        logger.setLogLevel(level_);
    }
    EngineListened(const EngineListened&) = delete;
    EngineListened& operator=(const EngineListened&) = delete;

    static std::string takeMessage()
    {
        std::string message = std::exchange(errorlogs, {});
        if (message.ends_with('\n')) message.pop_back();
        return message;
    }

private:
    dcmtk::log4cplus::LogLevel level_;
};

void parse(RuleLine& piece)
{
    piece.equals = piece.text.find('=');
    if (piece.equals == std::string::npos) return;
    piece.kind = RuleLine::Kind::Bad;
    std::string left(piece.left());
    piece.target.reset(parseLV(left));
    piece.leftMessage = EngineListened::takeMessage();
    if (!piece.target) return;
    piece.expression = piece.trace.parse(piece.right().data()); // the right side reaches to the text's terminator
    if (piece.expression) piece.kind = RuleLine::Kind::Rule;
}

/// Takes one piece off the text, as the engine's line reader would: to a line feed, or as much as its buffer holds.
std::string_view takePiece(std::string_view& rest)
{
    const std::size_t feed = rest.substr(0, kPieceBytes).find('\n');
    const std::size_t size = feed == std::string_view::npos ? std::min(rest.size(), kPieceBytes) : feed + 1;
    const std::string_view piece = rest.substr(0, size);
    rest.remove_prefix(size);
    return piece;
}

// The engine passes over what is no regular file; a device or a pipe might not end.
std::string readAll(const std::filesystem::path& path)
{
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status = {};
    if (!file.isOpen() || fstat(file.get(), &status) != 0) throw FileError(path, systemReason(errno));
    if (S_ISDIR(status.st_mode)) throw FileError(path, systemReason(EISDIR));
    if (!S_ISREG(status.st_mode)) throw FileError(path, "not a regular file");
    std::string content;
    std::size_t size = 0;
    while (true) {
        content.resize(size + kReadBytes);
        const ssize_t count = read(file.get(), content.data() + size, kReadBytes);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throw FileError(path, systemReason(errno));
        size += static_cast<std::size_t>(count);
        if (size > kMostFileBytes) throw FileError(path, "longer than 64 MiB, which no mapping file is");
        if (count == 0) break;
    }
    content.resize(size);
    return content;
}

} // namespace

bool RuleLine::isLost() const
{
    const std::size_t first = text.find_first_not_of(" \t");
    return kind != Kind::Rule && first != std::string::npos && text[first] != '#';
}

std::string RuleLine::message() const
{
    if (kind != Kind::Bad) return {};
    if (!target) return leftMessage;
    const std::string& said = trace.message;
    return "Error: " + (said.ends_with('\n') ? said.substr(0, said.size() - 1) : said);
}

std::size_t RuleFile::ruleCount() const
{
    return static_cast<std::size_t>(
        std::ranges::count(lines, RuleLine::Kind::Rule, [](const RuleLine& line) { return line.kind; }));
}

std::size_t RuleFile::badCount() const
{
    return static_cast<std::size_t>(std::ranges::count_if(lines, &RuleLine::isLost));
}

RuleFile readRuleFile(const std::filesystem::path& path)
{
    return readRuleText(readAll(path), path);
}

RuleFile readRuleText(std::string_view text, const std::filesystem::path& name)
{
    const EngineListened listened;
    RuleFile file;
    file.path = name;
    file.bytes = text;
    file.lines.reserve(static_cast<std::size_t>(std::ranges::count(text, '\n')) + 1);
    unsigned line = 1;
    std::size_t column = 0;
    while (!text.empty()) {
        std::string_view piece = takePiece(text);
        RuleLine& read = file.lines.emplace_back();
        read.line = line;
        read.column = column;
        const bool endsLine = piece.ends_with('\n');
        read.isCut = !endsLine && !text.empty();
        column = endsLine ? 0 : column + piece.size();
        if (endsLine) ++line;

        const std::size_t nul = piece.find('\0');
        read.hasNul = nul != std::string_view::npos;
        piece = piece.substr(0, nul);
        if (piece.ends_with('\n')) piece.remove_suffix(1);
        if (endsLine && piece.ends_with('\r')) piece.remove_suffix(1);
        read.text = piece;
        parse(read);
        if (const auto* variable = dynamic_cast<const LVTempVar*>(read.target.get()))
            file.variables.insert(variable->name);
    }
    return file;
}

} // namespace kxtool
