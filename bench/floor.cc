// SPDX-License-Identifier: BSD-3-Clause
// What the work costs at the least: one process that loads each file with DCMTK, makes by direct calls the edits of
// bench/ten.map, and saves. "kxmap apply" is measured against it.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/oflog/oflog.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

namespace {

namespace fs = std::filesystem;

enum class Saving { Plain, ByRename };

std::string textOf(DcmItem& item, const DcmTagKey& tag)
{
    const char* text = nullptr;
    std::ignore = item.findAndGetString(tag, text); // absent is empty
    return text == nullptr ? "" : text;
}

// Refusals are ignored: the rules ignore them, too.
void edit(DcmItem& item)
{
    const auto put = [&item](const DcmTagKey& tag, const std::string& text) {
        std::ignore = item.putAndInsertString(tag, text.c_str());
    };
    put(DCM_InstitutionName, "JFK Imaging Center");
    put(DCM_StationName, "CT-ROOM-1");
    std::string name = textOf(item, DCM_PatientName);
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    put(DCM_PatientName, name);
    put(DCM_PatientID, "N-" + textOf(item, DCM_PatientID));
    if (textOf(item, DCM_StudyDescription) == "e+1") put(DCM_StudyDescription, "CT Abdomen with Contrast");
    put(DCM_SeriesDescription, textOf(item, DCM_Modality) + " " + textOf(item, DCM_SliceThickness) + " mm");
    put(DCM_AccessionNumber, "S-" + textOf(item, DCM_StudyID));
    put(DCM_ReferringPhysicianName, "");
    std::ignore = item.findAndDeleteElement(DCM_PatientAddress);
    put(DCM_PatientIdentityRemoved, "NO");
}

OFCondition convert(const fs::path& from, const fs::path& to, Saving saving)
{
    DcmFileFormat file;
    OFCondition result = file.loadFile(from.c_str());
    if (result.bad()) return result;
    edit(*file.getDataset());
    const fs::path written = saving == Saving::Plain ? to : to.parent_path() / (".floor-" + to.filename().native());
    result = file.saveFile(written.c_str(), file.getDataset()->getOriginalXfer());
    if (result.good() && saving == Saving::ByRename) fs::rename(written, to);
    return result;
}

} // namespace

int main(int argc, char** argv)
{
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    if (argc != 4 || (std::strcmp(argv[1], "plain") != 0 && std::strcmp(argv[1], "rename") != 0)) {
        std::fputs("usage: kxdcm_floor plain|rename IN-FOLDER OUT-FOLDER\n", stderr);
        return 2;
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(argv[2])) files.push_back(entry.path());
    std::ranges::sort(files);
    const fs::path out = argv[3];
    fs::create_directories(out);
    for (const fs::path& file : files) {
        const OFCondition result =
            convert(file, out / file.filename(), *argv[1] == 'p' ? Saving::Plain : Saving::ByRename);
        if (result.bad()) std::fprintf(stderr, "kxdcm_floor: %s: %s\n", file.c_str(), result.text());
    }
    return 0;
}
