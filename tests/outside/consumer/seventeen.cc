// SPDX-License-Identifier: BSD-3-Clause
// The public headers in a unit that is built as C++17, each used a little.
#include "KXCustomFields.h"
#include "KXItem.h"
#include "QVDate.h"
#include "kxmap.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <cstdio>
#include <string>

static_assert(__cplusplus == 201703L, "the headers are to be read as C++17 here");

int main()
{
    const std::string parts = std::to_string(KXDCM_VERSION_MAJOR) + "." + std::to_string(KXDCM_VERSION_MINOR) + "." +
                              std::to_string(KXDCM_VERSION_PATCH);
    if (parts != KXDCM_VERSION_STRING || parts != KXDCM_FOUND_VERSION) return 1;

    KXItem::registerDictionary();
    std::size_t named = 0;
    for (const KXItem::PrivateTag& tag : KXItem::dictionary()) named += tag.name != nullptr ? 1 : 0;
    if (named == 0 || named != KXItem::dictionary().size()) return 2;
    if (QVDate("20240229").ageSince(QVDate("20240101")) != "008W" || QVDate("20230229").isValid()) return 3;

    DcmDataset dataset;
    MappingSession session;
    session.dataset = &dataset;
    Mapping("(0010,0010)=toUpper(\"Doe\")\nUSER(a)=b", "test").apply(session);
    OFString name;
    if (dataset.findAndGetOFString(DCM_PatientName, name).bad() || name != "DOE") return 4;
    if (session.customFields.getFieldValue("a") == nullptr) return 5;
    std::puts("seventeen: done");
    return 0;
}
