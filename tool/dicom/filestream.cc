// SPDX-License-Identifier: BSD-3-Clause
// Small files are one piece, so that one system call reads them.
#include "tool/dicom/filestream.h"

#include "tool/system/inputfile.h"

#include <algorithm>
#include <utility>

namespace kxtool {
namespace {

constexpr std::size_t kSmallFileBytes = 256 * 1024;
constexpr std::size_t kPieceBytes = 64 * 1024;

// DCMTK asks for this where it leaves a value in the file, and uses it when the value is asked for.
class NeverLoaded : public DcmInputStreamFactory {
public:
    DcmInputStream* create() const override { return nullptr; }
    DcmInputStreamFactory* clone() const override { return new NeverLoaded; }
    DcmInputStreamFactoryType ident() const override { return DFT_DcmInputFileStreamFactory; }
};

} // namespace

FileProducer::FileProducer(const InputFile& file, std::uintmax_t begin)
    : file_(file), position_(begin), end_(file.size()),
      capacity_(end_ <= kSmallFileBytes ? std::max<std::size_t>(end_, 1) : kPieceBytes),
      piece_(std::make_unique_for_overwrite<char[]>(capacity_)), pieceBegin_(begin)
{
}

std::size_t FileProducer::readAt(std::uintmax_t at, char* bytes, std::size_t count)
{
    const ssize_t got = file_.read(at, bytes, count);
    if (got < 0) {
        reason_ = static_cast<int>(-got);
        return 0;
    }
    if (static_cast<std::size_t>(got) < count) isCut_ = true;
    return static_cast<std::size_t>(got);
}

bool FileProducer::fill()
{
    if (position_ >= pieceBegin_ && position_ < pieceBegin_ + pieceBytes_) return true;
    if (!good() || eos()) return false;
    pieceBegin_ = end_ <= capacity_ ? 0 : position_;
    pieceBytes_ = readAt(pieceBegin_, piece_.get(), std::min<std::uintmax_t>(capacity_, end_ - pieceBegin_));
    return position_ < pieceBegin_ + pieceBytes_;
}

std::string_view FileProducer::peek()
{
    if (!fill()) return {};
    const std::size_t offset = position_ - pieceBegin_;
    return {piece_.get() + offset, pieceBytes_ - offset};
}

std::unique_ptr<char[]> FileProducer::takeWholeFile()
{
    return pieceBegin_ == 0 && pieceBytes_ == end_ ? std::move(piece_) : nullptr;
}

offile_off_t FileProducer::read(void* buffer, offile_off_t wanted)
{
    auto* next = static_cast<char*>(buffer);
    std::size_t missing = std::min<std::uintmax_t>(static_cast<std::uintmax_t>(std::max<offile_off_t>(wanted, 0)),
                                                   end_ - std::min(position_, end_));
    const std::size_t total = missing;
    while (missing > 0) {
        std::size_t count = 0;
        const bool isInPiece = position_ >= pieceBegin_ && position_ < pieceBegin_ + pieceBytes_;
        if (!isInPiece && missing >= capacity_) {
            count = good() ? readAt(position_, next, missing) : 0;
        } else {
            const std::string_view ahead = peek();
            count = ahead.copy(next, missing);
        }
        if (count == 0) break;
        next += count;
        position_ += count;
        missing -= count;
    }
    return static_cast<offile_off_t>(total - missing);
}

offile_off_t FileProducer::skip(offile_off_t wanted)
{
    const std::uintmax_t count =
        std::min<std::uintmax_t>(static_cast<std::uintmax_t>(std::max<offile_off_t>(wanted, 0)), end_ - position_);
    position_ += count;
    return static_cast<offile_off_t>(count);
}

void FileProducer::putback(offile_off_t count)
{
    position_ -= std::min(static_cast<std::uintmax_t>(count), position_);
}

FileStream::FileStream(FileProducer& producer, Values values, std::uintmax_t limit)
    : DcmInputStream(&producer), values_(values), limit_(limit)
{
}

offile_off_t FileStream::read(void* buffer, offile_off_t wanted)
{
    if (static_cast<std::uintmax_t>(tell() + wanted) > limit_) {
        isOverLimit_ = true;
        return 0;
    }
    return DcmInputStream::read(buffer, wanted);
}

DcmInputStreamFactory* FileStream::newFactory() const
{
    return values_ == Values::Skipped ? new NeverLoaded : nullptr;
}

} // namespace kxtool
