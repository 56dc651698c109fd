// SPDX-License-Identifier: BSD-3-Clause
// One DICOM file: reading it, and writing it back with as little changed as DCMTK allows.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <array>
#include <filesystem>
#include <string>

namespace kxtool {

class Replacement;

/// A file in memory, but for the large values of large files: those stay on disk until someone asks for them, and are
/// copied through when the file is saved. The file must therefore stay as it is while this object lives. A file without
/// the file meta information (a bare dataset) is kept as one.
class DicomFile {
public:
    /// @throws FileError for what cannot be read, is no DICOM file, is cut short, or is a DICOMDIR.
    explicit DicomFile(const std::filesystem::path& file);
    DicomFile(const DicomFile&) = delete;
    DicomFile& operator=(const DicomFile&) = delete;

    /// @return the dataset, this object's.
    DcmDataset& dataset() { return *format_.getDataset(); }

    /// Writes the file in its own transfer syntax. Its file meta information is kept, but for the SOP Class and SOP
    /// Instance UID of a dataset in which those were changed.
    /// @param replacement of a file, which may be the one that was read; the caller's to commit.
    /// @throws FileError for what is not written; the replacement is then of no use.
    void writeTo(Replacement& replacement);

private:
    enum class Framing { FileFormat, BareDataset };

    OFCondition load();
    void updateMetaInformation();
    void dropForeignGroups();
    OFCondition writeTo(DcmOutputStream& output);

    std::filesystem::path file_;
    DcmFileFormat format_;
    Framing framing_ = Framing::FileFormat;
    E_EncodingType lengthEncoding_ = EET_ExplicitLength;
    /// A UID that stands in the dataset and in the file meta information.
    struct TwinUid {
        DcmTagKey tag;
        DcmTagKey metaTag;
        std::string inDataset{}; // as read
        std::string inMeta{};    // as read
    };

    std::array<TwinUid, 2> uids_;
};

} // namespace kxtool
