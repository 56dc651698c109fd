// SPDX-License-Identifier: BSD-3-Clause
// Joining, measuring, searching, cutting and re-casing texts. Lengths and positions count bytes. Only "split" traces;
// nothing here reports a bad operand, which makes the result NULL.
#include "kxmap.h"

#include "kxmap/core/bytes.h"
#include "kxmap/core/limits.h"
#include "kxmap/core/numbers.h"
#include "kxmap/functions/messages.h"
#include "kxmap/functions/operands.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

using kxmap::Arguments;
using kxmap::Operand;

namespace {

Value* recased(MappingSession& session, std::list<Expression*>& params, char (*convert)(char))
{
    Operand operand = Arguments(session, params).next();
    if (operand.isNull()) return nullptr;
    const char* text = operand.text();
    if (text == nullptr) throw std::logic_error(kxmap::kNoText);
    std::string copy(text);
    std::transform(copy.begin(), copy.end(), copy.begin(), convert);
    return new StringValue(copy.c_str());
}

} // namespace

// concat(a, b, ...): all joined, NULLs skipped. Deliberate: an outcome without bytes is NULL, not the empty text.
// An operand without text counts as empty. NULL beyond 2 GiB.
Value* concat_getValue(MappingSession& session, std::list<Expression*>& params)
{
    std::string joined;
    bool isTooLong = false;
    for (Arguments arguments(session, params); !arguments.isAtEnd();) {
        Operand operand = arguments.next();
        const char* text = operand.text();
        const std::size_t bytes = text == nullptr ? 0 : std::strlen(text);
        isTooLong = isTooLong || bytes > kxmap::kMaxJoinedBytes - joined.size();
        if (!isTooLong) joined.append(text == nullptr ? "" : text, bytes);
    }
    if (joined.empty() || isTooLong) return nullptr;
    return new StringValue(joined.c_str());
}

// strlen(text): its bytes.
Value* strlen_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Operand operand = Arguments(session, params).next();
    const char* text = operand.text();
    if (text == nullptr) return nullptr;
    return new StringValue(std::to_string(std::strlen(text)).c_str());
}

// contains(text, wanted): wanted itself when it occurs in text, else NULL. Without a text wanted is not evaluated.
Value* contains_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand operand = arguments.next();
    if (operand.isNull()) return nullptr;
    Operand wanted = arguments.next();
    const char* text = operand.text();
    const char* wantedText = wanted.text();
    if (text == nullptr || wantedText == nullptr || std::strstr(text, wantedText) == nullptr) return nullptr;
    return wanted.release();
}

// indexof(text, wanted): the offset of its first occurrence, from 0; "-1" when there is none; NULL when one is NULL.
Value* indexof_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand operand = arguments.next();
    const char* text = operand.text();
    if (text == nullptr) return nullptr;
    Operand wanted = arguments.next();
    const char* wantedText = wanted.text();
    if (wantedText == nullptr) return nullptr;
    const char* found = std::strstr(text, wantedText);
    return new StringValue(found == nullptr ? "-1" : std::to_string(found - text).c_str());
}

// substr(text, start [, length]): from the start, from 0, at most length bytes. A NULL start is 0, a NULL length the
// rest. NULL for a negative or unreadable number, and for a start beyond the text's end; at the end it is the empty
// text. A value without text makes the result NULL, as the text and as the start.
Value* substr_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand value = arguments.next();
    if (value.isNull()) return nullptr;

    const auto isBad = [](Operand& operand, int& number) { // NULL leaves the number, and is good
        if (operand.isNull()) return false;
        number = -1;
        if (const char* text = operand.text()) kxmap::readInt(text, number);
        return number < 0;
    };
    Operand startOperand = arguments.next();
    int start = 0;
    if (isBad(startOperand, start)) return nullptr;
    Operand lengthOperand = arguments.next();
    int length = 0;
    if (isBad(lengthOperand, length)) return nullptr;

    const char* text = value.text();
    if (text == nullptr) return nullptr;
    const std::size_t bytes = std::strlen(text);
    const auto from = static_cast<std::size_t>(start);
    if (from > bytes) return nullptr;
    const std::size_t rest = bytes - from;
    const std::size_t wanted = lengthOperand.isNull() ? rest : static_cast<std::size_t>(length);
    return new StringValue(std::string(text + from, std::min(rest, wanted)).c_str());
}

// toUpper(text): every byte through C `toupper` in the process's locale.
Value* toUpper_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return recased(session, params, kxmap::upperInLocale);
}

// toLower(text): every byte through C `tolower` in the process's locale.
Value* toLower_getValue(MappingSession& session, std::list<Expression*>& params)
{
    return recased(session, params, kxmap::lowerInLocale);
}

// split(text, separator, n): the n-th field, from 1, at the separator's first byte. A number below 1 is the first
// field, but 0 and an unreadable one are NULL, as are too few fields. An empty separator, or one without text, never
// occurs.
Value* split_getValue(MappingSession& session, std::list<Expression*>& params)
{
    Arguments arguments(session, params);
    Operand value = arguments.next();
    if (value.isNull()) return nullptr;
    Operand separatorOperand = arguments.next();
    if (separatorOperand.isNull()) return nullptr;
    Operand fieldOperand = arguments.next();
    if (fieldOperand.isNull()) return nullptr;

    const char* separatorText = separatorOperand.text();
    const char separator = separatorText == nullptr ? '\0' : *separatorText;
    int n = 0;
    if (const char* text = fieldOperand.text()) kxmap::readInt(text, n);
    const char* rest = value.text();
    if (rest == nullptr || n == 0 || (n > 1 && separator == '\0')) return nullptr;

    for (int i = 1; i < n; ++i) {
        OFLOG_DEBUG(logger, "Looking for '" << separator << " in '" << rest << "(" << std::to_string(i) << "/"
                                            << std::to_string(n) << ")"); // numbers in no locale
        const char* next = std::strchr(rest, separator);
        if (next == nullptr) return nullptr;
        rest = next + 1;
    }
    const char* end = std::strchr(rest, separator); // for an empty separator the terminator
    return new StringValue(end == nullptr ? rest : std::string(rest, end).c_str());
}
