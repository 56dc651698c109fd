// SPDX-License-Identifier: BSD-3-Clause
// One DICOM file: reading it, and writing it back with as little changed as DCMTK allows.
#pragma once

#include "tool/system/inputfile.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kxtool {

class FileProducer;
class Sink;
class SinkConsumer;

/// The group in which pixel data stand. What no rule reaches from there on is neither loaded nor decoded: its bytes are
/// copied as they are.
constexpr Uint16 kPixelDataGroup = 0x7fe0;

/// One file, opened once: everything is read, and copied, through that one descriptor. A file without the file meta
/// information (a bare dataset) is kept as one.
class DicomFile {
public:
    /// How much of the file the rules reach.
    enum class Extent {
        Whole,  ///< everything is loaded
        Header, ///< what lies before kPixelDataGroup is; the rest is looked at only for being sound
    };

    /// @throws FileError for what cannot be read, is no DICOM file, is cut short, is a DICOMDIR, or takes more memory than
    ///         it is given (kMaxBytesInMemory).
    explicit DicomFile(const std::filesystem::path& file, Extent extent = Extent::Whole);
    DicomFile(const DicomFile&) = delete;
    DicomFile& operator=(const DicomFile&) = delete;

    /// @return the dataset, this object's: without what was left in the file for Extent::Header, as far as possible.
    DcmDataset& dataset() { return *format_->getDataset(); }

    /// @return whether the file, though readable, may be incomplete: it describes pixels and has no pixel data.
    bool seemsCut();

    /// Does to the dataset, after the rules, what saving it takes: groups that are no part of a dataset go, group lengths
    /// that are there are computed anew, and the file meta information follows a changed SOP Class or Instance UID.
    /// A second call changes nothing.
    /// @return the elements that went. @throws FileError
    std::vector<DcmTagKey> settle();

    /// Settles the dataset, and writes the file in its own transfer syntax. Its file meta information is kept, but for the
    /// SOP Class and SOP Instance UID of a dataset in which those were changed.
    /// @return the elements that went; none when settle() was called before.
    /// @throws FileError for what is not written; the content of the sink must not be used then.
    std::vector<DcmTagKey> writeTo(Sink& sink);

    const std::filesystem::path& path() const { return input_.path(); }

    /// @throws FileError when the file is no longer what was opened.
    void requireUnchanged() const { input_.requireUnchanged(); }

    /// Ends the work on the dataset. @return the open file, to be asked whether it is unchanged.
    InputFile takeInput() && { return std::move(input_); }

private:
    enum class Framing { FileFormat, BareDataset };

    void load(Extent extent);
    bool loadHeader();
    bool isTailSound(FileProducer& producer, std::uintmax_t begin);
    OFCondition loadWhole();
    void requireLoaded(const OFCondition& loaded);
    void updateMetaInformation();
    std::vector<DcmTagKey> dropForeignGroups();
    std::optional<std::uintmax_t> expectedBytes();
    void requireNoErrors(const std::filesystem::path& target);
    OFCondition writeHeader(DcmOutputStream& output);
    void writeTail(Sink& sink, SinkConsumer& consumer) const;

    InputFile input_;
    std::optional<DcmFileFormat> format_;
    Framing framing_ = Framing::FileFormat;
    E_EncodingType lengthEncoding_ = EET_ExplicitLength;
    std::uintmax_t tailBegin_;          // where what was not loaded begins; the file's end when there is none
    std::unique_ptr<char[]> smallFile_; // all bytes of a small file with such a tail, which are read anyway
    /// A UID that stands in the dataset and in the file meta information.
    struct TwinUid {
        DcmTagKey tag;
        DcmTagKey metaTag;
        std::string inDataset{}; // as read
        std::string inMeta{};    // as read
    };

    std::array<TwinUid, 2> uids_;
};

/// Warns that elements, those that settle() or writeTo() returned, are not in the result.
void warnOfDropped(const std::filesystem::path& file, const std::vector<DcmTagKey>& tags);

} // namespace kxtool
