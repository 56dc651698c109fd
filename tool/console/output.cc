// SPDX-License-Identifier: BSD-3-Clause
// Messages, results, and the loggers of the libraries.
#include "tool/console/output.h"

#include "tool/console/utf8.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/oflog/oflog.h>

#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <system_error>

namespace kxtool {
namespace {

Verbosity current = Verbosity::Quiet;

} // namespace

FileError::FileError(const std::filesystem::path& file, std::string_view reason)
    : text_(fmt::format("{}: {}", printable(file.native()), reason))
{
}

void setVerbosity(Verbosity verbosity)
{
    current = verbosity;
    switch (verbosity) {
    case Verbosity::Quiet:
        OFLog::configure(OFLogger::OFF_LOG_LEVEL);
        break;
    case Verbosity::Verbose:
        OFLog::configure(OFLogger::INFO_LOG_LEVEL);
        // It warns for every file that the file meta information is kept, which is intended.
        OFLog::getLogger("dcmtk.dcmdata").setLogLevel(OFLogger::ERROR_LOG_LEVEL);
        break;
    case Verbosity::Debug:
        OFLog::configure(OFLogger::DEBUG_LOG_LEVEL);
        break;
    }
}

Verbosity verbosity()
{
    return current;
}

void reportError(std::string_view text)
{
    std::fflush(stdout); // results and messages keep their order where both go to one terminal
    std::string shown;   // some messages have several lines
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        shown.append(printable(text.substr(begin, end - begin))).append("\n");
        begin = end + 1;
    }
    shown.insert(0, "kxmap: ");
    std::fwrite(shown.data(), 1, shown.size(), stderr); // fmt::print would throw where it is closed
}

void reportWarning(std::string_view text)
{
    reportError(fmt::format("warning: {}", text));
}

void reportNote(std::string_view text)
{
    if (current != Verbosity::Quiet) reportError(text);
}

void printLine(std::string_view text)
{
    // Not fmt::print, which throws when the reader is gone: the stream's state is checked once, at the end.
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fputc('\n', stdout);
}

std::string printable(std::string_view text)
{
    std::string shown;
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text.front());
        const std::size_t size = std::max<std::size_t>(1, utf8SizeAt(text));
        // U+0080 to U+009F: in UTF-8 behind 0xC2, in 8-bit character sets a single byte.
        const bool isC1 =
            size == 1 ? byte >= 0x80 && byte < 0xA0 : byte == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
        if (byte < ' ' || byte == 0x7F || isC1) {
            for (const char part : text.substr(0, size))
                shown += fmt::format("\\x{:02X}", static_cast<unsigned char>(part));
        } else {
            shown += text.substr(0, size);
        }
        text.remove_prefix(size);
    }
    return shown;
}

std::string systemReason(int errorNumber)
{
    return std::generic_category().message(errorNumber);
}

} // namespace kxtool
