// SPDX-License-Identifier: BSD-3-Clause
// The check of a mapping file before it is installed. It judges lines as the readers do, with two deliberate
// differences: a line that begins with "#" is skipped even with a "=" in it, and a line that has none is an error.
#include "kxmap.h"

#include "kxmap/mappings/lines.h"
#include "kxmap/mappings/messages.h"

#include <array>
#include <cstring>

namespace {

/// Only the very first byte counts: a blank before "#" makes a rule of the line.
bool isSkipped(const char* line)
{
    return *line == '#' || *line == '\0' || *line == '\n' || *line == '\r';
}

/// Takes off a line feed, and a carriage return before it.
void trimLineEnd(char* line)
{
    std::size_t length = std::strlen(line);
    if (length == 0 || line[length - 1] != '\n') return;
    line[--length] = '\0';
    if (length > 0 && line[length - 1] == '\r') line[length - 1] = '\0';
}

/// @return the message for a file that cannot be opened, cut to what the line buffer holds.
char* cannotOpen(const char* fileName)
{
    OFLOG_ERROR(logger, kxmap::kCannotOpen << fileName);
    std::array<char, kxmap::kLineBufferBytes> message;
    std::snprintf(message.data(), message.size(), "%s%s\n", kxmap::kCannotOpen, fileName);
    return newdup(message.data());
}

/// @return the message for a bad line, cut to fit its array of fixed size.
char* syntaxError(char* line)
{
    trimLineEnd(line);
    kxmap::CharArray message(new char[kxmap::kSyntaxMessageBytes]);
    std::snprintf(message.get(), kxmap::kSyntaxMessageBytes, kxmap::kSyntaxErrorFormat, line, errorlogs.c_str());
    return message.release();
}

} // namespace

char* checkSyntaxInner(const char* fileName)
{
    const kxmap::FileHandle file = kxmap::openFile(fileName);
    errorlogs.clear();
    if (!file) return cannotOpen(fileName);

    kxmap::LineReader lines(file.get());
    while (char* line = lines.next()) {
        if (isSkipped(line)) continue;
        OFLOG_DEBUG(logger, "Line: %s" << line); // deliberate: the placeholder is part of the text
        Assignment assignment;
        if (!assignment.readCfgLine(line)) return syntaxError(line);
    }
    return errorMsgEmpty;
}
