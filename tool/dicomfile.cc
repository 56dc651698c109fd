// SPDX-License-Identifier: BSD-3-Clause
// Loading and saving through DCMTK. What may differ from the input even where no rule applied, by DCMTK's reading:
// padding at the end of texts is reduced to what an even length needs, UN of undefined length becomes SQ, encapsulated
// pixel data labelled OW becomes OB, group lengths come right, a second element of the same tag goes, and so do bytes
// after a deflated dataset. Sequences that mix explicit and undefined lengths come out in one manner.
#include "tool/dicomfile.h"

#include "tool/output.h"
#include "tool/replacement.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcostrma.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmdata/dcwcache.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace kxtool {
namespace {

/// Files up to this many bytes are read at once, which costs a few system calls where DCMTK's streams need dozens.
constexpr std::size_t kWholeBytes = 256 * 1024;

/// Of larger files, values above this many bytes stay in the file until they are asked for. Below it, opening the file
/// once more would cost more than the memory does.
constexpr Uint32 kOnDemandBytes = 64 * 1024;

/// What is written goes to the system in pieces of this many bytes.
constexpr std::size_t kWriteBytes = 64 * 1024;

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

/// The beginning of a file; all of it when it is small.
class Head {
public:
    explicit Head(const std::filesystem::path& file)
    {
        const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
        if (descriptor < 0) throw FileError(file, systemReason(errno));
        const int reason = fill(descriptor);
        close(descriptor);
        if (reason != 0) throw FileError(file, systemReason(reason));
    }

    std::string_view bytes() const { return {buffer().get(), count_}; }
    bool isWhole() const { return isWhole_; }

private:
    // One for all files, so that its memory is asked of the system once.
    static std::unique_ptr<char[]>& buffer()
    {
        static std::unique_ptr<char[]> bytes = std::make_unique_for_overwrite<char[]>(kWholeBytes);
        return bytes;
    }

    int fill(int descriptor)
    {
        struct stat status = {};
        if (fstat(descriptor, &status) != 0) return errno;
        isWhole_ = S_ISREG(status.st_mode) && status.st_size <= static_cast<off_t>(kWholeBytes);
        const std::size_t wanted = isWhole_ ? static_cast<std::size_t>(status.st_size) : kPreambleBytes + 4;
        while (count_ < wanted) {
            const ssize_t count = read(descriptor, buffer().get() + count_, wanted - count_);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) return errno;
            if (count == 0) break;
            count_ += static_cast<std::size_t>(count);
        }
        return 0;
    }

    std::size_t count_ = 0;
    bool isWhole_ = false;
};

// Says whether the file has file meta information, after its preamble or without one. DCMTK makes one up where there is
// none, so it cannot be asked.
bool hasMetaInformation(std::string_view head)
{
    if (head.size() >= kPreambleBytes + 4 && head.substr(kPreambleBytes, 4) == "DICM") return true;
    return head.starts_with(std::string_view("\x02\x00\x00\x00", 4)) || head.starts_with("DICM");
}

/// Collects DCMTK's small writes into large ones.
class ReplacementConsumer : public DcmConsumer {
public:
    explicit ReplacementConsumer(Replacement& replacement) : replacement_(replacement) {}

    OFBool good() const override { return reason == 0; }
    OFCondition status() const override { return reason == 0 ? EC_Normal : EC_InvalidStream; }
    OFBool isFlushed() const override { return used_ == 0; }
    offile_off_t avail() const override { return static_cast<offile_off_t>(kWriteBytes); } // any amount is taken
    offile_off_t write(const void* bytes, offile_off_t count) override
    {
        const auto size = static_cast<std::size_t>(count);
        if (size > buffer_.size() - used_) flush();
        if (reason != 0) return 0;
        if (size > buffer_.size()) {
            reason = replacement_.write(bytes, size);
        } else {
            std::memcpy(buffer_.data() + used_, bytes, size);
            used_ += size;
        }
        return reason == 0 ? count : 0;
    }
    void flush() override
    {
        if (reason == 0 && used_ > 0) reason = replacement_.write(buffer_.data(), used_);
        used_ = 0;
    }

