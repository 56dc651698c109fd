// SPDX-License-Identifier: BSD-3-Clause
// The engine's own targets, on a dataset of one element.
#include "tool/conformance/conformanceprobe.h"

#include "KXItem.h"
#include "kxmap.h"
#include "tool/dicom/elements.h"

#include <dcmtk/dcmdata/dcdatset.h>
#include <dcmtk/dcmdata/dcsequen.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <memory>
#include <tuple>

namespace kxtool {
namespace {

std::unique_ptr<DcmElement> emptyElement(const DcmTagKey& key)
{
    return std::unique_ptr<DcmElement>(KXItem::isOurPrivateTagKey(key) ? KXItem::createNewDicomElement(key)
                                                                       : DcmItem::newDicomElement(key, nullptr));
}

// Two of them differ in every VR that has values: what is as it was after both was not written.
enum class Sample { First, Second };

std::unique_ptr<DcmElement> sampleElement(const DcmTagKey& key, Sample sample)
{
    std::unique_ptr<DcmElement> element = emptyElement(key);
    if (!element) return element;
    if (element->ident() == EVR_SQ) {
        auto& sequence = static_cast<DcmSequenceOfItems&>(*element);
        for (int count = sample == Sample::First ? 1 : 2; count > 0; --count) {
            auto item = std::make_unique<DcmItem>();
            if (sequence.append(item.get()).good()) std::ignore = item.release(); // the sequence owns it now
        }
        return element;
    }
    const bool isFirst = sample == Sample::First;
    if (element->ident() == EVR_AT) std::ignore = element->putString(isFirst ? "(0010,0010)" : "(0010,0020)");
    else if (element->putString(isFirst ? "7" : "8").bad()) {
        const Uint8 bytes[] = {1, 2, 3, 4};
        std::ignore = element->putUint8Array(bytes, isFirst ? 2 : 4);
    }
    return element;
}

void insert(DcmDataset& dataset, std::unique_ptr<DcmElement> element)
{
    if (element && dataset.insert(element.get()).good()) std::ignore = element.release(); // the dataset owns it now
}

using Write = std::function<void(DcmDataset&)>;

std::optional<std::string> writeToAbsent(const DcmTagKey& target, const Write& write)
{
    DcmDataset dataset;
    write(dataset);
    DcmElement* element = elementOf(&dataset, target);
    return element == nullptr ? std::nullopt : std::optional(shownText(*element));
}

std::optional<std::string> writeToPresent(const DcmTagKey& target, const Write& write)
{
    std::string held;
    for (const Sample sample : {Sample::First, Sample::Second}) {
        DcmDataset dataset;
        insert(dataset, sampleElement(target, sample));
        const std::unique_ptr<DcmElement> before = copyOf(elementOf(&dataset, target));
        write(dataset);
        DcmElement* after = elementOf(&dataset, target);
        if (after != nullptr && !isSameElement(before.get(), after)) return shownText(*after);
    }
    return std::nullopt;
}

void assign(DcmDataset& dataset, const DcmTagKey& target, Value& value)
{
    MappingSession session;
    session.dataset = &dataset;
    LVDicomTag(DcmTag(target)).assignValue(session, &value);
}

} // namespace

Written writeText(const DcmTagKey& target, const std::string& text)
{
    const Write write = [&](DcmDataset& dataset) {
        StringValue value(text.c_str());
        assign(dataset, target, value);
    };
    return {writeToAbsent(target, write), writeToPresent(target, write)};
}

Written writeElement(const DcmTagKey& target, const DcmTagKey& source, bool isText)
{
    const std::unique_ptr<DcmElement> element = sampleElement(source, Sample::First);
    if (!element) return {};
    const Write write = [&](DcmDataset& dataset) {
        TagValue copied(element.get());
        StringValue text(copied.getString());
        if (isText) assign(dataset, target, text);
        else assign(dataset, target, copied);
    };
    return {writeToAbsent(target, write), writeToPresent(target, write)};
}

bool holds(const std::optional<std::string>& written, const std::string& text)
{
    const auto trimmed = [](const std::string& padded) { return padded.substr(0, padded.find_last_not_of(' ') + 1); };
    if (!written) return false;
    if (trimmed(*written) == trimmed(text)) return true;
    char* end = nullptr;
    char* writtenEnd = nullptr;
    const double number = std::strtod(text.c_str(), &end);
    const double held = std::strtod(written->c_str(), &writtenEnd);
    return end != text.c_str() && *end == '\0' && writtenEnd != written->c_str() && *writtenEnd == '\0' &&
           std::abs(number - held) <= 1e-5 * std::abs(number);
}

bool canBeMade(const DcmTagKey& key)
{
    const std::unique_ptr<DcmElement> element = emptyElement(key);
    return element && element->getTag().getEVR() != EVR_UNKNOWN;
}

bool isSeenAsText(const DcmTagKey& key)
{
    const std::unique_ptr<DcmElement> element = emptyElement(key);
    return !canBeMade(key) || hasText(*element);
}

std::string vrNameOf(const DcmTagKey& key)
{
    const std::unique_ptr<DcmElement> element = emptyElement(key);
    return element ? vrOf(*element) : "";
}

bool isSettledVr(const DcmTagKey& key)
{
    return canBeMade(key) && DcmVR(emptyElement(key)->getTag().getEVR()).isStandard();
}

} // namespace kxtool
