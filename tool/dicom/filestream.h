// SPDX-License-Identifier: BSD-3-Clause
// DCMTK's input stream for a file that is already open. Errors of the system are kept.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcerror.h>
#include <dcmtk/dcmdata/dcistrma.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace kxtool {

class InputFile;

/// Gives a file's bytes from a position on. It reads them in pieces, and large values at once.
class FileProducer : public DcmProducer {
public:
    /// @param file stays open while this object lives.
    FileProducer(const InputFile& file, std::uintmax_t begin);

    OFBool good() const override { return reason_ == 0 && !isCut_; }
    OFCondition status() const override { return good() ? EC_Normal : EC_InvalidStream; }
    OFBool eos() override { return position_ >= end_; }
    offile_off_t avail() override { return static_cast<offile_off_t>(end_ - position_); }
    offile_off_t read(void* buffer, offile_off_t wanted) override;
    offile_off_t skip(offile_off_t wanted) override;
    void putback(offile_off_t count) override;

    /// Reads ahead. @return the bytes at the present place, as many as a piece has; fewer at the file's end.
    std::string_view peek();

    /// @return all bytes of the file, when they are one piece that is read; the producer must not be used any more.
    std::unique_ptr<char[]> takeWholeFile();

    /// @return 0, or the system's error number for what could not be read.
    int reason() const { return reason_; }
    /// @return whether the file ended before the size that it had when it was opened.
    bool isCut() const { return isCut_; }

private:
    std::size_t readAt(std::uintmax_t at, char* bytes, std::size_t count);
    bool fill();

    const InputFile& file_;
    std::uintmax_t position_;
    const std::uintmax_t end_;
    std::size_t capacity_;
    std::unique_ptr<char[]> piece_;
    std::uintmax_t pieceBegin_;
    std::size_t pieceBytes_ = 0;
    int reason_ = 0;
    bool isCut_ = false;
};

/// A stream for one dataset.
class FileStream : public DcmInputStream {
public:
    /// What becomes of long values.
    enum class Values {
        Loaded,  ///< into memory, all of them
        Skipped, ///< they are never loaded: for looking at how a dataset is built
    };

    /// @param producer delivers the bytes, and outlives this object.
    /// @param limit of the bytes that the stream gives, those that a deflated dataset grows to included.
    FileStream(FileProducer& producer, Values values, std::uintmax_t limit);

    offile_off_t read(void* buffer, offile_off_t wanted) override;
    DcmInputStreamFactory* newFactory() const override;

    /// @return whether there would have been more than the limit.
    bool isOverLimit() const { return isOverLimit_; }

private:
    const Values values_;
    const std::uintmax_t limit_;
    bool isOverLimit_ = false;
};

} // namespace kxtool
