// SPDX-License-Identifier: BSD-3-Clause
// A plug-in that holds the library: its one exported function coerces a dataset and reports one bad line.
#include "kxmap.h"

#include <dcmtk/dcmdata/dcdeftag.h>

extern "C" __attribute__((visibility("default"))) int coerce()
{
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    errorlogs.clear();
    DcmDataset dataset;
    MappingSession session;
    session.dataset = &dataset;
    Mapping("(0010,0010)=toUpper(\"Doe\")\n(0010,0020)=foo(1)\n$(a)=rnd(10)", "plugin").apply(session);
    OFString name;
    if (dataset.findAndGetOFString(DCM_PatientName, name).bad() || name != "DOE") return 1;
    return errorlogs.empty() ? 2 : 0;
}
