// SPDX-License-Identifier: BSD-3-Clause
// Loading and saving through DCMTK. What may differ from the input even where no rule applied, by DCMTK's reading:
// padding at the end of texts is reduced to what an even length needs, UN of undefined length becomes SQ, encapsulated
// pixel data labelled OW becomes OB, group lengths come right, a second element of the same tag goes, and so do bytes
// after a deflated dataset. Sequences that mix explicit and undefined lengths come out in one manner.
#include "tool/dicomfile.h"

#include "tool/output.h"
#include "tool/replacement.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcostrmf.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmdata/dcwcache.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <tuple>

namespace kxtool {
namespace {

/// Values above this many bytes stay in the file until they are asked for. Below it, opening the file once more would
/// cost more than the memory does.
constexpr Uint32 kOnDemandBytes = 64 * 1024;

constexpr std::size_t kPreambleBytes = 128;
constexpr Uint16 kFirstDataGroup = 0x0008; // lower groups belong to messages, file meta information and directories

// DCMTK keeps an element's length field to itself and its descendants.
struct LengthField : DcmObject {
    static bool isUndefined(const DcmObject& object)
    {
        return (object.*(&LengthField::getLengthField))() == DCM_UndefinedLength;
    }
};

// DCMTK writes all sequences of a file in one manner: that of the first sequence with items is taken for the file's.
E_EncodingType lengthEncodingOf(DcmDataset& dataset)
{
    for (DcmObject* object = nullptr; (object = dataset.nextInContainer(object)) != nullptr;) {
        if (object->ident() != EVR_SQ || static_cast<DcmSequenceOfItems*>(object)->card() == 0) continue;
        return LengthField::isUndefined(*object) ? EET_UndefinedLength : EET_ExplicitLength;
    }
    return EET_ExplicitLength;
}

std::string uidOf(DcmItem& item, const DcmTagKey& tag)
{
    OFString uid;
    std::ignore = item.findAndGetOFString(tag, uid); // absent is empty
    return std::string(uid.c_str(), uid.length());
}

// Says whether the file has file meta information, after its preamble or without one. DCMTK makes one up where there is
// none, so it cannot be asked.
bool hasMetaInformation(const std::filesystem::path& file)
{
    std::array<char, kPreambleBytes + 4> head = {};
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(std::fopen(file.c_str(), "rb"), &std::fclose);
    if (!stream) throw FileError(file, systemReason(errno));
    const std::size_t count = std::fread(head.data(), 1, head.size(), stream.get());
    if (std::ferror(stream.get()) != 0) throw FileError(file, systemReason(errno));
    if (count == 0) throw FileError(file, "not a DICOM file: it is empty");
    if (count == head.size() && std::memcmp(head.data() + kPreambleBytes, "DICM", 4) == 0) return true;
    return std::memcmp(head.data(), "\x02\x00\x00\x00", 4) == 0 || std::memcmp(head.data(), "DICM", 4) == 0;
}

// DCMTK also reads bytes that merely look like elements; a bare dataset has to begin with one that the standard knows.
bool beginsLikeADataset(DcmDataset& dataset)
{
    if (dataset.card() == 0) return false;
    DcmTag first(dataset.getElement(0)->getTag());
    return first.getGTag() >= kFirstDataGroup && first.getGTag() % 2 == 0 && !first.isUnknownVR() &&
           std::strcmp(first.getTagName(), DcmTag_ERROR_TagName) != 0;
}

} // namespace

DicomFile::DicomFile(const std::filesystem::path& file)
    : file_(file), framing_(hasMetaInformation(file) ? Framing::FileFormat : Framing::BareDataset)
{
    const OFCondition loaded = format_.loadFile(file.c_str(), EXS_Unknown, EGL_noChange, kOnDemandBytes);
    const bool isBare = framing_ == Framing::BareDataset;
    if (isBare && (loaded.bad() || !beginsLikeADataset(dataset())))
        throw FileError(file, loaded.bad() ? fmt::format("not a DICOM file ({})", loaded.text()) : "not a DICOM file");
    if (loaded.bad()) throw FileError(file, fmt::format("damaged or incomplete ({})", loaded.text()));
    if (!isBare && uidOf(*format_.getMetaInfo(), DCM_MediaStorageSOPClassUID) == UID_MediaStorageDirectoryStorage)
        throw FileError(file,
                        "a DICOMDIR is not rewritten: its records point at each other by their place in the file");
    sopClassUid_ = uidOf(dataset(), DCM_SOPClassUID);
    sopInstanceUid_ = uidOf(dataset(), DCM_SOPInstanceUID);
    lengthEncoding_ = lengthEncodingOf(dataset());
}

void DicomFile::save(const std::filesystem::path& target)
{
    dropForeignGroups();
    if (framing_ == Framing::FileFormat) updateMetaInformation();
    Replacement replacement(target);
    write(replacement.openStream(), target);
    replacement.commit();
}

void DicomFile::updateMetaInformation()
{
    const auto follow = [this](const std::string& before, const DcmTagKey& tag, const DcmTagKey& metaTag) {
        const std::string now = uidOf(dataset(), tag);
        if (now == before || now.empty()) return; // the file meta information cannot do without: a deleted one stays
        const OFCondition put = format_.getMetaInfo()->putAndInsertString(metaTag, now.c_str());
        if (put.bad()) throw FileError(file_, put.text());
    };
    follow(sopClassUid_, DCM_SOPClassUID, DCM_MediaStorageSOPClassUID);
    follow(sopInstanceUid_, DCM_SOPInstanceUID, DCM_MediaStorageSOPInstanceUID);
    // DCMTK leaves its group length alone when told to keep the rest of it.
    const OFCondition counted = format_.getMetaInfo()->computeGroupLengthAndPadding(
        EGL_recalcGL, EPD_noChange, EXS_LittleEndianExplicit, lengthEncoding_);
    if (counted.bad()) throw FileError(file_, counted.text());
}

// A rule can name any tag, and DCMTK would write one of these groups into the dataset, where no reader expects it.
void DicomFile::dropForeignGroups()
{
    for (unsigned long index = 0; index < dataset().card();) {
        const DcmTagKey tag = dataset().getElement(index)->getTag();
        if (tag.getGroup() >= kFirstDataGroup) return; // they are in ascending order
        if (tag.getGroup() != 0x0000 && tag.getGroup() != 0x0002) {
            ++index;
            continue;
        }
        const std::unique_ptr<DcmElement> dropped(dataset().remove(index));
        reportWarning(
            fmt::format("{}: {} is no part of a dataset and is left out", file_.native(), tag.toString().c_str()));
    }
}

// Group lengths that are there are computed anew, since a rule may have changed what they count; none are added.
OFCondition DicomFile::writeTo(DcmOutputStream& output)
{
    DcmWriteCache cache;
    const E_TransferSyntax syntax = dataset().getOriginalXfer();
    if (framing_ == Framing::FileFormat)
        return format_.write(output, syntax, lengthEncoding_, &cache, EGL_recalcGL, EPD_noChange, 0, 0, 0,
                             EWM_dontUpdateMeta);
    return dataset().write(output, syntax, lengthEncoding_, &cache, EGL_recalcGL, EPD_noChange);
}

void DicomFile::write(std::FILE* stream, const std::filesystem::path& target)
{
    DcmOutputFileStream output(stream); // closes the stream
    format_.transferInit();
    OFCondition result = writeTo(output);
    format_.transferEnd();
    output.flush();
    // Of a full disk DCMTK only says that the stream takes no more; one byte more brings the system's reason back.
    if (result.bad() && std::ferror(stream) != 0) std::ignore = std::fputc('\0', stream);
    if (std::fflush(stream) != 0) throw FileError(target, systemReason(errno));
    if (result.good()) result = output.status();
    if (result.bad()) throw FileError(target, result.text());
}

} // namespace kxtool
