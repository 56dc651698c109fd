// SPDX-License-Identifier: BSD-3-Clause
// Converts by DCMTK; the Japanese character sets, which DCMTK does not convert with the C library's iconv, by the names
// that iconv has for them.
#include "tool/dicom/characterset.h"

#include "tool/console/utf8.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcitem.h>
#include <dcmtk/dcmdata/dcspchrs.h>
#include <dcmtk/ofstd/ofchrenc.h>

#include <algorithm>
#include <fmt/format.h>
#include <tuple>

namespace kxtool {
namespace {

constexpr char kEscape = '\x1B';
constexpr const char* kDelimiters = "\\^="; // in texts and names they end an extension (PS3.5 section 6.1.2.5.3)

bool isHigh(char byte)
{
    return (static_cast<unsigned char>(byte) & 0x80U) != 0;
}

// Half-width katakana are bytes of 0x80 and above (ISO_IR 13); iconv expects an escape sequence before them.
std::string withAnnouncedKatakana(std::string_view text)
{
    std::string announced;
    for (const char byte : text) {
        if (isHigh(byte)) announced += {kEscape, '(', 'I', static_cast<char>(byte & 0x7F), kEscape, '(', 'J'};
        else announced += byte;
    }
    return announced;
}

std::optional<std::string> japaneseToUtf8(std::string_view terms, std::string_view text)
{
    const bool hasKatakana = terms.find("IR 13") != std::string_view::npos;
    if (!hasKatakana && std::ranges::any_of(text, isHigh)) return std::nullopt;
    OFCharacterEncoding encoding;
    if (encoding.selectEncoding(hasKatakana ? "ISO-2022-JP-3" : "ISO-2022-JP-2", "UTF-8").bad()) return std::nullopt;
    const std::string source = hasKatakana ? withAnnouncedKatakana(text) : std::string(text);
    OFString converted;
    if (encoding.convertString(source.data(), source.size(), converted).bad()) return std::nullopt;
    return std::string(converted.c_str(), converted.length());
}

} // namespace

bool hasCharacterSet(DcmEVR vr)
{
    return vr == EVR_LO || vr == EVR_SH || vr == EVR_PN || vr == EVR_LT || vr == EVR_ST || vr == EVR_UT || vr == EVR_UC;
}

CharacterSet CharacterSet::of(DcmItem& item)
{
    for (DcmItem* at = &item; at != nullptr; at = at->getParentItem()) {
        OFString terms;
        if (at->tagExists(DCM_SpecificCharacterSet)) {
            std::ignore = at->findAndGetOFStringArray(DCM_SpecificCharacterSet, terms); // empty is ASCII
            return CharacterSet(std::string(terms.c_str(), terms.length()));
        }
    }
    return CharacterSet("");
}

bool CharacterSet::isSingleByte() const
{
    constexpr std::string_view kNumbers[] = {"100", "101", "109", "110", "144", "127",
                                             "126", "138", "148", "166", "203"};
    if (terms_.find('\\') != std::string::npos) return false;
    return std::ranges::any_of(kNumbers, [this](std::string_view number) { return terms_.ends_with(number); });
}

std::optional<std::string> CharacterSet::toUtf8(std::string_view text) const
{
    if (isPlainAscii(text)) return std::string(text);
    if (terms_ == "ISO_IR 192") return isUtf8(text) ? std::optional(std::string(text)) : std::nullopt;
    if (terms_.find("IR 87") != std::string::npos || terms_.find("IR 159") != std::string::npos)
        return japaneseToUtf8(terms_, text);
    std::string terms = terms_;
    if (terms.starts_with("ISO 2022 IR ") && terms.find('\\') == std::string::npos)
        terms.replace(0, 12, "ISO_IR "); // a single term has no code extensions
    DcmSpecificCharacterSet set;
    OFString converted;
    if (set.selectCharacterSet(OFString(terms.data(), terms.size())).bad() ||
        set.convertString(text.data(), text.size(), converted, kDelimiters).bad())
        return std::nullopt;
    return std::string(converted.c_str(), converted.length());
}

std::string CharacterSet::readable(std::string_view text) const
{
    if (const auto converted = toUtf8(text)) return *converted;
    std::string readable;
    for (const char byte : text) {
        if (isHigh(byte)) readable += fmt::format("\\x{:02X}", static_cast<unsigned>(static_cast<unsigned char>(byte)));
        else readable += byte;
    }
    return readable;
}

bool isPlainAscii(std::string_view text)
{
    return std::ranges::none_of(text, [](char byte) { return isHigh(byte) || byte == kEscape; });
}

} // namespace kxtool
