// SPDX-License-Identifier: BSD-3-Clause
// One DICOM file: reading it, and writing it back with as little changed as DCMTK allows.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcfilefo.h>

#include <cstdio>
#include <filesystem>
#include <string>

namespace kxtool {

/// A file in memory, but for its large values: those stay on disk until someone asks for them, and are copied through
/// when the file is saved. The file must therefore stay as it is while this object lives; saving to the same path is
/// fine. A file without the file meta information (a bare dataset) is kept as one.
class DicomFile {
public:
    /// @throws FileError for what cannot be read, is no DICOM file, is cut short, or is a DICOMDIR.
    explicit DicomFile(const std::filesystem::path& file);
    DicomFile(const DicomFile&) = delete;
    DicomFile& operator=(const DicomFile&) = delete;

    /// @return the dataset, this object's.
    DcmDataset& dataset() { return *format_.getDataset(); }

    /// Writes the file in its own transfer syntax to `target`, whole or not at all. Its file meta information is kept,
    /// but for the SOP Class and SOP Instance UID of a dataset in which those were changed.
    /// @throws FileError, and `target` is as it was.
    void save(const std::filesystem::path& target);

private:
    enum class Framing { FileFormat, BareDataset };

    void updateMetaInformation();
    void dropForeignGroups();
    OFCondition writeTo(DcmOutputStream& output);
    void write(std::FILE* stream, const std::filesystem::path& target);

    std::filesystem::path file_;
    DcmFileFormat format_;
    Framing framing_;
    E_EncodingType lengthEncoding_ = EET_ExplicitLength;
    std::string sopClassUid_;    // as read
    std::string sopInstanceUid_; // as read
};

} // namespace kxtool
