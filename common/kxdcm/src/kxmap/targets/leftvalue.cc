// SPDX-License-Identifier: BSD-3-Clause
// The left side of a rule: from text to target. Nothing is trimmed, and forms that are not known are refused in
// silence.
#include "kxmap.h"

#include "kxmap/core/bytes.h"
#include "kxmap/core/numbers.h"
#include "kxmap/targets/messages.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace {

constexpr std::string_view kSequencePrefix = "SEQ(";
constexpr std::string_view kFieldPrefix = "USER(";
constexpr std::string_view kVariablePrefix = "$(";

/// Reports `message` and the text that it is about.
LVObject* refuse(const char* message, const std::string& text)
{
    error(message + text);
    return nullptr;
}

/// Reads "(gggg,eeee)" as `sscanf` does with "(%4X,%4X)"; what follows the second number is not looked at.
bool readTag(const std::string& text, unsigned int& group, unsigned int& element)
{
    constexpr std::size_t kTagBytes = 11;
    if (text.size() != kTagBytes) return false;
    // Most tags are eight plain digits: these are read here, since sscanf() costs many times more.
    const char* s = text.c_str();
    const bool isPlain =
        s[5] == ',' && std::all_of(s + 1, s + 5, kxmap::isHexDigit) && std::all_of(s + 6, s + 10, kxmap::isHexDigit);
    if (!isPlain) return std::sscanf(s, "(%4X,%4X)", &group, &element) == 2;
    return kxmap::readHex4(s + 1, group) && kxmap::readHex4(s + 6, element);
}

/// A number in hexadecimal digits, padded with blanks in front to a width of four; in no locale.
std::string hex4(unsigned int number)
{
    std::array<char, 12> digits;
    std::snprintf(digits.data(), digits.size(), "%4x", number);
    return digits.data();
}

LVObject* parseTag(const std::string& text)
{
    unsigned int group = 0;
    unsigned int element = 0;
    if (!readTag(text, group, element)) return refuse(kxmap::kInvalidDicomTag, text);
    OFLOG_DEBUG(logger, "lvalue: (" << hex4(group) << "," << hex4(element) << ")");
    return new LVDicomTag(DcmTag(static_cast<Uint16>(group), static_cast<Uint16>(element)));
}

/// Reads the pieces between the brackets of "SEQ(...)".
class SequencePath {
public:
    /// Reads the next piece. @return false when it was reported as bad.
    bool read(const std::string& piece)
    {
        const bool scanned = position_ == kItem ? kxmap::readInt(piece.c_str(), scanned_) : readComponent(piece);
        if (!scanned && position_ == kItem) {
            // Deliberate: the number shown is what was last read, not the piece.
            refuse(kxmap::kInvalidItemNo, std::to_string(scanned_));
        } else if (!scanned) {
            refuse(kxmap::kInvalidDicomTag, piece);
        }
        if (!scanned) return false;
        if (position_ == kGroup) group_ = scanned_;
        if (position_ == kElement) element_ = scanned_;
        entries_.push_back(scanned_);
        position_ = position_ == kItem ? kGroup : position_ + 1;
        return true;
    }

    /// @param text the whole left value, for the reports.
    LVObject* finish(const std::string& text) const
    {
        if (position_ != kItem) return refuse(kxmap::kWrongParameterCount, text);
        if (group_ == kUnset || element_ == kUnset) return refuse(kxmap::kUnidentifiedTag, text);
        return new LVSeqDicomTag(DcmTag(static_cast<Uint16>(group_), static_cast<Uint16>(element_)), entries_);
    }

private:
    static constexpr int kGroup = 0;
    static constexpr int kElement = 1;
    static constexpr int kItem = 2;
    static constexpr int kUnset = -1;

    bool readComponent(const std::string& piece)
    {
        unsigned int number = 0;
        if (!kxmap::readHex4(piece.c_str(), number)) return false;
        scanned_ = static_cast<int>(number); // "-1" scans, and counts as unset
        return true;
    }

    int position_ = kGroup;
    int scanned_ = kUnset;
    int group_ = kUnset;
    int element_ = kUnset;
    std::list<int> entries_;
};

LVObject* parseSequence(const std::string& text)
{
    // Deliberate: the last character goes, whatever it is.
    const std::size_t end = text.size() > kSequencePrefix.size() ? text.size() - 1 : text.size();
    SequencePath path;
    for (std::size_t start = kSequencePrefix.size();;) {
        const std::size_t comma = text.find(',', start);
        const bool isLast = comma >= end; // npos, too
        if (!path.read(text.substr(start, (isLast ? end : comma) - start))) return nullptr;
        if (isLast) return path.finish(text);
        start = comma + 1;
    }
}

/// @return what stands between the prefix and the final bracket; empty when that is no name.
std::string nameAfter(std::string_view prefix, const std::string& text)
{
    if (!checkName(text, prefix.size(), ')')) return {};
    return text.substr(prefix.size(), text.size() - prefix.size() - 1);
}

} // namespace

LVObject::~LVObject() = default;

bool checkName(const std::string& text, unsigned long start, char terminator)
{
    std::size_t position = start;
    if (position < text.size() && text[position] == '@') ++position;
    const std::size_t first = position;
    while (position < text.size() && text[position] != terminator && kxmap::isNameByte(text[position])) ++position;
    return position > first && position + 1 == text.size() && text[position] == terminator;
}

LVObject* parseLV(std::string& text)
{
    if (text.empty()) return refuse(kxmap::kEmptyLeftValue, text);
    if (text.starts_with('(')) return parseTag(text);
    if (text.starts_with(kSequencePrefix)) return parseSequence(text);
    if (text.starts_with(kFieldPrefix)) {
        const std::string name = nameAfter(kFieldPrefix, text);
        return name.empty() ? nullptr : new LVCustomField(name);
    }
    if (text.starts_with(kVariablePrefix)) {
        const std::string name = nameAfter(kVariablePrefix, text);
        return name.empty() ? nullptr : new LVTempVar(name);
    }
    return nullptr;
}
