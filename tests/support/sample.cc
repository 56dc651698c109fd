// SPDX-License-Identifier: BSD-3-Clause
// The sample dataset of the tests and the fuzz targets.
#include "support/sample.h"

#include <dcmtk/dcmdata/dctk.h>

#include <stdexcept>
#include <string>

namespace kxtest {

namespace {
void put(DcmItem& item, const DcmTag& tag, const char* text)
{
    if (item.putAndInsertString(tag, text).bad()) throw std::runtime_error("sample dataset: " + std::string(text));
}
} // namespace

std::unique_ptr<DcmDataset> sampleDataset()
{
    auto dataset = std::make_unique<DcmDataset>();
    const Uint8 bytes[] = {1, 2, 3, 4};
    put(*dataset, DcmTag(0x0008, 0x0008), "ORIGINAL\\PRIMARY\\AXIAL");
    put(*dataset, DcmTag(0x0008, 0x0060), "US");
    put(*dataset, DcmTag(0x0008, 0x0090), ""); // present without a text
    put(*dataset, DcmTag(0x0009, 0x0010), "ACME 1.0");
    put(*dataset, DcmTag(0x0009, 0x1001, EVR_LO), "private text");
    auto unknown = std::make_unique<DcmOtherByteOtherWord>(DcmTag(0x0009, 0x1002, EVR_UN));
    unknown->putUint8Array(bytes, 4);
    if (dataset->insert(unknown.get()).good()) unknown.release(); // the dataset owns it now
    put(*dataset, DcmTag(0x0010, 0x0010), "Doe^Jane");
    put(*dataset, DcmTag(0x0010, 0x0020), "  PID-42"); // leading blanks stay
    put(*dataset, DcmTag(0x0020, 0x0013), "7");
    dataset->putAndInsertTagKey(DcmTag(0x0028, 0x0009), DcmTagKey(0x0018, 0x1063)); // AT
    dataset->putAndInsertUint16(DcmTag(0x0028, 0x0010), 512);                       // US
    dataset->putAndInsertUint8Array(DcmTag(0x0042, 0x0011), bytes, 4);              // OB
    dataset->insertEmptyElement(DcmTag(0x0008, 0x1140));                            // SQ without items

    DcmItem* step = nullptr;
    dataset->findOrCreateSequenceItem(DcmTag(0x0040, 0x0275), step, 0);
    put(*step, DcmTag(0x0040, 0x0007), "Step A");
    DcmItem* code = nullptr;
    step->findOrCreateSequenceItem(DcmTag(0x0040, 0x0008), code, 0);
    put(*code, DcmTag(0x0008, 0x0100), "CODE-A0");
    step->findOrCreateSequenceItem(DcmTag(0x0040, 0x0008), code, 1);
    put(*code, DcmTag(0x0008, 0x0100), "CODE-A1");
    dataset->findOrCreateSequenceItem(DcmTag(0x0040, 0x0275), step, 1);
    put(*step, DcmTag(0x0040, 0x0007), "Step B");
    return dataset;
}

} // namespace kxtest
