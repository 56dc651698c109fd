// SPDX-License-Identifier: BSD-3-Clause
#include "tool/dicom/sinkstream.h"

#include <cstring>

namespace kxtool {

offile_off_t SinkConsumer::write(const void* bytes, offile_off_t count)
{
    const auto size = static_cast<std::size_t>(count);
    if (size > buffer_.size() - used_) flush();
    if (reason_ != 0) return 0;
    if (size > buffer_.size()) {
        reason_ = sink_.write(bytes, size);
    } else {
        std::memcpy(buffer_.data() + used_, bytes, size);
        used_ += size;
    }
    if (reason_ != 0) return 0;
    size_ += size;
    return count;
}

void SinkConsumer::flush()
{
    if (reason_ == 0 && used_ > 0) reason_ = sink_.write(buffer_.data(), used_);
    used_ = 0;
}

} // namespace kxtool
