// SPDX-License-Identifier: BSD-3-Clause
// What a server does with each dataset that it receives, on a file: load the mapping set once, build a session for the
// dataset, apply "pre", the AE title's mapping and "post", pass the dataset on.
//
//   DICOM_VAR=/etc/server embed AETITLE IN OUT     reads /etc/server/mappings/*.map and mappings/global/*.map
#include "kxmap.h"

#include <dcmtk/dcmdata/dctk.h>

#include <cstdio>
#include <tuple>

namespace {

OFString patientName(DcmDataset& dataset)
{
    OFString name;
    std::ignore = dataset.findAndGetOFStringArray(DCM_PatientName, name); // absent reads as empty here
    return name;
}

int fail(const char* file, const char* reason)
{
    std::fprintf(stderr, "embed: %s: %s\n", file, reason);
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) return fail("usage", "embed AETITLE IN OUT");
    const char* aeTitle = argv[1];
    const char* in = argv[2];
    const char* out = argv[3];

    // Rules address elements by tag, but whether a tag may be created, and with which VR, the dictionary says.
    if (!dcmDataDict.isDictionaryLoaded()) return fail(DCM_DICT_ENVIRONMENT_VARIABLE, "no data dictionary");

    // Once, when the server starts: this reads every mapping file. A line that does not parse is left out, and what was
    // wrong with it is in `errorlogs`. Parsing is one thread's at a time; applying needs no lock.
    MappingSet mappings;
    if (!errorlogs.empty()) std::fprintf(stderr, "embed: lines left out:\n%s", errorlogs.c_str());

    // Large values stay in IN until they are written, so OUT must be another file.
    DcmFileFormat file;
    if (const OFCondition read = file.loadFile(in); read.bad()) return fail(in, read.text());
    DcmDataset& dataset = *file.getDataset();
    const OFString before = patientName(dataset);

    // Once for each dataset. The session borrows the dataset and keeps the "$(@name)" variables from mapping to mapping;
    // after the last one, session.customFields holds what the rules wrote to "USER(name)".
    MappingSession session;
    session.dataset = &dataset;
    mappings.applyGlobal(GlobalPre, session);
    mappings.apply(aeTitle, session);
    mappings.applyGlobal(GlobalPost, session);

    // The transfer syntax stays; the meta information is made anew, so it follows a changed SOP Instance UID.
    if (const OFCondition written = file.saveFile(out); written.bad()) return fail(out, written.text());

    std::printf("Patient's Name: %s -> %s\n", before.c_str(), patientName(dataset).c_str());
    return 0;
}
