// SPDX-License-Identifier: BSD-3-Clause
// The checks of single values, by DCMTK where it has them, in characters where the VR counts these.
#include "tool/record/valuefaults.h"

#include "tool/console/table.h"
#include "tool/console/text.h"
#include "tool/console/utf8.h"
#include "tool/dicom/lintvalue.h"

#include <dcmtk/dcmdata/dcdicent.h>
#include <dcmtk/dcmdata/dcdict.h>

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <optional>

namespace kxtool {
namespace {

bool holdsOneValue(DcmEVR vr)
{
    return vr == EVR_LT || vr == EVR_ST || vr == EVR_UT || vr == EVR_UR;
}

std::optional<Fault> charsetFault(const Sample& sample)
{
    if (!hasCharacterSet(sample.vr) || isPlainAscii(sample.text)) return std::nullopt;
    if (!sample.set.toUtf8(sample.text))
        return Fault{fault::kCharset, fmt::format("{} is not in the dataset's character set {}",
                                                  shownQuoted(sample.set.readable(sample.text)), sample.set.name())};
    return sample.set.isSingleByte() && isUtf8(sample.text) ? std::optional(utf8Fault(sample)) : std::nullopt;
}

std::optional<Fault> multiplicityFault(const Sample& sample, std::string_view utf8)
{
    if (holdsOneValue(sample.vr)) return std::nullopt;
    const DcmDictEntry* entry = dcmDataDict.rdlock().findEntry(sample.key, nullptr);
    const int least = entry == nullptr ? 0 : entry->getVMMin();
    const int most = entry == nullptr ? DcmVariableVM : entry->getVMMax();
    dcmDataDict.rdunlock();
    const auto count = static_cast<int>(split(utf8, '\\').size());
    if (count >= least && (most == DcmVariableVM || count <= most)) return std::nullopt;
    const std::string range = most == least           ? std::to_string(least)
                              : most == DcmVariableVM ? fmt::format("{} or more", least)
                                                      : fmt::format("{} to {}", least, most);
    return Fault{fault::kMultiplicity, fmt::format("{} is {} value{}, the attribute takes {}", shownQuoted(utf8), count,
                                                   count == 1 ? "" : "s", range)};
}

} // namespace

Fault utf8Fault(const Sample& sample)
{
    return {fault::kCharset,
            fmt::format("{} seems to be UTF-8; in the dataset's character set {} it reads {}", shownQuoted(sample.text),
                        sample.set.name(), shownQuoted(sample.set.readable(sample.text)))};
}

bool isText(DcmEVR vr)
{
    constexpr DcmEVR kTexts[] = {EVR_AE, EVR_AS, EVR_CS, EVR_DA, EVR_DS, EVR_DT, EVR_IS, EVR_LO, EVR_LT,
                                 EVR_PN, EVR_SH, EVR_ST, EVR_TM, EVR_UC, EVR_UI, EVR_UR, EVR_UT};
    return std::ranges::find(kTexts, vr) != std::end(kTexts);
}

std::vector<Fault> faultsOf(const Sample& sample)
{
    std::vector<Fault> faults;
    const auto add = [&faults](std::optional<Fault> fault) {
        if (fault) faults.push_back(std::move(*fault));
    };
    if (!isText(sample.vr) || sample.text.empty()) return faults;
    add(charsetFault(sample));
    const auto converted = sample.set.toUtf8(sample.text);
    if (!converted && hasCharacterSet(sample.vr)) return faults; // neither characters nor values can be told apart
    const std::string& utf8 = converted ? *converted : sample.text;
    if (const auto value = faultOf(sample.vr, utf8)) {
        const bool isLength = value->kind == ValueFault::Kind::TooLong; // the other message shows the value itself
        add(isLength ? Fault{fault::kLength, fmt::format("{}: {}", shownQuoted(utf8), value->message)}
                     : Fault{fault::kForm, shownUtf8(value->message)});
    }
    add(multiplicityFault(sample, utf8));
    return faults;
}

} // namespace kxtool
