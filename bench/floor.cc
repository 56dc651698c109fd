// SPDX-License-Identifier: BSD-3-Clause
// What the work costs at the least: one process that loads each file with DCMTK, makes by direct calls the edits of
// bench/ten.map, and saves. "kxmap apply" is measured against it.
#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcfilefo.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/oflog/oflog.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace {

namespace fs = std::filesystem;

enum class Saving { Plain, ByRename, Temporary };

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

fs::path temporaryOf(const fs::path& file)
{
    return file.parent_path() / (".floor-" + file.filename().native());
}

OFCondition convert(const fs::path& from, const fs::path& to, Saving saving)
{
    DcmFileFormat file;
    OFCondition result = file.loadFile(from.c_str());
    if (result.bad()) return result;
    edit(*file.getDataset());
    const fs::path written = saving == Saving::Plain ? to : temporaryOf(to);
    result = file.saveFile(written.c_str(), file.getDataset()->getOriginalXfer());
    if (result.good() && saving == Saving::ByRename) fs::rename(written, to);
    return result;
}

// Every second file, in batches that are brought to the disk at once before they take their places.
void convertDurably(const std::vector<fs::path>& files, const fs::path& out, std::size_t first)
{
    constexpr std::size_t kBatch = 64;
    std::vector<fs::path> batch;
    const int folder = open(out.c_str(), O_RDONLY | O_DIRECTORY);
    const auto finish = [&] {
        std::ignore = syncfs(folder);
        for (const fs::path& file : batch) fs::rename(temporaryOf(file), file);
        std::ignore = fsync(folder);
        batch.clear();
    };
    for (std::size_t index = first; index < files.size(); index += 2) {
        if (convert(files[index], out / files[index].filename(), Saving::Temporary).bad()) continue;
        batch.push_back(out / files[index].filename());
        if (batch.size() == kBatch) finish();
    }
    finish();
    close(folder);
}

void convertDurablyInTwo(const std::vector<fs::path>& files, const fs::path& out)
{
    const pid_t other = fork();
    convertDurably(files, out, other == 0 ? 0 : 1);
    if (other == 0) _exit(0);
    waitpid(other, nullptr, 0);
}

} // namespace

int main(int argc, char** argv)
{
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    const std::string_view way = argc == 4 ? argv[1] : "";
    if (way != "plain" && way != "rename" && way != "durable") {
        std::fputs("usage: kxdcm_floor plain|rename|durable IN-FOLDER OUT-FOLDER\n", stderr);
        return 2;
    }
    std::vector<fs::path> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(argv[2])) files.push_back(entry.path());
    std::ranges::sort(files);
    const fs::path out = argv[3];
    fs::create_directories(out);
    if (way == "durable") {
        convertDurablyInTwo(files, out);
        return 0;
    }
    for (const fs::path& file : files) {
        const OFCondition result =
            convert(file, out / file.filename(), way == "plain" ? Saving::Plain : Saving::ByRename);
        if (result.bad()) std::fprintf(stderr, "kxdcm_floor: %s: %s\n", file.c_str(), result.text());
    }
    return 0;
}
