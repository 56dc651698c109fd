// SPDX-License-Identifier: BSD-3-Clause
// DCMTK's output stream into a sink.
#pragma once

#include "tool/system/sink.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcerror.h>
#include <dcmtk/dcmdata/dcostrma.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace kxtool {

/// Collects DCMTK's small writes into large ones.
class SinkConsumer : public DcmConsumer {
public:
    explicit SinkConsumer(Sink& sink) : sink_(sink) {}

    OFBool good() const override { return reason_ == 0; }
    OFCondition status() const override { return reason_ == 0 ? EC_Normal : EC_InvalidStream; }
    OFBool isFlushed() const override { return used_ == 0; }
    offile_off_t avail() const override { return static_cast<offile_off_t>(kWriteBytes); } // any amount is taken
    offile_off_t write(const void* bytes, offile_off_t count) override;
    void flush() override;

    /// @return how many bytes came in.
    std::uintmax_t size() const { return size_; }

    /// @return 0, or the system's error number for what could not be written.
    int reason() const { return reason_; }

private:
    static constexpr std::size_t kWriteBytes = 64 * 1024;

    Sink& sink_;
    std::array<char, kWriteBytes> buffer_;
    std::size_t used_ = 0;
    std::uintmax_t size_ = 0;
    int reason_ = 0;
};

class SinkStream : public DcmOutputStream {
public:
    explicit SinkStream(SinkConsumer& consumer) : DcmOutputStream(&consumer) {}
};

} // namespace kxtool
