// SPDX-License-Identifier: BSD-3-Clause
// The edits by hand. Refusals of DCMTK are ignored: the rules ignore them, too.
#include "edits.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcelem.h>

#include <cctype>
#include <cstring>
#include <string>
#include <tuple>

const char* const bench::kRules = R"((0010,0010)=toUpper((0010,0010))
(0008,1010)=concat((0008,1010),"-",(0008,0060))
(0008,0080)=translate((0008,0080),"unknown","General Hospital","GH","JFK IMAGING CENTER","JFK")
(0008,1030)=if(or(equals((0008,0060),"CT"),equals((0008,0060),"MR")),"Cross-section","Other")
(0010,1010)=NULL()
)";

namespace {

std::string upper(const char* text)
{
    std::string copy(text);
    for (char& c : copy) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return copy;
}

const char* recoded(const char* name)
{
    if (std::strcmp(name, "General Hospital") == 0) return "GH";
    return std::strcmp(name, "JFK IMAGING CENTER") == 0 ? "JFK" : "unknown";
}

const char* description(const char* modality)
{
    const bool isCrossSection = std::strcmp(modality, "CT") == 0 || std::strcmp(modality, "MR") == 0;
    return isCrossSection ? "Cross-section" : "Other";
}

const char* read(DcmItem& item, const DcmTagKey& tag)
{
    const char* text = nullptr;
    std::ignore = item.findAndGetString(tag, text);
    return text == nullptr ? "" : text;
}

DcmElement* find(DcmItem& item, const DcmTagKey& tag)
{
    DcmElement* element = nullptr;
    std::ignore = item.findAndGetElement(tag, element);
    return element;
}

const char* textOf(DcmElement* element)
{
    char* text = nullptr;
    if (element != nullptr) std::ignore = element->getString(text);
    return text == nullptr ? "" : text;
}

void put(DcmElement* element, const char* text)
{
    if (element != nullptr) std::ignore = element->putString(text);
}

void removeFrom(DcmItem& item, DcmElement* element)
{
    if (element != nullptr) std::unique_ptr<DcmElement>(item.remove(element)).reset();
}

} // namespace

void bench::editDirectly(DcmItem& item)
{
    const auto write = [&item](const DcmTagKey& tag, const char* text) {
        std::ignore = item.putAndInsertString(tag, text);
    };
    write(DCM_PatientName, upper(read(item, DCM_PatientName)).c_str());
    write(DCM_StationName, (std::string(read(item, DCM_StationName)) + "-" + read(item, DCM_Modality)).c_str());
    write(DCM_InstitutionName, recoded(read(item, DCM_InstitutionName)));
    write(DCM_StudyDescription, description(read(item, DCM_Modality)));
    std::ignore = item.findAndDeleteElement(DCM_PatientAge);
}

void bench::editInPlace(DcmItem& item)
{
    DcmElement* name = find(item, DCM_PatientName);
    put(name, upper(textOf(name)).c_str());
    DcmElement* station = find(item, DCM_StationName);
    put(station, (std::string(textOf(station)) + "-" + textOf(find(item, DCM_Modality))).c_str());
    DcmElement* institution = find(item, DCM_InstitutionName);
    put(institution, recoded(textOf(institution)));
    put(find(item, DCM_StudyDescription), description(textOf(find(item, DCM_Modality))));
    removeFrom(item, find(item, DCM_PatientAge));
}

bench::Targets bench::findTargets(DcmItem& item)
{
    return {find(item, DCM_PatientName), find(item, DCM_StationName), find(item, DCM_InstitutionName),
            find(item, DCM_StudyDescription), find(item, DCM_PatientAge)};
}

void bench::putAlone(DcmItem& item, const Targets& targets)
{
    put(targets.name, "COMPRESSEDSAMPLES^CT1");
    put(targets.station, "CT01_OC0-CT");
    put(targets.institution, "JFK");
    put(targets.description, "Cross-section");
    removeFrom(item, targets.age);
}

void bench::restore(DcmItem& item, DcmItem& original)
{
    for (const DcmTagKey& tag :
         {DCM_PatientName, DCM_StationName, DCM_InstitutionName, DCM_StudyDescription, DCM_PatientAge})
        std::ignore = item.putAndInsertString(tag, read(original, tag));
}
