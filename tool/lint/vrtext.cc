// SPDX-License-Identifier: BSD-3-Clause
// Facts on VRs: one table.
#include "tool/lint/vrtext.h"

#include "tool/dicom/valuefaults.h"

#include "KXItem.h"

#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>
#include <dcmtk/dcmdata/dctag.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fmt/format.h>
#include <iterator>
#include <span>
#include <unordered_map>

namespace kxtool {
namespace {

/// How a value of a VR looks.
struct VrText {
    DcmEVR vr;
    const char* bytes; ///< that it is made of; null for any
    std::size_t least; ///< bytes of a value that is not empty
    std::size_t most;  ///< bytes; 0 for no limit
};

constexpr VrText kTexts[] = {
    {EVR_AE, nullptr, 1, 16},
    {EVR_AS, "0123456789DWMY", 4, 4},
    {EVR_CS, "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789 _", 1, 16},
    {EVR_DA, "0123456789", 8, 8},
    {EVR_DS, "0123456789+-.eE ", 1, 16},
    {EVR_DT, "0123456789+-. ", 4, 26},
    {EVR_IS, "0123456789+- ", 1, 12},
    {EVR_TM, "0123456789. ", 2, 14},
    {EVR_UI, "0123456789.", 17, 64}, // none in use is shorter
};

using VrList = std::span<const DcmEVR>;

constexpr DcmEVR kDecimal[] = {EVR_DS, EVR_IS, EVR_FD, EVR_FL};
constexpr DcmEVR kWhole[] = {EVR_IS};
constexpr DcmEVR kDate[] = {EVR_DA};
constexpr DcmEVR kTime[] = {EVR_TM};
constexpr DcmEVR kDateTime[] = {EVR_DT, EVR_DA};
constexpr DcmEVR kAge[] = {EVR_AS};
constexpr DcmEVR kUid[] = {EVR_UI};
constexpr DcmEVR kCode[] = {EVR_CS, EVR_IS};

/// What texts a VR takes from whole values of others; those that are not here take any.
struct Taken {
    DcmEVR vr;
    VrList from;
};

constexpr Taken kTaken[] = {
    {EVR_AS, kAge},   {EVR_CS, kCode},  {EVR_DA, kDate},    {EVR_DT, kDateTime}, {EVR_TM, kTime},
    {EVR_UI, kUid},   {EVR_IS, kWhole}, {EVR_DS, kDecimal}, {EVR_FD, kDecimal},  {EVR_FL, kDecimal},
    {EVR_US, kWhole}, {EVR_SS, kWhole}, {EVR_UL, kWhole},   {EVR_SL, kWhole},    {EVR_UV, kWhole},
    {EVR_SV, kWhole}, {EVR_xs, kWhole}, {EVR_AT, {}},       {EVR_SQ, {}},
};

/// @return the text of a value of one VR, or of several.
Usual usualOf(DcmEVR vr, bool isSingle)
{
    Usual usual;
    usual.vr = vr;
    const auto* text = std::ranges::find(kTexts, vr, &VrText::vr);
    if (text == std::end(kTexts)) return usual;
    if (text->bytes != nullptr) usual.may = bytesOf(text->bytes);
    usual.least = text->least;
    if (isSingle && text->most > 0) usual.most = text->most;
    if (!isSingle) usual.may.set('\\');
    return usual;
}

/// What the data dictionary says of a tag: asked once, as each question locks it.
struct DictionaryRow {
    DcmEVR vr;
    std::optional<std::size_t> mostValues;
};

const DictionaryRow& dictionaryRow(const DcmTagKey& key)
{
    static thread_local std::unordered_map<std::uint32_t, DictionaryRow> rows;
    const std::uint32_t number = (std::uint32_t{key.getGroup()} << 16U) | key.getElement();
    if (const auto found = rows.find(number); found != rows.end()) return found->second;
    const DcmDataDictionary& dictionary = dcmDataDict.rdlock();
    const DcmDictEntry* entry = dictionary.findEntry(key, nullptr);
    const int most = entry == nullptr ? DcmVariableVM : entry->getVMMax();
    dcmDataDict.rdunlock();
    const bool isOpen = most == DcmVariableVM || most < 1;
    const DictionaryRow row{DcmTag(key).getEVR(),
                            isOpen ? std::nullopt : std::optional(static_cast<std::size_t>(most))};
    return rows.emplace(number, row).first->second;
}

bool isWithinVr(DcmEVR vr)
{
    return vr != EVR_UNKNOWN && vr != EVR_UN && vr != EVR_UNKNOWN2B;
}

} // namespace

DcmEVR vrOf(const DcmTagKey& key)
{
    if (!KXItem::isOurPrivateTagKey(key)) return key.getGroup() == 0xFFFE ? EVR_UNKNOWN : dictionaryRow(key).vr;
    const auto known = std::ranges::find(KXItem::dictionary(), key.getElement(), &KXItem::PrivateTag::element);
    return known == KXItem::dictionary().end() ? EVR_UNKNOWN : known->vr;
}

bool isTextless(DcmEVR vr)
{
    return isWithinVr(vr) && !DcmVR(vr).isaString();
}

std::optional<std::size_t> mostValuesOf(const DcmTagKey& key)
{
    return dictionaryRow(key).mostValues;
}

Known knownElement(const DcmTagKey& key)
{
    const DcmEVR vr = vrOf(key);
    Known known;
    if (!isWithinVr(vr)) return known;
    if (isTextless(vr)) {
        known = Known::always("").with(Known::Presence::Perhaps);
        known.usual.vr = vr;
        return known;
    }
    known.usual = usualOf(vr, mostValuesOf(key) == 1);
    return known;
}

bool isUsual(const Known& value, std::string_view text)
{
    if (text.empty()) return true;
    if ((bytesOf(text) & ~value.usual.may).any() || text.size() > value.usual.most) return false;
    const DcmEVR vr = value.usual.vr;
    return vr == EVR_UNKNOWN || (!text.ends_with(' ') && !faultOf(vr, text)); // padding is no part of the text
}

bool fits(DcmEVR from, DcmEVR to)
{
    if (!isWithinVr(from) || !isWithinVr(to) || from == to || isTextless(from)) return true;
    const auto* taken = std::ranges::find(kTaken, to, &Taken::vr);
    return taken == std::end(kTaken) || std::ranges::find(taken->from, from) != taken->from.end();
}

bool isNumeric(DcmEVR vr, bool isOrdered)
{
    constexpr DcmEVR kNever[] = {EVR_AE, EVR_CS, EVR_DT, EVR_PN, EVR_UI, EVR_UR};
    constexpr DcmEVR kOrdered[] = {EVR_DA, EVR_TM};
    if (std::ranges::find(kNever, vr) != std::end(kNever)) return false;
    return isOrdered || std::ranges::find(kOrdered, vr) == std::end(kOrdered);
}

std::string shownTag(const DcmTagKey& key)
{
    const bool isNamed = key.getGroup() % 2 == 0 && vrOf(key) != EVR_UNKNOWN;
    return isNamed ? fmt::format("{} {}", DcmTag(key).getTagName(), keyText(key)) : keyText(key);
}

DcmTagKey tagOf(const std::vector<int>& path)
{
    const std::size_t size = path.size();
    return {static_cast<Uint16>(path[size - 2]), static_cast<Uint16>(path[size - 1])};
}

} // namespace kxtool