    int reason = 0; ///< the system's, for what could not be written

private:
    Replacement& replacement_;
    std::array<char, kWriteBytes> buffer_;
    std::size_t used_ = 0;
};

class ReplacementStream : public DcmOutputStream {
public:
    explicit ReplacementStream(ReplacementConsumer& consumer) : DcmOutputStream(&consumer) {}
};

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
    : file_(file), uids_{{{DCM_SOPClassUID, DCM_MediaStorageSOPClassUID},
                          {DCM_SOPInstanceUID, DCM_MediaStorageSOPInstanceUID}}}
{
    const OFCondition loaded = load();
    const bool isBare = framing_ == Framing::BareDataset;
    if (isBare && (loaded.bad() || !beginsLikeADataset(dataset())))
        throw FileError(file, loaded.bad() ? fmt::format("not a DICOM file ({})", loaded.text()) : "not a DICOM file");
    if (loaded.bad()) throw FileError(file, fmt::format("damaged or incomplete ({})", loaded.text()));
    if (!isBare && uidOf(*format_.getMetaInfo(), DCM_MediaStorageSOPClassUID) == UID_MediaStorageDirectoryStorage)
        throw FileError(file,
                        "a DICOMDIR is not rewritten: its records point at each other by their place in the file");
    for (TwinUid& uid : uids_) {
        uid.inDataset = uidOf(dataset(), uid.tag);
        uid.inMeta = uidOf(*format_.getMetaInfo(), uid.metaTag);
    }
    lengthEncoding_ = lengthEncodingOf(dataset());
}

OFCondition DicomFile::load()
{
    const Head head(file_);
    const std::string_view bytes = head.bytes();
    if (bytes.empty()) throw FileError(file_, "not a DICOM file: it is empty");
    framing_ = hasMetaInformation(bytes) ? Framing::FileFormat : Framing::BareDataset;
    if (!head.isWhole()) return format_.loadFile(file_.c_str(), EXS_Unknown, EGL_noChange, kOnDemandBytes);
    DcmInputBufferStream stream;
    stream.setBuffer(bytes.data(), static_cast<offile_off_t>(bytes.size()));
    stream.setEos();
    format_.transferInit();
    const OFCondition loaded = format_.read(stream, EXS_Unknown, EGL_noChange, DCM_MaxReadLength);
    format_.transferEnd();
    // Bytes in memory have one fault: they end too early. DCMTK words that differently for them than for files.
    return loaded == EC_InvalidStream ? EC_StreamNotifyClient : loaded;
}

void DicomFile::writeTo(Replacement& replacement)
{
    dropForeignGroups();
    if (framing_ == Framing::FileFormat) updateMetaInformation();
    ReplacementConsumer consumer(replacement);
    ReplacementStream stream(consumer);
    format_.transferInit();
    const OFCondition result = writeTo(stream);
    format_.transferEnd();
    stream.flush();
    consumer.flush(); // a deflating stream flushes itself alone
    if (consumer.reason != 0) throw FileError(replacement.target(), systemReason(consumer.reason));
    if (result.bad()) throw FileError(replacement.target(), result.text());
    if (!stream.isFlushed()) throw FileError(replacement.target(), "not written to its end");
}

void DicomFile::updateMetaInformation()
{
    DcmMetaInfo& meta = *format_.getMetaInfo();
    for (const TwinUid& uid : uids_) {
        const std::string now = uidOf(dataset(), uid.tag);
        // The file meta information cannot do without: a deleted one stays. An earlier save may have put another there.
        const bool isAsRead = now == uid.inDataset || now.empty();
        const std::string& wanted = isAsRead ? uid.inMeta : now;
        if (wanted == uidOf(meta, uid.metaTag)) continue;
        const OFCondition put = meta.putAndInsertString(uid.metaTag, wanted.c_str());
        if (put.bad()) throw FileError(file_, put.text());
    }
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
        reportWarning(fmt::format("{}: {} is no part of a dataset and is left out", printable(file_.native()),
                                  tag.toString().c_str()));
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

} // namespace kxtool
