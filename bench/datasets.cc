// SPDX-License-Identifier: BSD-3-Clause
// Datasets in memory, and the one real image.
#include "datasets.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcvrlo.h>

#include <array>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

// As the first elements of a CT image stand.
const std::array<std::pair<DcmTagKey, const char*>, 28> kHeader = {{
    {DCM_SpecificCharacterSet, "ISO_IR 100"},
    {DCM_ImageType, "ORIGINAL\\PRIMARY\\AXIAL"},
    {DCM_InstanceCreationDate, "20040119"},
    {DCM_InstanceCreationTime, "072731"},
    {DCM_SOPClassUID, "1.2.840.10008.5.1.4.1.1.2"},
    {DCM_SOPInstanceUID, "1.2.3.4.5.6.7"},
    {DCM_StudyDate, "20040119"},
    {DCM_SeriesDate, "19970430"},
    {DCM_StudyTime, "072730"},
    {DCM_SeriesTime, "112749"},
    {DCM_AccessionNumber, "A1234"},
    {DCM_Modality, "CT"},
    {DCM_Manufacturer, "MAKER"},
    {DCM_InstitutionName, "JFK IMAGING CENTER"},
    {DCM_ReferringPhysicianName, "Doe^Jane"},
    {DCM_StationName, "CT01_OC0"},
    {DCM_StudyDescription, "e+1"},
    {DCM_SeriesDescription, "abdomen"},
    {DCM_ManufacturerModelName, "MODEL"},
    {DCM_PatientName, "CompressedSamples^CT1"},
    {DCM_PatientID, "1CT1"},
    {DCM_PatientBirthDate, "19500101"},
    {DCM_PatientSex, "O"},
    {DCM_PatientAge, "054Y"},
    {DCM_PatientWeight, "70"},
    {DCM_SliceThickness, "5.0"},
    {DCM_StudyInstanceUID, "1.2.3.4"},
    {DCM_SeriesInstanceUID, "1.2.3.4.5"},
}};

void check(const OFCondition& result)
{
    if (result.bad()) throw std::runtime_error(result.text());
}

/// Adds the private element of that number: blocks of a creator and 199 texts.
void addPrivate(DcmDataset& dataset, std::size_t number)
{
    constexpr std::size_t kBlock = 200;
    const auto creator = static_cast<Uint16>(0x10 + number / kBlock);
    const auto element = static_cast<Uint16>(creator * 0x100 + number % kBlock);
    const Uint16 low = number % kBlock == 0 ? creator : element;
    auto text = std::make_unique<DcmLongString>(DcmTag(0x0029, low, EVR_LO));
    check(text->putString("BENCH 1.0"));
    check(dataset.insert(text.get()));
    text.release(); // NOLINT(bugprone-unused-return-value): the dataset owns it
}

} // namespace

std::unique_ptr<DcmDataset> bench::makeDataset(std::size_t elements)
{
    auto dataset = std::make_unique<DcmDataset>();
    for (const auto& [tag, text] : kHeader) check(dataset->putAndInsertString(tag, text));
    for (std::size_t number = 0; dataset->card() < elements; ++number) addPrivate(*dataset, number);
    return dataset;
}

std::unique_ptr<DcmDataset> bench::loadCtImage()
{
    DcmFileFormat file;
    check(file.loadFile(KXDCM_CT_IMAGE));
    check(file.loadAllDataIntoMemory());
    return std::unique_ptr<DcmDataset>(file.getAndRemoveDataset());
}
