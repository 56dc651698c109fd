// SPDX-License-Identifier: BSD-3-Clause
// Loading and saving through DCMTK. What may differ from the input even where no rule applied, by DCMTK's reading:
// padding at the end of texts is reduced to what an even length needs, UN of undefined length becomes SQ, group lengths
// come right, a second element of the same tag goes, and so do bytes after a deflated dataset. Sequences that mix explicit
// and undefined lengths come out in one manner. From the pixel data on nothing differs unless a rule reaches them, or
// they are not as DCMTK would write them; then encapsulated ones labelled OW become OB.
#include "tool/dicom/dicomfile.h"

#include "tool/console/output.h"
#include "tool/dicom/filestream.h"
#include "tool/dicom/sinkstream.h"
#include "tool/system/sink.h"

#include <dcmtk/dcmdata/dcdeftag.h>
#include <dcmtk/dcmdata/dcmetinf.h>
#include <dcmtk/dcmdata/dcuid.h>
#include <dcmtk/dcmdata/dcwcache.h>

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <limits>
#include <memory>
#include <string_view>
#include <tuple>

namespace kxtool {
namespace {

constexpr std::size_t kPreambleBytes = 128;
constexpr Uint16 kFirstDataGroup = 0x0008; // lower groups belong to messages, file meta information and directories

/// What a file may hold whose pixel data rules reach, since it is loaded as a whole. No single value can be longer.
constexpr std::uintmax_t kMaxBytesInMemory = std::uintmax_t(4) * 1024 * 1024 * 1024;

/// What a deflated dataset may grow to: this much, or so many times its file. Images deflate to a quarter at the least;
/// a small file that grows to gigabytes is an attack.
constexpr std::uintmax_t kMaxInflatedBytes = std::uintmax_t(64) * 1024 * 1024;
constexpr std::uintmax_t kMaxInflation = 100;

constexpr std::uintmax_t kNoLimit = std::numeric_limits<std::int64_t>::max();

// An element's length field and error are accessible to DCMTK's derived classes only.
struct Inside : DcmObject {
    static bool hasUndefinedLength(const DcmObject& object)
    {
        return (object.*(&Inside::getLengthField))() == DCM_UndefinedLength;
    }
    static OFCondition errorOf(const DcmObject& object) { return object.*(&Inside::errorFlag); }
};

// DCMTK writes all sequences of a file in one manner: that of the first sequence with items is taken for the file's.
E_EncodingType lengthEncodingOf(DcmDataset& dataset)
{
    for (DcmObject* object = nullptr; (object = dataset.nextInContainer(object)) != nullptr;) {
        if (object->ident() != EVR_SQ || static_cast<DcmSequenceOfItems*>(object)->card() == 0) continue;
        return Inside::hasUndefinedLength(*object) ? EET_UndefinedLength : EET_ExplicitLength;
    }
    return EET_ExplicitLength;
}

// Items of sequences may have some, too.
bool mayHaveGroupLengths(DcmDataset& dataset)
{
    for (DcmObject* object = nullptr; (object = dataset.nextInContainer(object)) != nullptr;) {
        if (object->getETag() == 0x0000 || object->ident() == EVR_SQ) return true;
    }
    return false;
}

std::string uidOf(DcmItem& item, const DcmTagKey& tag)
{
    OFString uid;
    std::ignore = item.findAndGetOFString(tag, uid); // absent is empty
    return std::string(uid.c_str(), uid.length());
}

// Says whether the file has file meta information, after its preamble or without one. DCMTK creates it where there is
// none, so its own object does not tell.
bool hasMetaInformation(std::string_view head)
{
    if (head.size() >= kPreambleBytes + 4 && head.substr(kPreambleBytes, 4) == "DICM") return true;
    return head.starts_with(std::string_view("\x02\x00\x00\x00", 4)) || head.starts_with("DICM");
}

// DCMTK also reads bytes that merely look like elements; a bare dataset has to begin with one that the standard knows.
bool beginsLikeADataset(DcmDataset& dataset)
{
    if (dataset.card() == 0) return false;
    DcmTag first(dataset.getElement(0)->getTag());
    return first.getGTag() >= kFirstDataGroup && first.getGTag() % 2 == 0 && !first.isUnknownVR() &&
           std::strcmp(first.getTagName(), DcmTag_ERROR_TagName) != 0;
}

std::uintmax_t encodedBytes(DcmItem& item, E_TransferSyntax syntax, E_EncodingType lengths)
{
    std::uintmax_t bytes = 0;
    for (unsigned long index = 0; index < item.card(); ++index)
        bytes += item.getElement(index)->calcElementLength(syntax, lengths);
    return bytes;
}

bool isPixelDataGroup(Uint16 group)
{
    constexpr Uint16 kDelimiters = 0xfffe; // of items and sequences
    return group >= kPixelDataGroup && group != kDelimiters;
}

// With big endian syntaxes the group's first byte is the higher one; a tag is in the file as its syntax has it.
bool beginsWithPixelData(std::string_view bytes, E_TransferSyntax syntax)
{
    if (bytes.size() < 2) return false;
    const bool isBigEndian = DcmXfer(syntax).getByteOrder() == EBO_BigEndian;
    const auto high = static_cast<unsigned char>(bytes[isBigEndian ? 0 : 1]);
    const auto low = static_cast<unsigned char>(bytes[isBigEndian ? 1 : 0]);
    return isPixelDataGroup(static_cast<Uint16>(high << 8 | low));
}

bool isDeflated(E_TransferSyntax syntax)
{
    return DcmXfer(syntax).getStreamCompression() != ESC_none;
}

std::uintmax_t limitFor(std::uintmax_t fileBytes)
{
    return std::min(std::max(kMaxInflatedBytes, fileBytes * kMaxInflation), kMaxBytesInMemory);
}

} // namespace

DicomFile::DicomFile(const std::filesystem::path& file, Extent extent)
    : input_(file), tailBegin_(input_.size()), uids_{{{DCM_SOPClassUID, DCM_MediaStorageSOPClassUID},
                                                      {DCM_SOPInstanceUID, DCM_MediaStorageSOPInstanceUID}}}
{
    if (input_.size() == 0) throw FileError(file, "not a DICOM file: it is empty");
    load(extent);
    for (TwinUid& uid : uids_) {
        uid.inDataset = uidOf(dataset(), uid.tag);
        uid.inMeta = uidOf(*format_->getMetaInfo(), uid.metaTag);
    }
    lengthEncoding_ = lengthEncodingOf(dataset());
}

void DicomFile::load(Extent extent)
{
    if (extent == Extent::Header && loadHeader()) {
        requireLoaded(EC_Normal);
        return;
    }
    tailBegin_ = input_.size();
    requireLoaded(loadWhole());
}

// Where the border is not found with certainty, the file is loaded as a whole, which is slower and always right.
bool DicomFile::loadHeader()
{
    FileProducer producer(input_, 0);
    framing_ = hasMetaInformation(producer.peek()) ? Framing::FileFormat : Framing::BareDataset;
    FileStream stream(producer, FileStream::Values::Loaded, kNoLimit);
    format_.emplace();
    format_->transferInit();
    const OFCondition loaded =
        format_->readUntilTag(stream, EXS_Unknown, EGL_noChange, DCM_MaxReadLength, DcmTagKey(kPixelDataGroup, 0));
    format_->transferEnd();
    if (loaded.bad() || !producer.good()) return false;
    const E_TransferSyntax syntax = dataset().getOriginalXfer();
    if (isDeflated(syntax) || dataset().card() == 0) return false;
    const bool isAtEnd = producer.eos();
    stream.putback(); // to the beginning of the last tag that was read
    const bool isTail = beginsWithPixelData(producer.peek(), syntax);
    // At the file's end that tag may be one of an item's.
    if (isAtEnd) return !isTail;
    const auto begin = static_cast<std::uintmax_t>(stream.tell());
    if (!isTail || !isTailSound(producer, begin)) return false;
    tailBegin_ = begin;
    smallFile_ = producer.takeWholeFile();
    return true;
}

// The elements from there on have to be what DCMTK would write of them, byte for byte as far as lengths tell: then
// nothing is cut, doubled, out of order or trailing.
bool DicomFile::isTailSound(FileProducer& producer, std::uintmax_t begin)
{
    const E_TransferSyntax syntax = dataset().getOriginalXfer();
    FileStream stream(producer, FileStream::Values::Skipped, kNoLimit);
    DcmDataset tail;
    tail.transferInit();
    const OFCondition loaded = tail.read(stream, syntax, EGL_noChange, 0);
    tail.transferEnd();
    if (loaded.bad() || !producer.good() || tail.card() == 0) return false;
    if (!isPixelDataGroup(tail.getElement(0)->getGTag())) return false; // they are in ascending order
    const std::uintmax_t bytes = input_.size() - begin;
    return encodedBytes(tail, syntax, EET_ExplicitLength) == bytes ||
           encodedBytes(tail, syntax, EET_UndefinedLength) == bytes;
}

OFCondition DicomFile::loadWhole()
{
    if (input_.size() > kMaxBytesInMemory)
        throw FileError(input_.path(),
                        fmt::format("too large to be loaded as a whole, which rules on pixel data, odd files and more "
                                    "compressed pixel data than that need: over {} bytes",
                                    kMaxBytesInMemory));
    FileProducer producer(input_, 0);
    framing_ = hasMetaInformation(producer.peek()) ? Framing::FileFormat : Framing::BareDataset;
    const std::uintmax_t limit = limitFor(input_.size());
    FileStream stream(producer, FileStream::Values::Loaded, limit);
    format_.emplace();
    format_->transferInit();
    const OFCondition loaded = format_->read(stream, EXS_Unknown, EGL_noChange, DCM_MaxReadLength);
    format_->transferEnd();
    if (producer.reason() != 0) throw FileError(input_.path(), systemReason(producer.reason()));
    if (producer.isCut()) {
        input_.requireUnchanged();
        throw FileError(input_.path(), "ends before its end");
    }
    if (stream.isOverLimit() && isDeflated(dataset().getOriginalXfer()))
        throw FileError(input_.path(), fmt::format("inflates to more than {} bytes", limit));
    // The one fault of a readable file is that it ends too early, for which DCMTK has several conditions.
    return loaded == EC_InvalidStream ? EC_StreamNotifyClient : loaded;
}

void DicomFile::requireLoaded(const OFCondition& loaded)
{
    const std::filesystem::path& file = input_.path();
    const bool isBare = framing_ == Framing::BareDataset;
    if (isBare && (loaded.bad() || !beginsLikeADataset(dataset())))
        throw FileError(file, loaded.bad() ? fmt::format("not a DICOM file ({})", loaded.text()) : "not a DICOM file");
    if (loaded.good() && dataset().card() == 0)
        throw FileError(file, "damaged or incomplete: it ends before its dataset");
    if (loaded.bad()) throw FileError(file, fmt::format("damaged or incomplete ({})", loaded.text()));
    if (!isBare && uidOf(*format_->getMetaInfo(), DCM_MediaStorageSOPClassUID) == UID_MediaStorageDirectoryStorage)
        throw FileError(file,
                        "a DICOMDIR is not rewritten: its records point at each other by their place in the file");
}

// A file that is cut between two elements is as sound as any other.
bool DicomFile::seemsCut()
{
    const bool hasPixels = tailBegin_ < input_.size() || dataset().card() == 0 ||
                           dataset().getElement(dataset().card() - 1)->getGTag() >= kPixelDataGroup;
    return !hasPixels && !dataset().tagExists(DCM_PixelDataProviderURL) && dataset().tagExistsWithValue(DCM_Rows) &&
           dataset().tagExistsWithValue(DCM_BitsAllocated);
}

void warnOfDropped(const std::filesystem::path& file, const std::vector<DcmTagKey>& tags)
{
    for (const DcmTagKey& tag : tags)
        reportWarning(fmt::format("{}: {} is no part of a dataset and is left out", printable(file.native()),
                                  tag.toString().c_str()));
}

std::vector<DcmTagKey> DicomFile::settle()
{
    std::vector<DcmTagKey> dropped = dropForeignGroups();
    if (framing_ == Framing::FileFormat) updateMetaInformation();
    if (!mayHaveGroupLengths(dataset())) return dropped;
    // A rule may have changed what they count, or made one; none are added.
    const OFCondition counted = dataset().computeGroupLengthAndPadding(EGL_recalcGL, EPD_noChange,
                                                                       dataset().getOriginalXfer(), lengthEncoding_);
    if (counted.bad()) throw FileError(input_.path(), counted.text());
    return dropped;
}

std::vector<DcmTagKey> DicomFile::writeTo(Sink& sink)
{
    std::vector<DcmTagKey> dropped = settle();
    const auto expected = expectedBytes();
    SinkConsumer consumer(sink);
    SinkStream stream(consumer);
    format_->transferInit();
    const OFCondition result = writeHeader(stream);
    format_->transferEnd();
    bool isComplete = expected == consumer.size();
    if (!expected) {
        stream.flush();
        consumer.flush(); // a deflating stream flushes itself alone
        isComplete = stream.isFlushed();
    } else if (result.good() && isComplete) {
        writeTail(sink, consumer);
    }
    consumer.flush();
    if (consumer.reason() != 0) throw FileError(sink.target(), systemReason(consumer.reason()));
    if (result.bad()) throw FileError(sink.target(), result.text());
    if (!isComplete) throw FileError(sink.target(), "not written to its end");
    requireNoErrors(sink.target());
    return dropped;
}

// DCMTK sometimes reports success for the dataset though an element has an error.
void DicomFile::requireNoErrors(const std::filesystem::path& target)
{
    for (DcmObject* object = nullptr; (object = dataset().nextInContainer(object)) != nullptr;) {
        const OFCondition error = Inside::errorOf(*object);
        if (error.bad())
            throw FileError(target, fmt::format("{}: {}", object->getTag().toString().c_str(), error.text()));
    }
}

// DCMTK's own count, taken before anything is written: it differs when a value was lost while writing. It has none
// for what is deflated.
std::optional<std::uintmax_t> DicomFile::expectedBytes()
{
    const E_TransferSyntax syntax = dataset().getOriginalXfer();
    if (isDeflated(syntax)) return std::nullopt;
    const std::uintmax_t bytes = encodedBytes(dataset(), syntax, lengthEncoding_);
    if (framing_ == Framing::BareDataset) return bytes;
    return bytes + format_->getMetaInfo()->calcElementLength(EXS_LittleEndianExplicit, lengthEncoding_);
}

void DicomFile::writeTail(Sink& sink, SinkConsumer& consumer) const
{
    const std::uintmax_t bytes = input_.size() - tailBegin_;
    if (bytes == 0) return;
    if (smallFile_) {
        consumer.write(smallFile_.get() + tailBegin_, static_cast<offile_off_t>(bytes));
        return;
    }
    consumer.flush();
    if (consumer.reason() != 0) return; // the caller tells
    const int reason = sink.copy(input_.descriptor(), static_cast<off_t>(tailBegin_), bytes);
    if (reason == kSourceEnded) input_.requireUnchanged();
    if (reason == kSourceEnded) throw FileError(input_.path(), "ends before its end");
    if (reason != 0) throw FileError(sink.target(), systemReason(reason));
}

void DicomFile::updateMetaInformation()
{
    DcmMetaInfo& meta = *format_->getMetaInfo();
    for (const TwinUid& uid : uids_) {
        const std::string now = uidOf(dataset(), uid.tag);
        // The file meta information must have it: a deleted one stays. An earlier save may have put another there.
        const bool isAsRead = now == uid.inDataset || now.empty();
        const std::string& wanted = isAsRead ? uid.inMeta : now;
        if (wanted == uidOf(meta, uid.metaTag)) continue;
        const OFCondition put = meta.putAndInsertString(uid.metaTag, wanted.c_str());
        if (put.bad()) throw FileError(input_.path(), put.text());
    }
    // DCMTK leaves its group length alone when told to keep the rest of it.
    const OFCondition counted =
        meta.computeGroupLengthAndPadding(EGL_recalcGL, EPD_noChange, EXS_LittleEndianExplicit, lengthEncoding_);
    if (counted.bad()) throw FileError(input_.path(), counted.text());
}

// A rule can name any tag, and DCMTK would write one of these groups into the dataset, where no reader expects it.
std::vector<DcmTagKey> DicomFile::dropForeignGroups()
{
    std::vector<DcmTagKey> tags;
    for (unsigned long index = 0; index < dataset().card();) {
        const DcmTagKey tag = dataset().getElement(index)->getTag();
        if (tag.getGroup() >= kFirstDataGroup) break; // they are in ascending order
        if (tag.getGroup() != 0x0000 && tag.getGroup() != 0x0002) {
            ++index;
            continue;
        }
        const std::unique_ptr<DcmElement> dropped(dataset().remove(index));
        tags.push_back(tag);
    }
    return tags;
}

OFCondition DicomFile::writeHeader(DcmOutputStream& output)
{
    DcmWriteCache cache;
    const E_TransferSyntax syntax = dataset().getOriginalXfer();
    if (framing_ == Framing::FileFormat)
        return format_->write(output, syntax, lengthEncoding_, &cache, EGL_recalcGL, EPD_noChange, 0, 0, 0,
                              EWM_dontUpdateMeta);
    return dataset().write(output, syntax, lengthEncoding_, &cache, EGL_recalcGL, EPD_noChange);
}

} // namespace kxtool
